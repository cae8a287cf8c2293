#pragma once

#include <QDBusContext>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <array>
#include <optional>

#include "app/blocking.h"
#include "base/call_events.h"
#include "base/settings_store.h"
#include "messages/message_playback.h"
#include "messages/message_store.h"
#include "records/blocked_calls.h"
#include "records/caller_pictures.h"
#include "records/directory.h"
#include "records/new_calls.h"
#include "telephony/call_handling.h"
#include "telephony/call_state.h"
#include "telephony/line.h"

namespace corvel {

// Corvel on the session bus, for other programs and the command line: what the line is doing
// and the counts, the user's pick-up, hang-up and take-a-message, the block list, directory,
// caller pictures and options, playing a new message, and a signal for each event of a call.
// Its interface is org.corvel.Corvel.xml; the adaptor is made from that file.
class BusService final : public QObject, protected QDBusContext, private CallEvents {
    Q_OBJECT

public:
    static constexpr const char* serviceName = "org.corvel.Corvel";
    static constexpr const char* objectPath = "/org/corvel/Corvel";
    static constexpr const char* interfaceName = "org.corvel.Corvel";

    // What the service reports on and acts through, each by name.
    struct Collaborators {
        const Line& line;
        const CallState& call;
        CallHandling& handling;
        Blocking& blocking;
        const NewCalls& newCalls;
        const MessageStore& messages;
        const BlockedCalls& blockedCalls;
        Directory& directory;
        CallerPictures& pictures;
        SettingsStore& settings;
        MessagePlayback& playback;
        CallEventFollowers& events;
    };

    explicit BusService(Collaborators with);
    ~BusService() override;

    // Puts the service on the session bus; false, with a log line, when there is no bus or
    // another program holds the name.
    bool publish();

    // Asks the Corvel on the session bus to run `method` with `arguments`: whether it was done,
    // or nothing when there is no Corvel on the bus to ask.
    static std::optional<bool> ask(const QString& method, const QVariantList& arguments = {});

public slots:
    void PickUp();
    void HangUp();
    void TakeMessage();
    QVariantMap Status() const;
    bool Block(const QString& number, const QString& note);
    bool Unblock(const QString& number);
    bool BlockLastCaller();
    void SetDirectoryEntry(const QString& number, const QString& name);
    bool RemoveDirectoryEntry(const QString& number);
    void SetCallerPicture(const QString& number, const QString& picture);
    bool RemoveCallerPicture(const QString& number);
    void SetOption(const QString& key, const QString& value);
    bool PlayNewMessage();

signals:
    void Ringing(const QString& number, const QString& name);
    void CallerId(const QString& caller, const QString& name);
    void CallerWaiting(const QString& caller);
    void CallBlocked(const QString& caller);
    void CallEnded();
    void MessageRecorded(const QString& file, const QString& caller);
    void CountsChanged(int newCalls, int newMessages, int oldMessages, int blockedCalls);

private:
    void ringing(std::int32_t count) override;
    void callerAnnounced(const AnnouncedCaller& caller) override;
    void callerWaiting(std::string_view caller) override;
    void messageRecorded(const std::filesystem::path& file, std::string_view caller) override;
    void callBlocked(std::string_view caller) override;
    void callEnded() override;
    void countsChanged() override;

    // Answers the request on the bus with an error: the arguments were refused, or it failed.
    void refuse(const QString& why);
    void failed(const QString& what);

    std::array<int, 4> counts() const;
    QString phase() const;

    Collaborators with_;
    bool ringing_ = false; // a call rings that is not answered (yet)
    QString caller_;       // the caller of the call on the line, as announced
    QString said_;
    std::array<int, 4> toldCounts_{-1, -1, -1, -1};
};

} // namespace corvel
