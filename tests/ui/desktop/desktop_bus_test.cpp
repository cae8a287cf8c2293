// A headless Corvel on the test's own session bus (the test runs under dbus-run-session),
// beside a notification server of the test's own: the notifications a test-line call raises,
// their actions, and Corvel's D-Bus API as another program uses it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <fstream>
#include <iterator>
#include <functional>

#include "ui/desktop/notification_server.h"

namespace corvel {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;

using testing::NotificationServer;

constexpr const char* service = "org.corvel.Corvel";

// Runs the event loop until `done` holds or `seconds` pass; whether it held.
bool waitFor(const std::function<bool()>& done, int seconds = 20)
{
    const QDeadlineTimer deadline(seconds * 1000);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    }
    return true;
}

// The signals Corvel sends on the bus, each as its name and arguments.
class SignalLog final : public QObject {
    Q_OBJECT

public:
    SignalLog()
    {
        for (const char* name :
             {"Ringing", "CallerId", "CallerWaiting", "CallBlocked", "CallEnded", "MessageRecorded", "CountsChanged"})
            QDBusConnection::sessionBus().connect(service, "/org/corvel/Corvel", "org.corvel.Corvel", name, this,
                                                  SLOT(heard(QDBusMessage)));
    }
    bool has(const QString& text) const { return seen.contains(text); }
    QStringList seen;

public slots:
    void heard(const QDBusMessage& message)
    {
        QStringList arguments;
        for (const QVariant& argument : message.arguments()) arguments << argument.toString();
        seen << message.member() + "(" + arguments.join(", ") + ")";
    }
};

class DesktopBusTest : public ::testing::Test {
protected:
    ~DesktopBusTest() override
    {
        corvel_.terminate();
        if (!corvel_.waitForFinished(10000)) corvel_.kill();
        if (HasFailure()) std::cerr << corvel_.readAll().toStdString() << "settings:\n" << std::ifstream((folders_.path() + "/corvel.conf").toStdString()).rdbuf();
    }

