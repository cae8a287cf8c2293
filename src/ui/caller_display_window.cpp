#include "ui/caller_display_window.h"

#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>

#include "records/caller_display.h"
#include "ui/style.h"

namespace corvel {

CallerDisplayWindow::CallerDisplayWindow()
    : QWidget(nullptr, Qt::Tool | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus),
      photo_(new ClickableLabel(this)), label_(new ClickableLabel(this))
{
    setObjectName("frm_display");
    setWindowTitle("Corvel");
    setAttribute(Qt::WA_ShowWithoutActivating);
    style::apply(*this);
    photo_->setObjectName("photo");
    photo_->setAlignment(Qt::AlignCenter);
    label_->setObjectName("lab_number");
    label_->setAlignment(Qt::AlignCenter);
    label_->setTextFormat(Qt::PlainText); // a caller's name is shown as written, never as markup
    connect(photo_, &ClickableLabel::clicked, this, &CallerDisplayWindow::clicked);
    connect(label_, &ClickableLabel::clicked, this, &CallerDisplayWindow::clicked);
}

bool CallerDisplayWindow::loadPhoto(const QString& path)
{
    QPixmap picture;
    if (!picture.load(path)) return false;
    photo_->setPixmap(picture);
    layOut();
    return true;
}

void CallerDisplayWindow::setLabel(const QString& text)
{
    label_->setText(text);
    layOut();
}

void CallerDisplayWindow::showLaidOut()
{
    layOut();
    show();
    raise();
}

// Laid out again whenever the picture or the text changes: a message's pop-up is shown first
// and given its picture afterwards.
void CallerDisplayWindow::layOut()
{
    const double twipsPerPixel = 1440.0 / logicalDpiX();
    const QSize picture = photo_->pixmap().size();
    const int labelHeight = label_->sizeHint().height();
    const DisplayLayout layout = displayLayout(picture.width() * twipsPerPixel, picture.height() * twipsPerPixel,
                                               labelHeight * twipsPerPixel);
    const auto pixels = [&](double twips) { return static_cast<int>(twips / twipsPerPixel + 0.5); };
    photo_->setGeometry(0, 0, pixels(layout.width), pixels(layout.photoHeight));
    label_->setGeometry(0, pixels(layout.labelTop), pixels(layout.width), labelHeight);
    setFixedSize(pixels(layout.width), pixels(layout.height));
    // Top right of the screen, out of the way of the main window.
    if (const QScreen* screen = QGuiApplication::primaryScreen()) {
        const QRect area = screen->availableGeometry();
        move(area.right() - width() - 24, area.top() + 24);
    }
}

} // namespace corvel
