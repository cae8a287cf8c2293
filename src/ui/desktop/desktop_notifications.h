#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <set>

#include "base/call_events.h"
#include "base/settings_store.h"
#include "messages/message_playback.h"
#include "telephony/call_handling.h"

namespace corvel {

// Tells the desktop about calls through its notification server (org.freedesktop.Notifications):
// the caller announced with their picture, a caller waiting with "Pick up" and "Take a message",
// a new message with "Play", a blocked caller turned away. An action does what the matching click in Corvel's windows does.
// Sent while the "notifications" setting is on; with no server nothing is sent, and the log
// says so once.
class DesktopNotifications final : public QObject, private CallEvents {
    Q_OBJECT

public:
    DesktopNotifications(const SettingsStore& settings, CallHandling& handling, MessagePlayback& playback,
                         CallEventFollowers& events);
    ~DesktopNotifications() override;

private slots:
    void actionInvoked(uint id, const QString& action);

private:
    void callerAnnounced(const AnnouncedCaller& caller) override;
    void callerWaiting(std::string_view caller) override;
    void messageRecorded(const std::filesystem::path& file, std::string_view caller) override;
    void callBlocked(std::string_view caller) override;
    void callEnded() override;

    struct Notice {
        QString summary;
        QString body;
        QStringList actions; // key, label, key, label ...
        QVariantMap hints;
        uint replaces = 0;
    };
    // Sends `notice`; `shown` gets the id the server gave it.
    void notify(const Notice& notice, std::function<void(uint)> shown);
    void close(uint id);
    bool on() const;

    const SettingsStore& settings_;
    CallHandling& handling_;
    MessagePlayback& playback_;
    CallEventFollowers& events_;
    uint callNotice_ = 0;    // the notification of the call on the line
    bool callWaits_ = false; // and it offers to pick up
    std::set<uint> messageNotices_;
    bool failureLogged_ = false;
};

} // namespace corvel