    // Starts Corvel on the test line with `data` settings besides the test's: calls answered on
    // the second ring, every prompt a short sound.
    void start(const std::map<std::string, std::string>& data = {})
    {
        const QString root = folders_.path();
        {
            std::ofstream conf((root + "/corvel.conf").toStdString());
            conf << "[withheld/data]\nrings=2\nmodem=0\n";
            for (const auto& [key, value] : data) conf << key << "=" << value << "\n";
            conf << "[withheld/audio]\n";
            for (const char* prompt : {"morning", "afternoon", "evening", "number", "nobody", "leavemessage", "connect"})
                conf << prompt << "=" << (root + "/data/space.wav").toStdString() << "\n";
        }
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        // A runtime folder of its own: Corvels of tests running side by side must not find one another.
        for (const char* folder : {"XDG_CACHE_HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR", "HOME"}) {
            QDir().mkpath(root + "/" + QString(folder).toLower());
            environment.insert(folder, root + "/" + QString(folder).toLower());
        }
        QFile::setPermissions(root + "/xdg_runtime_dir", QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        environment.insert("QT_QPA_PLATFORM", "offscreen");
        corvel_.setProcessEnvironment(environment);
        corvel_.setProcessChannelMode(QProcess::MergedChannels);
        corvel_.start(CORVEL_BINARY, {"--headless", "--line", "test", "--config-dir", root, "--data-dir", root + "/data",
                                      "--web-site", "http://127.0.0.1:9/"});
        ASSERT_TRUE(waitFor([] { return QDBusConnection::sessionBus().interface()->isServiceRegistered(service).value(); }, 30))
            << "Corvel did not come onto the bus";
    }

    static QDBusMessage call(const QString& path, const QString& interface, const QString& method,
                             const QVariantList& arguments = {})
    {
        QDBusMessage message = QDBusMessage::createMethodCall(service, path, interface, method);
        message.setArguments(arguments);
        return QDBusConnection::sessionBus().call(message);
    }
    static QDBusMessage corvel(const QString& method) { return call("/org/corvel/Corvel", "org.corvel.Corvel", method); }
    static QDBusMessage caller(const QString& method, const QVariantList& arguments = {})
    {
        return call("/org/corvel/Corvel/TestLine", "org.corvel.Corvel.TestLine", method, arguments);
    }
    static QVariantMap status() { return QDBusReply<QVariantMap>(corvel("Status")).value(); }
    static QVariant lineProperty(const QString& name)
    {
        const QDBusMessage reply = call("/org/corvel/Corvel/TestLine", "org.freedesktop.DBus.Properties", "Get",
                                        {"org.corvel.Corvel.TestLine", name});
        return reply.arguments().isEmpty() ? QVariant() : reply.arguments()[0].value<QDBusVariant>().variant();
    }
    static bool handedOver() { return lineProperty("HandedOver").toBool(); }
    static QString lineState() { return lineProperty("State").toString(); }
    static bool inPhase(const QString& phase) { return status()["phase"].toString() == phase; }

    // A caller, withheld unless told, who keys "3" as their number and waits to be put through.
    void callerWaits(NotificationServer* server = nullptr, const QVariantList& identity = {"withheld", "", ""})
    {
        ASSERT_EQ(caller("Ring", identity).type(), QDBusMessage::ReplyMessage);
        ASSERT_TRUE(waitFor([] { return inPhase("asking-number"); }));
        caller("PressKeys", {"3#"});
        ASSERT_TRUE(waitFor([] { return inPhase("putting-through"); }));
        if (server) {
            ASSERT_TRUE(waitFor([&] { return server->find("Caller waiting"); }));
        }
    }

    // Runs "corvel ARGUMENTS" beside the running one, as a user does; its exit code. It has a
    // runtime folder of its own, so that the local socket cannot reach Corvel: only the bus can.
    int runCorvel(const QStringList& arguments)
    {
        QProcess request;
        QProcessEnvironment elsewhere = corvel_.processEnvironment();
        elsewhere.insert("XDG_RUNTIME_DIR", folders_.path());
        request.setProcessEnvironment(elsewhere);
        request.start(CORVEL_BINARY, arguments);
        return request.waitForFinished(10000) ? request.exitCode() : -1;
    }

    QTemporaryDir folders_;
    QProcess corvel_;
};

TEST_F(DesktopBusTest, ThePickUpActionOfTheWaitingNoticeHandsTheCallerOver)
{
    NotificationServer server;
    SignalLog told;
    start();
    const QVariantMap idle = status();
    EXPECT_EQ(idle["line"].toString(), "Test line");
    EXPECT_TRUE(idle["line-open"].toBool());
    EXPECT_EQ(idle["phase"].toString(), "idle");

    callerWaits(&server);
    // One notice for the call, told again as the caller becomes known and then waits.
    ASSERT_EQ(server.sent.size(), 3u);
    const uint notice = server.sent[0].id;
    EXPECT_EQ(server.sent[0].summary, "Incoming call");
    EXPECT_EQ(server.sent[0].body, "Withheld");
    EXPECT_TRUE(server.sent[0].hints["image-path"].toString().endsWith("/data/withheld.gif"));
    EXPECT_EQ(server.sent[1].body, "3") << "the number the caller keyed";
    EXPECT_EQ(server.sent[1].replaces, notice);
    const auto* waiting = server.find("Caller waiting");
    EXPECT_EQ(waiting->replaces, notice);
    EXPECT_EQ(waiting->body, "3");
    EXPECT_THAT(waiting->actions, ElementsAre("pick-up", "Pick up", "take-message", "Take a message"));
    EXPECT_EQ(status()["caller"].toString(), "3");

    server.invoke(waiting->id, "pick-up");
    EXPECT_TRUE(waitFor(handedOver));
    EXPECT_TRUE(waitFor([&] { return told.has("CallEnded()"); }));
    EXPECT_THAT(server.closed, Contains(waiting->id)) << "a notice whose caller is gone";
    EXPECT_TRUE(told.has("Ringing(, )"));
    EXPECT_TRUE(told.has("CallerId(Withheld, Withheld)"));
    EXPECT_TRUE(told.has("CallerId(3, 3)"));
    EXPECT_TRUE(told.has("CallerWaiting(3)"));
    EXPECT_TRUE(told.has("CountsChanged(1, 0, 0, 0)"));
    EXPECT_EQ(status()["phase"].toString(), "idle");
}

TEST_F(DesktopBusTest, AMessageTakenOverTheBusIsToldAndPlayedFromItsNotice)
{
    NotificationServer server;
    SignalLog told;
    start({{"allcalls", "True"}});
    callerWaits(&server, {"number", "01632 960123", "<b>Ann</b>"});
    EXPECT_EQ(server.sent[0].body, "&lt;b&gt;Ann&lt;/b&gt;\n01632 960123") << "markup shown as text";

    corvel("TakeMessage");
    ASSERT_TRUE(waitFor([] { return inPhase("taking-message"); }));
    caller("PressKeys", {"1"});
    ASSERT_TRUE(waitFor([] { return lineState() == "recording"; }));
    caller("HangUp"); // the recording so far is kept
    ASSERT_TRUE(waitFor([&] { return server.find("New message"); }));
    const auto* message = server.find("New message");
    EXPECT_EQ(message->body, "From 3");
    EXPECT_THAT(message->actions, ElementsAre("play", "Play"));
    EXPECT_EQ(told.seen.filter("MessageRecorded(").size(), 1);
    EXPECT_TRUE(waitFor([&] { return told.has("CountsChanged(1, 1, 0, 0)"); }));

    server.invoke(message->id, "play");
    EXPECT_TRUE(waitFor([&] { return told.has("CountsChanged(1, 0, 1, 0)"); })) << "the message was heard";
}

TEST_F(DesktopBusTest, WithNotificationsOffNothingIsSentAndTheCommandLinePicksUp)
{
    NotificationServer server;
    start({{"notifications", "False"}});
    callerWaits();
    EXPECT_EQ(runCorvel({"--pick-up"}), 0);
    EXPECT_TRUE(waitFor(handedOver));
    EXPECT_TRUE(server.sent.empty());
}

TEST_F(DesktopBusTest, TheBlockListIsKeptOverTheBusAndABlockedCallerIsTold)
{
    NotificationServer server;
    SignalLog told;
    start();
    EXPECT_EQ(runCorvel({"--block", "01632-960123"}), 0);
    EXPECT_TRUE(QDBusReply<bool>(call("/org/corvel/Corvel", "org.corvel.Corvel", "Block", {"0870*", "sales"})).value());
    EXPECT_FALSE(QDBusReply<bool>(call("/org/corvel/Corvel", "org.corvel.Corvel", "Block", {"", ""})).value());

    caller("Ring", {"number", "01632 960123", "Dialler"});
    ASSERT_TRUE(waitFor([&] { return server.find("Call blocked"); }));
    EXPECT_EQ(server.find("Call blocked")->body, "01632 960123");
    EXPECT_EQ(server.find("Incoming call"), nullptr) << "a blocked caller is not announced";
    EXPECT_TRUE(waitFor([&] { return told.has("CallBlocked(01632 960123)"); }));
    EXPECT_EQ(status()["blocked-calls"].toInt(), 1);

    EXPECT_EQ(runCorvel({"--unblock", "01632960123"}), 0);
    EXPECT_EQ(runCorvel({"--unblock", "01632960123"}), 1) << "no longer on the list";
    std::ifstream list((folders_.path() + "/data/blocklist.txt").toStdString());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(list), {}), "0870*,sales\r\n");
}

