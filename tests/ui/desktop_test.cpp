// The tray icon, the splash and the one-Corvel-a-user lock.

#include <gtest/gtest.h>

#include "support/qt_application.h"

#include <sys/wait.h>
#include <unistd.h>

#include <QFile>
#include <QLabel>
#include <QPointer>
#include <QSignalSpy>
#include <QSysInfo>
#include <QTest>

#include "app/answer_phone.h"
#include "base/log.h"
#include "ui/single_instance.h"
#include "ui/splash_window.h"
#include "ui/tray_icon.h"

namespace corvel {
namespace {

using namespace std::chrono_literals;

class DesktopTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { testing::ensureQApplication(); }
};

TEST_F(DesktopTest, WithoutANotificationAreaTheMenuIsBuiltAndTheLackToldOnce)
{
    std::vector<std::string> lines;
    log::setSink([&](log::Level, std::string_view line) { lines.emplace_back(line); });
    TrayIcon tray;
    QStringList chosen;
    QObject::connect(&tray, &TrayIcon::chosen, [&](const QString& key) { chosen << key; });
    tray.show({{"Open & go", "open"}, {"-", ""}, {"Exit", "exit"}}, "tip");
    tray.show({{"Exit", "exit"}}, "tip");
    log::setSink({});
    ASSERT_FALSE(QSystemTrayIcon::isSystemTrayAvailable()) << "the offscreen platform has no tray";
    EXPECT_FALSE(tray.visible());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("no system tray: the tray icon is not shown"), std::string::npos);

    tray.show({{"Open & go", "open"}, {"-", ""}, {"Exit", "exit"}}, "tip");
    const QList<QAction*> actions = tray.menu()->actions();
    ASSERT_EQ(actions.size(), 3);
    EXPECT_EQ(actions[0]->text(), "Open && go") << "an ampersand is shown, not taken as a shortcut";
    EXPECT_TRUE(actions[1]->isSeparator());
    actions[2]->trigger();
    EXPECT_EQ(chosen, QStringList{"exit"});
}

// The menu handed to the notification area's icon, as the answer phone fills it at start.
TEST_F(DesktopTest, TheTrayMenuHasTheAnswerPhonesCaptionsAndKeys)
{
    TrayIcon tray;
    QStringList keys;
    QObject::connect(&tray, &TrayIcon::chosen, [&](const QString& key) { keys << key; });
    tray.show(AnswerPhone::trayMenu(), "Corvel, version " CORVEL_VERSION);
    QStringList captions;
    for (QAction* action : tray.menu()->actions()) {
        captions << (action->isSeparator() ? "-" : action->text());
        if (!action->isSeparator()) action->trigger();
    }
    EXPECT_EQ(captions, QStringList({"-= Menu =-", "-", "Minimise", "-", "Maximise", "-", "Block last caller", "-",
                                     "About Corvel", "-", "Exit Corvel"}));
    EXPECT_EQ(keys, QStringList({"menu", "min", "max", "blocklast", "about", "exit"}));
}

TEST_F(DesktopTest, TheSplashShowsTheVersionAndGoesAwayBeforeWhatFollows)
{
    SplashWindow splash;
    EXPECT_EQ(splash.findChild<QLabel*>("lab_version")->text(), "Version " CORVEL_VERSION);

    bool followed = false;
    SplashWindow::showFor(0ms, [&] { followed = true; });
    QPointer<QWidget> shown;
    for (QWidget* top : QApplication::topLevelWidgets())
        if (top->objectName() == "frm_splash" && top->isVisible()) shown = top;
    ASSERT_FALSE(shown.isNull());
    EXPECT_TRUE(QTest::qWaitFor([&] { return followed; }));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(shown.isNull()) << "the splash deletes itself";
}

class SingleInstanceTest : public DesktopTest {
protected:
    const QString key = QString("corvel-test-%1").arg(::getpid());
    void TearDown() override
    {
        QFile::remove(SingleInstance(key).lockPath());
    }
};

TEST_F(SingleInstanceTest, ALaterStartIsTurnedAwayAndTheFirstIsTold)
{
    SingleInstance first(key);
    ASSERT_TRUE(first.isFirst());
    QSignalSpy told(&first, &SingleInstance::requested);

    SingleInstance second(key);
    EXPECT_FALSE(second.isFirst());
    EXPECT_FALSE(second.isFirst()) << "decided once";
    ASSERT_TRUE(told.wait(5000) || told.count() == 1);
    EXPECT_EQ(told.takeFirst().at(0).toString(), "show");
    EXPECT_TRUE(first.isFirst());

    // The user's requests from the command line reach the running one, a line at a time.
    EXPECT_TRUE(SingleInstance(key).tell("pick-up"));
    ASSERT_TRUE(told.wait(5000) || told.count() == 1);
    EXPECT_EQ(told.takeFirst().at(0).toString(), "pick-up");
}

TEST_F(SingleInstanceTest, ARequestWithNobodyRunningIsNotDelivered)
{
    EXPECT_FALSE(SingleInstance(key).tell("hang-up"));
}

TEST_F(SingleInstanceTest, ALockLeftByADeadProcessIsTakenOverButALiveOneIsKept)
{
    // A process that has ended, whose number is free: as if Corvel had crashed holding the lock.
    const pid_t gone = ::fork();
    if (gone == 0) ::_exit(0);
    ::waitpid(gone, nullptr, 0);
    const QString lock = SingleInstance(key).lockPath();
    {
        QFile file(lock);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray::number(gone) + "\ncorvel\n" + QSysInfo::machineHostName().toUtf8() + "\n");
    }
    const auto longAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(2);
    std::filesystem::last_write_time(lock.toStdString(), longAgo);
    // And the socket it listened on, left behind.
    QFile(SingleInstance(key).socketPath()).open(QIODevice::WriteOnly);

    SingleInstance restarted(key);
    ASSERT_TRUE(restarted.isFirst());
    QSignalSpy told(&restarted, &SingleInstance::requested);

    // Running for hours does not make the lock stale while its holder lives.
    std::filesystem::last_write_time(lock.toStdString(), longAgo);
    SingleInstance later(key);
    EXPECT_FALSE(later.isFirst());
    EXPECT_TRUE(told.wait(5000) || told.count() == 1) << "the socket was taken over too";
}

} // namespace
} // namespace corvel
