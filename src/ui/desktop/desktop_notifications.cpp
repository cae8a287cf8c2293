#include "ui/desktop/desktop_notifications.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QUrl>

#include "base/log.h"

namespace corvel {
namespace {

constexpr const char* service = "org.freedesktop.Notifications";
constexpr const char* path = "/org/freedesktop/Notifications";
constexpr const char* interface = "org.freedesktop.Notifications";
constexpr unsigned char low = 0;      // told in passing
constexpr unsigned char critical = 2; // stays until closed: the caller waits on it

// A caller's text as a notification body: servers may read the body as markup.
QString bodyText(std::string_view text)
{
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())).toHtmlEscaped();
}

} // namespace

DesktopNotifications::DesktopNotifications(const SettingsStore& settings, CallHandling& handling,
                                           MessagePlayback& playback, CallEventFollowers& events)
    : settings_(settings), handling_(handling), playback_(playback), events_(events)
{
    QDBusConnection::sessionBus().connect(service, path, interface, "ActionInvoked", this,
                                          SLOT(actionInvoked(uint, QString)));
    events_.add(*this);
}

DesktopNotifications::~DesktopNotifications() { events_.remove(*this); }

bool DesktopNotifications::on() const { return settings::dataFlag(settings_, "notifications", "True"); }

void DesktopNotifications::callerAnnounced(const AnnouncedCaller& caller)
{
    if (!on() || caller.quietly) return;
    Notice notice{"Incoming call", bodyText(caller.said), {}, {}, callNotice_};
    if (caller.caller != caller.said) notice.body += "\n" + bodyText(caller.caller);
    if (!caller.picture.empty())
        notice.hints["image-path"] = QUrl::fromLocalFile(QString::fromStdString(caller.picture.string())).toString();
    notify(notice, [this](uint id) { callNotice_ = id; });
}

void DesktopNotifications::callerWaiting(std::string_view caller)
{
    if (!on()) return;
    callWaits_ = true;
    Notice notice{"Caller waiting", bodyText(caller), {"pick-up", "Pick up", "take-message", "Take a message"}, {},
                  callNotice_};
    notice.hints["urgency"] = QVariant::fromValue(critical);
    notify(notice, [this](uint id) {
        callNotice_ = id;
        if (!callWaits_) close(id); // the call ended before the server answered
    });
}

void DesktopNotifications::messageRecorded(const std::filesystem::path&, std::string_view caller)
{
    if (!on()) return;
    notify({"New message", "From " + bodyText(caller), {"play", "Play"}, {}, 0},
           [this](uint id) { messageNotices_.insert(id); });
}

void DesktopNotifications::callBlocked(std::string_view caller)
{
    if (!on()) return;
    Notice notice{"Call blocked", bodyText(caller), {}, {}, 0};
    notice.hints["urgency"] = QVariant::fromValue(low);
    notify(notice, [](uint) {});
}

void DesktopNotifications::callEnded()
{
    if (callWaits_ && callNotice_ != 0) close(callNotice_); // its actions have nothing left to act on
    callWaits_ = false;
    callNotice_ = 0;
}

void DesktopNotifications::actionInvoked(uint id, const QString& action)
{
    // Run after the signal's handling: each may wait on the call for many seconds.
    const auto later = [this](std::function<void()> work) {
        QMetaObject::invokeMethod(this, std::move(work), Qt::QueuedConnection);
    };
    if (id == callNotice_ && callWaits_ && action == "pick-up") {
        later([this] { handling_.takeCall(); });
    } else if (id == callNotice_ && callWaits_ && action == "take-message") {
        later([this] { handling_.takeMessage(); });
    } else if (messageNotices_.contains(id) && action == "play") {
        messageNotices_.erase(id);
        later([this] { playback_.playNew(); });
    }
}

void DesktopNotifications::notify(const Notice& notice, std::function<void(uint)> shown)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        if (!std::exchange(failureLogged_, true)) log::info("no session bus: desktop notifications are not sent");
        return;
    }
    QVariantMap hints = notice.hints;
    hints["desktop-entry"] = QString("org.corvel.Corvel");
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, "Notify");
    call << QString("Corvel") << notice.replaces << QString("org.corvel.Corvel") << notice.summary << notice.body
         << notice.actions << hints << -1;
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, shown = std::move(shown)](QDBusPendingCallWatcher* done) {
        done->deleteLater();
        const QDBusPendingReply<uint> reply = *done;
        if (reply.isError()) {
            if (!std::exchange(failureLogged_, true))
                log::info("no desktop notification server (" + reply.error().message().toStdString() +
                          "): notifications are not shown");
            return;
        }
        shown(reply.value());
    });
}

void DesktopNotifications::close(uint id)
{
    QDBusConnection::sessionBus().asyncCall(QDBusMessage::createMethodCall(service, path, interface, "CloseNotification")
                                            << id);
}

} // namespace corvel
