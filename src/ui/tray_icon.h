#pragma once

#include <memory>
#include <vector>

#include <QMenu>
#include <QObject>
#include <QSystemTrayIcon>
#include <QTimer>

#include "base/view.h"

namespace corvel {

// Corvel's icon in the notification area. Either mouse button opens its menu; a double click
// is reported on its own. Where the desktop has no notification area there is no icon, but the
// menu is still built, and Corvel carries on without it.
class TrayIcon final : public QObject {
    Q_OBJECT

public:
    explicit TrayIcon(QObject* parent = nullptr);
    ~TrayIcon() override;

    // Builds the menu from `entries` (a caption of "-" is a separator) and shows the icon.
    void show(const std::vector<TrayMenuEntry>& entries, const QString& tip);
    // Takes the icon away and drops its menu.
    void release();

    // The menu, or null before show() and after release().
    QMenu* menu() const { return menu_.get(); }
    // Whether an icon is showing in the notification area.
    bool visible() const { return icon_ && icon_->isVisible(); }

signals:
    void chosen(const QString& key);
    void doubleClicked();

private:
    void activated(QSystemTrayIcon::ActivationReason reason);

    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<QSystemTrayIcon> icon_;
    // A single click opens the menu only once a double click can no longer follow, so that the
    // second click of a double click does not land on the open menu.
    QTimer clickDelay_;
    QPoint clickedAt_;
    bool toldNoTray_ = false;
};

} // namespace corvel