TEST_F(DesktopBusTest, TheDirectoryPicturesAndOptionsAreKeptOverTheBusAndBadArgumentsRefused)
{
    start();
    const auto ask = [&](const QString& method, const QVariantList& arguments = {}) {
        return call("/org/corvel/Corvel", "org.corvel.Corvel", method, arguments);
    };
    const auto refused = [&](const QString& method, const QVariantList& arguments) {
        const QDBusMessage reply = ask(method, arguments);
        return reply.type() == QDBusMessage::ErrorMessage && reply.errorName() == "org.freedesktop.DBus.Error.InvalidArgs";
    };
    const QString data = folders_.path() + "/data/";
    const auto file = [&](const char* name) {
        std::ifstream in((data + name).toStdString(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    EXPECT_EQ(ask("SetDirectoryEntry", {"01632 960123", "Ann"}).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(ask("SetCallerPicture", {"01632960123", data + "default.gif"}).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(ask("SetOption", {"messagecommand", "notify-send \\x"}).type(), QDBusMessage::ReplyMessage);

    EXPECT_TRUE(refused("SetDirectoryEntry", {" - ", "Eve"}));
    EXPECT_TRUE(refused("SetDirectoryEntry", {QString(100, '1'), "Eve"}));
    EXPECT_TRUE(refused("SetCallerPicture", {"../01632960123", data + "default.gif"}));
    EXPECT_TRUE(refused("SetCallerPicture", {"0123", "default.gif"})) << "not a whole path";
    EXPECT_TRUE(refused("SetCallerPicture", {"0123", data}));
    EXPECT_TRUE(refused("SetOption", {"rings]\n[x", "1"}));
    EXPECT_TRUE(refused("SetOption", {"rings", "1\n[withheld/audio]"}));
    EXPECT_EQ(file("directory.ini"), "01632960123,Ann\r\n");
    EXPECT_EQ(file("piclist.txt"), "01632960123\r\n");
    EXPECT_EQ(file("01632960123.gif"), file("default.gif"));
    std::ifstream conf((folders_.path() + "/corvel.conf").toStdString());
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(conf), {}), ::testing::HasSubstr("messagecommand=notify-send \\x\n"));

    EXPECT_TRUE(QDBusReply<bool>(ask("RemoveDirectoryEntry", {"01632960123"})).value());
    EXPECT_FALSE(QDBusReply<bool>(ask("RemoveDirectoryEntry", {"01632960123"})).value());
    EXPECT_TRUE(QDBusReply<bool>(ask("RemoveCallerPicture", {"01632960123"})).value());
    EXPECT_FALSE(QDBusReply<bool>(ask("PlayNewMessage")).value()) << "no new message to play";
    EXPECT_EQ(file("directory.ini") + file("piclist.txt"), "");
    EXPECT_EQ(status()["phase"].toString(), "idle");
}

TEST_F(DesktopBusTest, WithoutANotificationServerTheLogSaysSoOnce)
{
    start();
    callerWaits();
    corvel("HangUp");
    ASSERT_TRUE(waitFor([] { return inPhase("idle"); }));
    corvel_.terminate();
    ASSERT_TRUE(corvel_.waitForFinished(10000));
    EXPECT_EQ(QString(corvel_.readAll()).count("no desktop notification server"), 1);
}

} // namespace
} // namespace corvel

#include "desktop_bus_test.moc"

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
