#pragma once

#include <QImage>
#include <QPoint>
#include <QRegion>
#include <QWidget>

namespace corvel {

// Whether windows can take the shape of what they show (not on the offscreen platform).
bool shapedWindows();

// The character on the desktop: a frameless, always-on-top window the shape of the frame shown,
// so that clicks beside the character reach whatever lies below. Right click asks for the
// character's menu; the character can be dragged with the left button.
class CharacterWindow final : public QWidget {
    Q_OBJECT

public:
    explicit CharacterWindow(QSize frameSize);

    // Shows a frame (RGBA, the character's frame size) and shapes the window to it.
    void setFrame(const QImage& frame);
    const QImage& frame() const { return frame_; }
    // The opaque part of the frame: the window's shape.
    const QRegion& shape() const { return shape_; }

signals:
    void menuRequested(QPoint globalPosition);
    void dragged();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QImage frame_;
    QRegion shape_;
    QPoint grab_;
    bool dragging_ = false;
};

} // namespace corvel
