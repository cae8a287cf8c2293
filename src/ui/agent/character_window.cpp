#include "ui/agent/character_window.h"

#include <QBitmap>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>

namespace corvel {

bool shapedWindows()
{
    // The offscreen platform draws no desktop to let through, and says so on every frame.
    static const bool shaped = QGuiApplication::platformName() != "offscreen";
    return shaped;
}

CharacterWindow::CharacterWindow(QSize frameSize)
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus |
                           Qt::NoDropShadowWindowHint)
{
    setObjectName("character");
    setWindowTitle("Corvel character");
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setFixedSize(frameSize);
    frame_ = QImage(frameSize, QImage::Format_RGBA8888);
    frame_.fill(Qt::transparent);
}

void CharacterWindow::setFrame(const QImage& frame)
{
    frame_ = frame;
    // The opaque pixels are the window; an empty frame keeps one pixel, for an empty mask
    // would mean no shape at all.
    shape_ = QRegion(QBitmap::fromImage(frame_.createAlphaMask()));
    if (shape_.isEmpty()) shape_ = QRegion(0, 0, 1, 1);
    if (shapedWindows()) setMask(shape_);
    update();
}

void CharacterWindow::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(rect(), Qt::transparent);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    painter.drawImage(rect(), frame_);
}

void CharacterWindow::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::RightButton) {
        emit menuRequested(event->globalPosition().toPoint());
    } else if (event->button() == Qt::LeftButton) {
        dragging_ = true;
        grab_ = event->globalPosition().toPoint() - pos();
    }
    event->accept();
}

void CharacterWindow::mouseMoveEvent(QMouseEvent* event)
{
    if (dragging_ && (event->buttons() & Qt::LeftButton)) {
        move(event->globalPosition().toPoint() - grab_);
        emit dragged();
    }
    event->accept();
}

void CharacterWindow::mouseReleaseEvent(QMouseEvent* event)
{
    dragging_ = false;
    event->accept();
}

} // namespace corvel
