#pragma once

#include <QWidget>

#include "ui/clickable_label.h"

namespace corvel {

// frm_display: the caller's picture with a line of text under it, in a small window that
// stays on top without taking the focus.
class CallerDisplayWindow final : public QWidget {
    Q_OBJECT

public:
    CallerDisplayWindow();

    bool loadPhoto(const QString& path);
    void setLabel(const QString& text);
    void showLaidOut();

signals:
    void clicked();

private:
    void layOut();

    ClickableLabel* photo_;
    ClickableLabel* label_;
};

} // namespace corvel
