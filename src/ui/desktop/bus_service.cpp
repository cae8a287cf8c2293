#include "ui/desktop/bus_service.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include "base/log.h"
#include "corvel_adaptor.h"

namespace corvel {
namespace {

QString fromText(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

} // namespace

BusService::BusService(const Line& line, const CallState& call, CallHandling& handling, const NewCalls& newCalls,
                       const MessageStore& messages, CallEventFollowers& events)
    : line_(line), call_(call), handling_(handling), newCalls_(newCalls), messages_(messages), events_(events)
{
    new CorvelAdaptor(this); // owned by this object; relays its signals to the bus
    events_.add(*this);
}

BusService::~BusService() { events_.remove(*this); }

bool BusService::publish()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        log::info("no session bus: Corvel offers no D-Bus service");
        return false;
    }
    if (!bus.registerObject(objectPath, this) || !bus.registerService(serviceName)) {
        log::warning("the D-Bus name " + std::string(serviceName) + " is taken: " + bus.lastError().message().toStdString());
        return false;
    }
    log::info("on the session bus as " + std::string(serviceName));
    return true;
}

bool BusService::ask(const QString& method)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(serviceName)) return false;
    const QDBusMessage reply =
        bus.call(QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, method), QDBus::Block, 10000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        log::error("Corvel did not take the request: " + reply.errorMessage().toStdString());
        return false;
    }
    return true;
}

// The requests run after the reply has gone: each may wait on the call for many seconds.
void BusService::PickUp()
{
    QMetaObject::invokeMethod(this, [this] { handling_.takeCall(); }, Qt::QueuedConnection);
}

void BusService::HangUp()
{
    QMetaObject::invokeMethod(this, [this] { handling_.hangUp(); }, Qt::QueuedConnection);
}

void BusService::TakeMessage()
{
    QMetaObject::invokeMethod(this, [this] { handling_.takeMessage(); }, Qt::QueuedConnection);
}

QVariantMap BusService::Status() const
{
    const auto [newCalls, newMessages, oldMessages] = counts();
    return {{"line", fromText(line_.deviceName())},
            {"line-open", line_.lineOpen()},
            {"phase", phase()},
            {"caller", caller_},
            {"new-calls", newCalls},
            {"new-messages", newMessages},
            {"old-messages", oldMessages}};
}

QString BusService::phase() const
{
    switch (call_.callphase) {
    case CallPhase::Interrogating: return "asking-number";
    case CallPhase::PuttingThrough: return "putting-through";
    case CallPhase::TakingMessage: return "taking-message";
    case CallPhase::Idle: break;
    }
    return ringing_ ? "ringing" : "idle";
}

std::array<int, 3> BusService::counts() const
{
    return {newCalls_.newCallCount(), messages_.count(MessageStore::Kind::New), messages_.count(MessageStore::Kind::Old)};
}

void BusService::ringing(std::int32_t)
{
    ringing_ = true;
    emit Ringing(caller_, said_);
}

void BusService::callerAnnounced(const AnnouncedCaller& caller)
{
    caller_ = fromText(caller.caller);
    said_ = fromText(caller.said);
    emit CallerId(caller_, said_);
}

void BusService::callerWaiting(std::string_view caller)
{
    emit CallerWaiting(fromText(caller));
}

void BusService::messageRecorded(const std::filesystem::path& file, std::string_view caller)
{
    emit MessageRecorded(QString::fromStdString(file.string()), fromText(caller));
}

void BusService::callEnded()
{
    ringing_ = false;
    caller_.clear();
    said_.clear();
    emit CallEnded();
}

void BusService::countsChanged()
{
    const auto now = counts();
    if (now == toldCounts_) return; // both counters are drawn each time; one signal for a change
    toldCounts_ = now;
    emit CountsChanged(now[0], now[1], now[2]);
}

} // namespace corvel
