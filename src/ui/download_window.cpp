#include "ui/download_window.h"

#include <QGuiApplication>
#include <QHBoxLayout>
#include <QPainter>
#include <QScreen>

#include "ui/artwork.h"
#include "ui/style.h"

namespace corvel {
namespace {

// The blinking shape: an arrow going down in the accent colour.
class DownloadShape final : public QWidget {
public:
    explicit DownloadShape(QWidget* parent) : QWidget(parent) { setFixedSize(28, 28); }

protected:
    void paintEvent(QPaintEvent*) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        QColor tint = style::qcolor(style::colour::accent);
        tint.setAlphaF(0.16);
        painter.setPen(Qt::NoPen);
        painter.setBrush(tint);
        painter.drawEllipse(QRectF(rect()));
        artwork::paintGlyph(painter, artwork::Glyph::ToTray, QRectF(rect()).adjusted(7, 7, -7, -7),
                            style::qcolor(style::colour::accent));
    }
};

} // namespace

DownloadWindow::DownloadWindow()
    : QWidget(nullptr, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint), text_(new QLabel(this)),
      shape_(nullptr)
{
    setObjectName("frm_download");
    setWindowTitle("Corvel");
    setAttribute(Qt::WA_TranslucentBackground);
    style::apply(*this);
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(16, 14, 18, 14);
    layout->setSpacing(12);
    // A place kept for the shape, so that the text does not jump when it blinks.
    auto* holder = new QWidget(this);
    holder->setFixedSize(28, 28);
    shape_ = new DownloadShape(holder);
    shape_->setObjectName("Shape1");
    layout->addWidget(holder, 0, Qt::AlignTop);
    text_->setObjectName("lab_info");
    text_->setWordWrap(true);
    layout->addWidget(text_, 1);
    setFixedWidth(340);
}

void DownloadWindow::setText(const QString& text)
{
    text_->setText(text);
    adjustSize();
}

void DownloadWindow::setShapeVisible(bool visible) { shape_->setVisible(visible); }

void DownloadWindow::showCentred()
{
    adjustSize();
    if (const QScreen* screen = QGuiApplication::primaryScreen())
        move(screen->availableGeometry().center() - rect().center());
    show();
    raise();
}

void DownloadWindow::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(style::qcolor(style::colour::border), 1));
    painter.setBrush(style::qcolor(style::colour::panel));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), style::windowRadius, style::windowRadius);
}

} // namespace corvel
