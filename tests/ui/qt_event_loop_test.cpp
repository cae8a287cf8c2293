#include "ui/qt_event_loop.h"

#include <gtest/gtest.h>

#include "support/qt_application.h"

#include <QApplication>
#include <QTime>

#include <unistd.h>

#include "base/log.h"
#include "support/ignoring_line_events.h"
#include "support/wave_files.h"
#include "telephony/testline/test_line.h"
#include "ui/main_window.h"
#include "ui/qt_sound_output.h"

namespace corvel {
namespace {

using namespace std::chrono_literals;

class QtTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { testing::ensureQApplication(); }

    QtEventLoop loop;
};

TEST_F(QtTest, YieldSleepsUntilAnEventInsteadOfSpinning)
{
    bool fired = false;
    auto timer = loop.createTimer([&] { fired = true; }, TimerKind::SingleShot);
    timer->setInterval(300ms);
    timer->setEnabled(true);
    int turns = 0;
    while (!fired) {
        loop.yield();
        ++turns;
    }
    EXPECT_LT(turns, 20) << "a spinning wait would have turned thousands of times";
    EXPECT_FALSE(timer->enabled());
}

TEST_F(QtTest, TimerHandlerThatWaitsIsNotEnteredAgain)
{
    int depth = 0;
    int deepest = 0;
    int calls = 0;
    auto timer = loop.createTimer(
        [&] {
            ++calls;
            deepest = std::max(deepest, ++depth);
            if (calls == 1) { // a wait inside the handler, as standby's pause does
                bool woken = false;
                auto wake = loop.createTimer([&] { woken = true; }, TimerKind::SingleShot);
                wake->setInterval(200ms);
                wake->setEnabled(true);
                while (!woken) loop.yield();
            }
            --depth;
        },
        TimerKind::Repeating);
    timer->setInterval(20ms);
    timer->setEnabled(true);
    while (calls < 3) loop.yield();
    EXPECT_EQ(deepest, 1);
}

TEST_F(QtTest, IntervalZeroStopsTheTimerAndPostedTasksRunLater)
{
    int ticks = 0;
    auto timer = loop.createTimer([&] { ++ticks; }, TimerKind::Repeating);
    timer->setEnabled(true);
    timer->setInterval(0ms);
    bool posted = false;
    loop.post([&] { posted = true; });
    EXPECT_FALSE(posted);
    while (!posted) loop.yield();
    loop.processPending();
    EXPECT_EQ(ticks, 0);
}

TEST_F(QtTest, LocalTimeIsTheUsersTimeOfDay)
{
    const double clock = loop.secondsSinceMidnight();
    const double qt = QTime::currentTime().msecsSinceStartOfDay() / 1000.0;
    EXPECT_NEAR(clock, qt, 2.0);
}

TEST_F(QtTest, MissingSoundFileIsLoggedAndNothingPlays)
{
    std::vector<std::string> lines;
    log::setSink([&](log::Level, std::string_view line) { lines.emplace_back(line); });
    QtSoundOutput speaker;
    speaker.playfile("/nonexistent/corvel-test.wav");
    log::setSink({});
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("/nonexistent/corvel-test.wav"), std::string::npos);
}

TEST_F(QtTest, MainWindowReportsItsPlaceInTwips)
{
    MainWindow window;
    window.setGeometry(100, 50, 200, 120);
    window.show();
    const WindowPlacement placement = window.mainWindowPlacement();
    const double t = placement.twipsPerPixel;
    EXPECT_DOUBLE_EQ(t, 1440.0 / window.logicalDpiX());
    const QRect frame = window.frameGeometry(); // the frame counts, as the window's own size
    EXPECT_DOUBLE_EQ(placement.left, frame.x() * t);
    EXPECT_DOUBLE_EQ(placement.width, frame.width() * t);
    EXPECT_DOUBLE_EQ(placement.height, frame.height() * t);
    EXPECT_GT(placement.screenWidth, placement.width);
}

// The test line keeps real time on the desktop's loop: rings, connection, play-done and a
// recording of the length asked for.
TEST_F(QtTest, TestLineRunsOnTheDesktopLoop)
{
    struct Listener final : testing::IgnoringLineEvents {
        TestLine* line = nullptr;
        std::vector<std::string> events;
        void ring(std::int32_t count) override
        {
            events.push_back("ring " + std::to_string(count));
            if (count == 2) line->answer();
        }
        void callerId() override { events.emplace_back("callerId"); }
        void connected() override { events.emplace_back("connected"); }
        void playDone() override { events.emplace_back("playDone"); }
    } listener;
    const auto folder = std::filesystem::temp_directory_path() / ("corvel-qt-line-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    testing::writeTone(folder / "prompt.wav", 0.2);

    TestLine line(loop);
    listener.line = &line;
    line.setListener(&listener);
    line.setLineOpen(true);
    ScriptedCall call;
    call.ringCadence = 100ms;
    call.identity = ScriptedCall::Identity::Withheld;
    line.placeCall(call);
    while (!line.callActive()) loop.yield();
    line.setPlayList((folder / "prompt.wav").string());
    ASSERT_TRUE(line.startPlay());
    line.setRecordFile((folder / "message.wav").string());
    line.setRecording(true);
    while (line.playing()) loop.yield();
    line.setRecording(false);
    loop.processPending();

    EXPECT_EQ(listener.events, (std::vector<std::string>{"ring 1", "callerId", "ring 2", "connected", "playDone"}));
    const testing::Wave message = testing::readWave(folder / "message.wav");
    EXPECT_EQ(message.rate, 8000);
    EXPECT_NEAR(static_cast<double>(message.samples.size()), 1600, 400) << "about the 0.2 s it ran";
    std::filesystem::remove_all(folder);
}

} // namespace
} // namespace corvel
