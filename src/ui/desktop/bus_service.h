#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <array>

#include "base/call_events.h"
#include "messages/message_store.h"
#include "records/new_calls.h"
#include "telephony/call_handling.h"
#include "telephony/call_state.h"
#include "telephony/line.h"

namespace corvel {

// Corvel on the session bus, for other programs and the command line: what the line is doing
// and the counts, the user's pick-up, hang-up and take-a-message, and a signal for each event
// of a call. Its interface is org.corvel.Corvel.xml; the adaptor is made from that file.
class BusService final : public QObject, private CallEvents {
    Q_OBJECT

public:
    static constexpr const char* serviceName = "org.corvel.Corvel";
    static constexpr const char* objectPath = "/org/corvel/Corvel";
    static constexpr const char* interfaceName = "org.corvel.Corvel";

    BusService(const Line& line, const CallState& call, CallHandling& handling, const NewCalls& newCalls,
               const MessageStore& messages, CallEventFollowers& events);
    ~BusService() override;

    // Puts the service on the session bus; false, with a log line, when there is no bus or
    // another program holds the name.
    bool publish();

    // Asks the Corvel on the session bus to run `method`; false when there is none to ask.
    static bool ask(const QString& method);

public slots:
    void PickUp();
    void HangUp();
    void TakeMessage();
    QVariantMap Status() const;

signals:
    void Ringing(const QString& number, const QString& name);
    void CallerId(const QString& caller, const QString& name);
    void CallerWaiting(const QString& caller);
    void CallEnded();
    void MessageRecorded(const QString& file, const QString& caller);
    void CountsChanged(int newCalls, int newMessages, int oldMessages);

private:
    void ringing(std::int32_t count) override;
    void callerAnnounced(const AnnouncedCaller& caller) override;
    void callerWaiting(std::string_view caller) override;
    void messageRecorded(const std::filesystem::path& file, std::string_view caller) override;
    void callEnded() override;
    void countsChanged() override;

    std::array<int, 3> counts() const;
    QString phase() const;

    const Line& line_;
    const CallState& call_;
    CallHandling& handling_;
    const NewCalls& newCalls_;
    const MessageStore& messages_;
    CallEventFollowers& events_;
    bool ringing_ = false; // a call rings that is not answered (yet)
    QString caller_;       // the caller of the call on the line, as announced
    QString said_;
    std::array<int, 3> toldCounts_{-1, -1, -1};
};

} // namespace corvel
