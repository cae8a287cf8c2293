#include "ui/side_tabs.h"

#include <QMouseEvent>
#include <QPainter>

#include "ui/style.h"

namespace corvel {
namespace {

constexpr int tabHeight = 26;
constexpr int textInset = 10;

} // namespace

SideTabBar::SideTabBar(QWidget* parent) : QTabBar(parent)
{
    setShape(QTabBar::RoundedWest);
    setDrawBase(false);
    setExpanding(false);
    setUsesScrollButtons(false);
    setMouseTracking(true);
    setCursor(Qt::PointingHandCursor);
}

QSize SideTabBar::tabSizeHint(int) const
{
    // Every tab as wide as the widest caption.
    const QFontMetrics metrics(font());
    int widest = 0;
    for (int i = 0; i < count(); ++i) widest = qMax(widest, metrics.horizontalAdvance(tabText(i)));
    return {widest + 2 * textInset, tabHeight};
}

void SideTabBar::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    for (int i = 0; i < count(); ++i) {
        const QRectF tab = QRectF(tabRect(i)).adjusted(0, 1, 0, -1);
        const bool current = i == currentIndex();
        QColor ink = style::qcolor(style::colour::muted);
        if (current) {
            QColor tint = style::qcolor(style::colour::accent);
            tint.setAlphaF(0.14);
            painter.setPen(Qt::NoPen);
            painter.setBrush(tint);
            painter.drawRoundedRect(tab, 6, 6);
            painter.setBrush(style::qcolor(style::colour::accent));
            painter.drawRoundedRect(QRectF(tab.left(), tab.top() + 6, 3, tab.height() - 12), 1.5, 1.5);
            ink = style::qcolor(style::colour::accent);
        } else if (i == hovered_) {
            painter.setPen(Qt::NoPen);
            painter.setBrush(style::qcolor(style::colour::raised));
            painter.drawRoundedRect(tab, 6, 6);
            ink = style::qcolor(style::colour::text);
        }
        painter.setPen(ink);
        painter.drawText(tab.adjusted(textInset, 0, -4, 0), Qt::AlignVCenter | Qt::AlignLeft, tabText(i));
    }
}

void SideTabBar::mouseMoveEvent(QMouseEvent* event)
{
    const int under = tabAt(event->position().toPoint());
    if (under != hovered_) {
        hovered_ = under;
        update();
    }
    QTabBar::mouseMoveEvent(event);
}

void SideTabBar::leaveEvent(QEvent* event)
{
    hovered_ = -1;
    update();
    QTabBar::leaveEvent(event);
}

SideTabWidget::SideTabWidget(QWidget* parent) : QTabWidget(parent)
{
    setTabBar(new SideTabBar(this));
    setTabPosition(QTabWidget::West);
    setDocumentMode(true);
}

} // namespace corvel
