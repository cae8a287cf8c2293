#pragma once

#include <QLabel>
#include <QMouseEvent>

namespace corvel {

// A label or picture that answers a click, as the main window's captions and pictures do.
class ClickableLabel final : public QLabel {
    Q_OBJECT

public:
    using QLabel::QLabel;

signals:
    void clicked();

protected:
    void mouseReleaseEvent(QMouseEvent* event) override
    {
        if (event->button() == Qt::LeftButton && rect().contains(event->position().toPoint())) emit clicked();
        QLabel::mouseReleaseEvent(event);
    }
};

} // namespace corvel
