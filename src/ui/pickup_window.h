#pragma once

#include <QWidget>

#include "ui/clickable_label.h"

namespace corvel {

// frm_pickup: asks the user to click it and pick up the telephone while a caller waits. A
// click anywhere on it (the window, Image1 or Label1) counts.
class PickupWindow final : public QWidget {
    Q_OBJECT

public:
    PickupWindow();
    void setCaption(const QString& text);

signals:
    void clicked();

protected:
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QLabel* caption_;
};

} // namespace corvel
