#include "ui/tray_icon.h"

#include <QApplication>
#include <QCursor>

#include "base/log.h"
#include "ui/artwork.h"
#include "ui/style.h"

namespace corvel {

TrayIcon::TrayIcon(QObject* parent) : QObject(parent)
{
    clickDelay_.setSingleShot(true);
    connect(&clickDelay_, &QTimer::timeout, this, [this] {
        if (menu_) menu_->popup(clickedAt_);
    });
}

TrayIcon::~TrayIcon() = default;

void TrayIcon::show(const std::vector<TrayMenuEntry>& entries, const QString& tip)
{
    release();
    // The menu is a window of its own, so it takes Corvel's style itself.
    menu_ = std::make_unique<QMenu>();
    menu_->setObjectName("trayMenu");
    style::apply(*menu_);
    for (const TrayMenuEntry& entry : entries) {
        if (entry.caption == "-") {
            menu_->addSeparator();
            continue;
        }
        QString caption = QString::fromStdString(entry.caption);
        caption.replace('&', "&&"); // shown as written, without shortcut letters
        const QString key = QString::fromStdString(entry.key);
        menu_->addAction(caption, this, [this, key] { emit chosen(key); });
    }

    if (!QSystemTrayIcon::isSystemTrayAvailable()) {
        if (!toldNoTray_) log::info("no system tray: the tray icon is not shown");
        toldNoTray_ = true;
        return;
    }
    icon_ = std::make_unique<QSystemTrayIcon>(artwork::markIcon());
    icon_->setToolTip(tip);
    icon_->setContextMenu(menu_.get());
    connect(icon_.get(), &QSystemTrayIcon::activated, this, &TrayIcon::activated);
    icon_->show();
}

void TrayIcon::activated(QSystemTrayIcon::ActivationReason reason)
{
    switch (reason) {
    case QSystemTrayIcon::Trigger:
        clickedAt_ = QCursor::pos();
        clickDelay_.start(QApplication::doubleClickInterval());
        break;
    case QSystemTrayIcon::DoubleClick:
        clickDelay_.stop();
        emit doubleClicked();
        break;
    default: // Context: the icon opens its context menu itself
        break;
    }
}

void TrayIcon::release()
{
    clickDelay_.stop();
    if (icon_) {
        icon_->hide();
        icon_.reset();
    }
    menu_.reset();
}

} // namespace corvel
