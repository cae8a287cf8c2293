// The driver and the emulator on Qt's loop, in real time: the descriptor watches of the
// desktop's loop carry a whole call, as they will carry a real modem's.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QCoreApplication>

#include <unistd.h>

#include "emulated_modem_line.h"
#include "support/ignoring_line_events.h"
#include "support/wave_files.h"
#include "ui/qt_event_loop.h"

namespace corvel::testing {
namespace {

using namespace std::chrono_literals;

class QtModemTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        static int argc = 1;
        static char name[] = "corvel_modem_qt_tests";
        static char* argv[] = {name, nullptr};
        if (!QCoreApplication::instance()) new QCoreApplication(argc, argv);
    }

    // Turns the loop until `done`, or gives up after `limit` so that a fault fails the test
    // instead of hanging it.
    bool runUntil(const std::function<bool()>& done, std::chrono::seconds limit = 20s)
    {
        auto guard = loop.createTimer([] {}, TimerKind::Repeating);
        guard->setInterval(50ms); // wakes the loop to look at the clock
        guard->setEnabled(true);
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!done()) {
            if (std::chrono::steady_clock::now() > end) return false;
            loop.yield();
        }
        return true;
    }

    QtEventLoop loop;
};

TEST_F(QtModemTest, AWatchCallsWhileEnabledAndMayEndItselfInItsHandler)
{
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    int calls = 0;
    std::unique_ptr<Watch> watch = loop.watchReadable(fds[0], [&] {
        char c;
        (void)::read(fds[0], &c, 1);
        if (++calls == 2) watch.reset();
    });
    ASSERT_EQ(::write(fds[1], "ab", 2), 2);
    EXPECT_TRUE(runUntil([&] { return calls == 2; }, 5s));
    ASSERT_EQ(::write(fds[1], "c", 1), 1);
    loop.processPending();
    EXPECT_EQ(calls, 2);

    auto writable = loop.watchWritable(fds[1], [&] { ++calls; });
    EXPECT_TRUE(runUntil([&] { return calls > 2; }, 5s));
    writable->setEnabled(false);
    ::close(fds[0]);
    ::close(fds[1]);
}

// A listener that stops the prompt on a key, as the dialogue does.
class Caller final : public IgnoringLineEvents {
public:
    explicit Caller(Line& line) : line_(line) {}
    int rings = 0, digits = 0, hungUp = 0;
    bool connectedNow = false;
    void ring(std::int32_t) override { ++rings; }
    void connected() override { connectedNow = true; }
    void digitReceived(char16_t) override
    {
        ++digits;
        line_.setPlaying(false);
    }
    void callerHungUp() override { ++hungUp; }

private:
    Line& line_;
};

TEST_F(QtModemTest, AWholeCallInRealTime)
{
    std::string pattern = (std::filesystem::temp_directory_path() / "corvel-qt-modem-XXXXXX").string();
    const std::filesystem::path folder = ::mkdtemp(pattern.data());
    writeTone(folder / "prompt.wav", 3.0, 600);
    writeTone(folder / "voice.wav", 1.0, 800);

    EmulatedModemLine line(loop);
    Caller caller(line);
    line.setListener(&caller);
    line.setLineOpen(true);
    ScriptedCall call;
    call.identity = ScriptedCall::Identity::Withheld;
    call.ringCadence = 1s;
    call.keys = {{900ms, '4'}};
    call.speech = folder / "voice.wav";
    call.speechAt = 0ms;
    call.hangUpAt = 2500ms;
    line.placeCall(call);
    ASSERT_TRUE(runUntil([&] { return caller.rings >= 2; }));
    line.answer();
    ASSERT_TRUE(runUntil([&] { return caller.connectedNow; }));
    line.setDigitMonitoring(true);
    line.setPlayList((folder / "prompt.wav").string());
    ASSERT_TRUE(line.startPlay());
    ASSERT_TRUE(runUntil([&] { return caller.digits == 1 && !line.playing(); }));
    line.setRecordFile((folder / "message.wav").string());
    line.setRecording(true);
    ASSERT_TRUE(runUntil([&] { return caller.hungUp == 1; }));
    line.setRecording(false);
    line.drop();
    ASSERT_TRUE(runUntil([&] { return !line.modem().offHook(); }));

    const auto key = line.modem().sentToHost("<DLE>4");
    ASSERT_TRUE(key);
    EXPECT_TRUE(line.modem().heardFromHost("<DLE><CAN>", *key)) << "the prompt was stopped by the key";
    ASSERT_EQ(line.transcript().size(), 1u);
    EXPECT_FALSE(line.transcript()[0].complete);
    EXPECT_GT(readWave(folder / "message.wav").samples.size(), 0u);
    line.setListener(nullptr);
    std::filesystem::remove_all(folder);
}

} // namespace
} // namespace corvel::testing
