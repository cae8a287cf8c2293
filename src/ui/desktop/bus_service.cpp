#include "ui/desktop/bus_service.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include <algorithm>
#include <filesystem>

#include "base/log.h"
#include "base/text.h"
#include "base/utf8.h"
#include "corvel_adaptor.h"

namespace corvel {
namespace {

constexpr qsizetype maxKeyLength = 64;
constexpr std::size_t maxValueBytes = 1000;

QString fromText(std::string_view text) { return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())); }

// A settings key the file keeps on a line of its own: letters, digits, "_", "-" and ".".
bool plainKey(const QString& key)
{
    return !key.isEmpty() && key.size() <= maxKeyLength && std::all_of(key.begin(), key.end(), [](QChar c) {
               return (c.isLetterOrNumber() && c.unicode() < 128) || c == '_' || c == '-' || c == '.';
           });
}

// A value that reads back as one line: whole UTF-8 with nothing that breaks or turns text round.
bool oneLine(std::string_view value)
{
    if (value.size() > maxValueBytes) return false;
    for (std::size_t at = 0; at < value.size();) {
        const Utf8Character character = utf8At(value, at);
        if (character.length == 0 || breaksText(character.value)) return false;
        at += character.length;
    }
    return true;
}

} // namespace

BusService::BusService(Collaborators with) : with_(with)
{
    new CorvelAdaptor(this); // owned by this object; relays its signals to the bus
    with_.events.add(*this);
}

BusService::~BusService() { with_.events.remove(*this); }

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

std::optional<bool> BusService::ask(const QString& method, const QVariantList& arguments)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(serviceName)) return std::nullopt;
    QDBusMessage request = QDBusMessage::createMethodCall(serviceName, objectPath, interfaceName, method);
    request.setArguments(arguments);
    const QDBusMessage reply = bus.call(request, QDBus::Block, 10000);
    if (reply.type() == QDBusMessage::ErrorMessage) {
        log::error("Corvel did not take the request: " + reply.errorMessage().toStdString());
        return false;
    }
    // A request that answers whether it was done (blocking a number) may have been refused.
    return reply.arguments().isEmpty() || reply.arguments().constFirst().toBool();
}

// The requests run after the reply has gone: each may wait on the call for many seconds.
void BusService::PickUp()
{
    QMetaObject::invokeMethod(this, [this] { with_.handling.takeCall(); }, Qt::QueuedConnection);
}

void BusService::HangUp()
{
    QMetaObject::invokeMethod(this, [this] { with_.handling.hangUp(); }, Qt::QueuedConnection);
}

void BusService::TakeMessage()
{
    QMetaObject::invokeMethod(this, [this] { with_.handling.takeMessage(); }, Qt::QueuedConnection);
}

bool BusService::Block(const QString& number, const QString& note)
{
    return with_.blocking.block(number.toStdString(), note.toStdString());
}

bool BusService::Unblock(const QString& number) { return with_.blocking.unblock(number.toStdString()); }

bool BusService::BlockLastCaller() { return with_.blocking.blockLastCaller(); }

void BusService::SetDirectoryEntry(const QString& number, const QString& name)
{
    if (!Directory::entryNumber(number.toStdString())) return refuse("\"" + number.left(80) + "\" is no telephone number");
    if (!with_.directory.set(number.toStdString(), name.toStdString())) failed("The directory could not be written");
}

bool BusService::RemoveDirectoryEntry(const QString& number) { return with_.directory.remove(number.toStdString()); }

void BusService::SetCallerPicture(const QString& number, const QString& picture)
{
    if (!CallerPictures::listedNumber(number.toStdString()))
        return refuse("\"" + number.left(80) + "\" is no telephone number that can name a picture");
    const std::filesystem::path file = picture.toStdString();
    std::error_code error;
    if (!file.is_absolute() || !std::filesystem::is_regular_file(file, error))
        return refuse("\"" + picture.left(200) + "\" is no picture file: give the whole path of one");
    if (!with_.pictures.set(number.toStdString(), file)) failed("The picture could not be copied in");
}

bool BusService::RemoveCallerPicture(const QString& number) { return with_.pictures.remove(number.toStdString()); }

void BusService::SetOption(const QString& key, const QString& value)
{
    if (!plainKey(key)) return refuse("\"" + key.left(80) + "\" is no option name: letters, digits, \"_\", \"-\" and \".\"");
    const std::string text = value.toStdString();
    if (!oneLine(text)) return refuse("the value of " + key + " is not one line of text of at most 1000 bytes");
    settings::writeData(with_.settings, key.toStdString(), text);
}

// Synchronous, so that the reply says whether a message was filed.
bool BusService::PlayNewMessage() { return with_.playback.playNew(); }

void BusService::refuse(const QString& why)
{
    log::warning("refused a request on the bus: " + text::fromLine(why.toStdString(), 400));
    sendErrorReply(QDBusError::InvalidArgs, why);
}

void BusService::failed(const QString& what) { sendErrorReply(QDBusError::Failed, what + "; the log says why"); }

QVariantMap BusService::Status() const
{
    const auto [newCalls, newMessages, oldMessages, blockedCalls] = counts();
    return {{"line", fromText(with_.line.deviceName())},
            {"line-open", with_.line.lineOpen()},
            {"phase", phase()},
            {"caller", caller_},
            {"new-calls", newCalls},
            {"new-messages", newMessages},
            {"old-messages", oldMessages},
            {"blocked-calls", blockedCalls}};
}

QString BusService::phase() const
{
    switch (with_.call.callphase) {
    case CallPhase::Interrogating: return "asking-number";
    case CallPhase::PuttingThrough: return "putting-through";
    case CallPhase::TakingMessage: return "taking-message";
    case CallPhase::Idle: break;
    }
    return ringing_ ? "ringing" : "idle";
}

std::array<int, 4> BusService::counts() const
{
    return {with_.newCalls.newCallCount(), with_.messages.count(MessageStore::Kind::New),
            with_.messages.count(MessageStore::Kind::Old), with_.blockedCalls.count()};
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

void BusService::callBlocked(std::string_view caller) { emit CallBlocked(fromText(caller)); }

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
    emit CountsChanged(now[0], now[1], now[2], now[3]);
}

} // namespace corvel
