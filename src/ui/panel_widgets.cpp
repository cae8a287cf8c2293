#include "ui/panel_widgets.h"

#include <QFrame>
#include <QPainter>
#include <QRadialGradient>

#include "ui/style.h"

namespace corvel {

using style::qcolor;
namespace colour = style::colour;

QString toQt(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

QWidget* divider(QWidget* parent, Qt::Orientation orientation)
{
    auto* line = new QFrame(parent);
    line->setObjectName("divider");
    if (orientation == Qt::Horizontal) line->setFixedHeight(1);
    else line->setFixedWidth(1);
    return line;
}

GlyphButton::GlyphButton(artwork::Glyph glyph, const QString& tip, QWidget* parent)
    : QAbstractButton(parent), glyph_(glyph)
{
    setToolTip(tip);
    setAccessibleName(tip);
    setCursor(Qt::PointingHandCursor);
    setFocusPolicy(Qt::NoFocus);
    setAttribute(Qt::WA_Hover);
    setFixedSize(sizeHint());
}

void GlyphButton::setGlyph(artwork::Glyph glyph)
{
    if (glyph == glyph_) return;
    glyph_ = glyph;
    update();
}

void GlyphButton::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = QRectF(rect()).adjusted(1, 1, -1, -1);
    QColor ink = qcolor(colour::muted);
    if (underMouse()) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(dangerous_ ? qcolor(colour::danger) : qcolor(colour::raised));
        if (isDown()) painter.setBrush(painter.brush().color().darker(120));
        painter.drawEllipse(area);
        ink = dangerous_ ? QColor(Qt::white) : qcolor(colour::text);
    }
    const qreal side = 10;
    artwork::paintGlyph(painter, glyph_, QRectF(area.center().x() - side / 2, area.center().y() - side / 2, side, side),
                        ink);
}

DragGrip::DragGrip(QWidget* parent) : QWidget(parent)
{
    setObjectName("Image5");
    setToolTip("Drag to move");
    setCursor(Qt::SizeAllCursor);
    setFixedSize(sizeHint());
}

void DragGrip::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    artwork::paintGlyph(painter, artwork::Glyph::Grip, QRectF(rect()).adjusted(0, 4, 0, -4), qcolor(colour::faint));
}

MarkView::MarkView(int side, QWidget* parent) : QWidget(parent) { setFixedSize(side, side); }

void MarkView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    artwork::paintMark(painter, rect());
}

namespace {

// The lit lamp: a glowing dot in the accent colour.
class LampLight final : public QWidget {
public:
    using QWidget::QWidget;

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF area = QRectF(rect());
        QRadialGradient glow(area.center(), area.width() / 2, area.center() - QPointF(1.5, 1.5));
        glow.setColorAt(0, qcolor(colour::accentHover).lighter(125));
        glow.setColorAt(0.6, qcolor(colour::accent));
        glow.setColorAt(1, qcolor(colour::accent).darker(140));
        painter.setPen(Qt::NoPen);
        painter.setBrush(glow);
        painter.drawEllipse(area.adjusted(1, 1, -1, -1));
    }
};

} // namespace

LampSocket::LampSocket(const QString& lampName, QWidget* parent) : QWidget(parent), lamp_(new LampLight(this))
{
    setFixedSize(sizeHint());
    lamp_->setObjectName(lampName);
    lamp_->setGeometry(rect());
    lamp_->setVisible(false);
}

void LampSocket::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(qcolor(colour::border), 1));
    painter.setBrush(qcolor(colour::well));
    painter.drawEllipse(QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5));
}

ToggleBox::ToggleBox(QWidget* parent) : QCheckBox(parent)
{
    setCursor(Qt::PointingHandCursor);
    setAttribute(Qt::WA_Hover);
    setFixedSize(sizeHint());
}

void ToggleBox::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF track = QRectF(0, 0, 28, 16).translated(QRectF(rect()).center() - QPointF(14, 8));
    const bool on = isChecked();
    QColor ground = on ? qcolor(colour::accent) : qcolor(colour::surface);
    QColor edge = on ? ground : qcolor(underMouse() ? colour::faint : colour::border);
    if (on && underMouse()) ground = edge = qcolor(colour::accentHover);
    if (!isEnabled()) ground.setAlphaF(0.4);
    painter.setPen(QPen(edge, 1));
    painter.setBrush(ground);
    painter.drawRoundedRect(track.adjusted(0.5, 0.5, -0.5, -0.5), 7.5, 7.5);
    if (hasFocus()) {
        painter.setPen(QPen(qcolor(colour::accent), 1));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(track.adjusted(-1, -1, 1, 1), 9, 9);
    }
    const qreal knob = 12;
    const QPointF centre(on ? track.right() - 2 - knob / 2 : track.left() + 2 + knob / 2, track.center().y());
    painter.setPen(Qt::NoPen);
    painter.setBrush(on ? qcolor(colour::onAccent) : qcolor(colour::muted));
    painter.drawEllipse(centre, knob / 2, knob / 2);
}

void ChevronComboBox::paintEvent(QPaintEvent* event)
{
    QComboBox::paintEvent(event);
    QPainter painter(this);
    const qreal side = 9;
    const QRectF box(width() - 10 - side, (height() - side) / 2.0, side, side);
    artwork::paintGlyph(painter, artwork::Glyph::Expand, box,
                        qcolor(underMouse() ? colour::text : colour::muted));
}

} // namespace corvel
