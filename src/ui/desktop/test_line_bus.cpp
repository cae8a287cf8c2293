#include "ui/desktop/test_line_bus.h"

#include <QDBusConnection>
#include <QDBusMessage>

#include "base/log.h"
#include "test_line_adaptor.h"

namespace corvel {

TestLineBus::TestLineBus(TestLine& line) : line_(line) { new TestLineAdaptor(this); }

bool TestLineBus::publish() { return QDBusConnection::sessionBus().registerObject(objectPath, this); }

QString TestLineBus::state() const
{
    if (line_.recording()) return "recording";
    return line_.callActive() ? "connected" : line_.ringing() ? "ringing" : line_.lineOpen() ? "idle" : "closed";
}

void TestLineBus::Ring(const QString& identity, const QString& number, const QString& name)
{
    const auto caller = ScriptedCall::identityNamed(identity.toStdString());
    if (!caller) {
        sendErrorReply(QDBusError::InvalidArgs, "the caller ID is number, withheld, unavailable or none");
        return;
    }
    if (!line_.lineOpen()) {
        sendErrorReply(QDBusError::Failed, "the test line is not open");
        return;
    }
    line_.placeCall(ScriptedCall::played(*caller, number.toStdString(), name.toStdString()));
}

void TestLineBus::PressKeys(const QString& keys)
{
    for (const QChar key : keys) line_.pressKey(key.toLatin1());
}

void TestLineBus::HangUp() { line_.hangUp(); }

} // namespace corvel
