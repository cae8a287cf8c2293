#include "ui/pickup_window.h"

#include <QMouseEvent>
#include <QVBoxLayout>

#include "ui/style.h"

namespace corvel {

PickupWindow::PickupWindow()
    : QWidget(nullptr, Qt::Tool | Qt::WindowStaysOnTopHint), caption_(new QLabel(this))
{
    setObjectName("frm_pickup");
    setWindowTitle("Corvel");
    style::apply(*this);
    auto* image = new ClickableLabel(QString::fromUtf8("\u260E"), this);
    image->setObjectName("Image1");
    image->setAlignment(Qt::AlignCenter);
    image->setStyleSheet("font-size: 40px;");
    auto* label = new ClickableLabel("Caller Waiting ! Click on this window and then pick up your normal telephone", this);
    label->setObjectName("Label1");
    label->setWordWrap(true);
    label->setAlignment(Qt::AlignCenter);
    caption_->setObjectName("lab_caller");
    caption_->setAlignment(Qt::AlignCenter);
    caption_->setTextFormat(Qt::PlainText); // a caller's name is shown as written, never as markup
    caption_->setStyleSheet("font-weight: bold;");
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(image);
    layout->addWidget(label);
    layout->addWidget(caption_);
    setCursor(Qt::PointingHandCursor);
    connect(image, &ClickableLabel::clicked, this, &PickupWindow::clicked);
    connect(label, &ClickableLabel::clicked, this, &PickupWindow::clicked);
    setFixedWidth(260);
}

void PickupWindow::setCaption(const QString& text) { caption_->setText(text); }

void PickupWindow::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) emit clicked();
    QWidget::mouseReleaseEvent(event);
}

} // namespace corvel
