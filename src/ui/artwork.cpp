#include "ui/artwork.h"

#include <functional>
#include <utility>

#include <QIconEngine>
#include <QImage>
#include <QPainterPath>
#include <QPainterPathStroker>
#include <QPixmap>

#include "ui/style.h"

namespace corvel::artwork {
namespace {

// An icon that paints itself at whatever size it is shown, instead of scaling a bitmap.
class PaintedIconEngine final : public QIconEngine {
public:
    using Painter = std::function<void(QPainter&, const QRectF&)>;

    explicit PaintedIconEngine(Painter paint) : paint_(std::move(paint)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode, QIcon::State) override
    {
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        if (mode == QIcon::Disabled) painter->setOpacity(0.4);
        paint_(*painter, rect);
        painter->restore();
    }

    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override
    {
        QImage image(size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        paint(&painter, QRect(QPoint(0, 0), size), mode, state);
        painter.end();
        return QPixmap::fromImage(std::move(image));
    }

    QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override
    {
        return {{16, 16}, {22, 22}, {24, 24}, {32, 32}, {48, 48}, {64, 64}, {128, 128}, {256, 256}};
    }

    QIconEngine* clone() const override { return new PaintedIconEngine(paint_); }
    QString key() const override { return QStringLiteral("corvel-painted"); }

private:
    Painter paint_;
};

// The largest square centred in `box`.
QRectF square(const QRectF& box)
{
    const qreal side = qMin(box.width(), box.height());
    return QRectF(box.center().x() - side / 2, box.center().y() - side / 2, side, side);
}

} // namespace

void paintHandset(QPainter& painter, const QRectF& box, const QColor& colour)
{
    // Drawn on a 24-unit grid: the earpiece at the top left, the mouthpiece at the bottom
    // right, the handle bowed out towards the bottom left between them.
    const QRectF area = square(box);
    const qreal unit = area.width() / 24;
    const auto at = [&](qreal x, qreal y) { return QPointF(area.left() + x * unit, area.top() + y * unit); };

    QPainterPath handle;
    handle.moveTo(at(6.0, 5.5));
    handle.cubicTo(at(4.8, 11.8), at(12.2, 19.2), at(18.5, 18.0));
    QPainterPathStroker stroker;
    stroker.setWidth(4.4 * unit);
    stroker.setCapStyle(Qt::RoundCap);
    QPainterPath shape = stroker.createStroke(handle);

    QPainterPath earpiece;
    earpiece.addRoundedRect(QRectF(at(2.2, 1.8), at(10.0, 8.8)), 2.4 * unit, 2.4 * unit);
    QPainterPath mouthpiece;
    mouthpiece.addRoundedRect(QRectF(at(15.0, 14.0), at(22.0, 21.8)), 2.4 * unit, 2.4 * unit);
    // The cups lean with the handle, as a handset's do.
    const auto tilted = [&](const QPainterPath& cup, qreal degrees) {
        QTransform turn;
        const QPointF centre = cup.boundingRect().center();
        turn.translate(centre.x(), centre.y());
        turn.rotate(degrees);
        turn.translate(-centre.x(), -centre.y());
        return turn.map(cup);
    };
    shape = shape.united(tilted(earpiece, -20)).united(tilted(mouthpiece, -25)).simplified();

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawPath(shape);
    painter.restore();
}

void paintMark(QPainter& painter, const QRectF& box)
{
    const QRectF area = square(box);
    const qreal side = area.width();
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QLinearGradient ground(area.topLeft(), area.bottomRight());
    ground.setColorAt(0, style::qcolor(style::colour::accentHover));
    ground.setColorAt(1, style::qcolor(style::colour::accent).darker(125));
    painter.setPen(Qt::NoPen);
    painter.setBrush(ground);
    const qreal radius = side * 0.24;
    painter.drawRoundedRect(area, radius, radius);
    const qreal inset = side * 0.17;
    paintHandset(painter, area.adjusted(inset, inset, -inset, -inset), style::qcolor(style::colour::onAccent));
    painter.restore();
}

void paintGlyph(QPainter& painter, Glyph glyph, const QRectF& box, const QColor& colour)
{
    const QRectF area = square(box);
    const qreal s = area.width();
    const auto at = [&](qreal x, qreal y) { return QPointF(area.left() + x * s, area.top() + y * s); };

    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    QPen pen(colour, qMax<qreal>(1.25, s * 0.12), Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    switch (glyph) {
    case Glyph::Close:
        painter.drawLine(at(0.2, 0.2), at(0.8, 0.8));
        painter.drawLine(at(0.8, 0.2), at(0.2, 0.8));
        break;
    case Glyph::ToTray:
        // An arrow going down onto a tray.
        painter.drawLine(at(0.5, 0.12), at(0.5, 0.6));
        painter.drawPolyline(QPolygonF{at(0.28, 0.4), at(0.5, 0.62), at(0.72, 0.4)});
        painter.drawPolyline(QPolygonF{at(0.12, 0.68), at(0.12, 0.86), at(0.88, 0.86), at(0.88, 0.68)});
        break;
    case Glyph::Expand:
        painter.drawPolyline(QPolygonF{at(0.18, 0.36), at(0.5, 0.68), at(0.82, 0.36)});
        break;
    case Glyph::Shrink:
        painter.drawPolyline(QPolygonF{at(0.18, 0.64), at(0.5, 0.32), at(0.82, 0.64)});
        break;
    case Glyph::Grip: {
        painter.setPen(Qt::NoPen);
        painter.setBrush(colour);
        const qreal dot = qMax<qreal>(1.0, s * 0.075);
        for (const qreal x : {0.36, 0.64})
            for (const qreal y : {0.22, 0.5, 0.78}) painter.drawEllipse(at(x, y), dot, dot);
        break;
    }
    case Glyph::Play: {
        painter.setBrush(colour);
        pen.setWidthF(s * 0.06);
        painter.setPen(pen);
        painter.drawPolygon(QPolygonF{at(0.3, 0.2), at(0.8, 0.5), at(0.3, 0.8)});
        break;
    }
    case Glyph::Change: {
        // A folder, for choosing another file.
        pen.setWidthF(qMax<qreal>(1.0, s * 0.09));
        painter.setPen(pen);
        QPainterPath folder;
        folder.moveTo(at(0.12, 0.8));
        folder.lineTo(at(0.12, 0.24));
        folder.lineTo(at(0.4, 0.24));
        folder.lineTo(at(0.48, 0.34));
        folder.lineTo(at(0.88, 0.34));
        folder.lineTo(at(0.88, 0.8));
        folder.closeSubpath();
        painter.drawPath(folder);
        painter.drawLine(at(0.12, 0.46), at(0.88, 0.46));
        break;
    }
    }
    painter.restore();
}

QIcon markIcon()
{
    return QIcon(new PaintedIconEngine([](QPainter& painter, const QRectF& box) { paintMark(painter, box); }));
}

QIcon glyphIcon(Glyph glyph, const QColor& colour)
{
    return QIcon(new PaintedIconEngine(
        [glyph, colour](QPainter& painter, const QRectF& box) { paintGlyph(painter, glyph, box, colour); }));
}

} // namespace corvel::artwork
