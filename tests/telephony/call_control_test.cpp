#include "telephony/call_control.h"

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/log.h"
#include "support/recording_view.h"
#include "support/virtual_event_loop.h"
#include "support/wave_files.h"
#include "telephony/testline/test_line.h"

namespace corvel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::chrono_literals;
using testing::VirtualEventLoop;

// Stands in for the call handling built on CallControl: it answers on the second ring and
// starts counting the call, as the ring and connected handlers do, then runs `dialogue`.
class ScriptedRoutines final : public CallRoutines {
public:
    explicit ScriptedRoutines(CallControl& calls, Line& line) : calls_(calls), line_(line)
    {
        calls_.setRoutines(this);
    }

    std::function<void()> dialogue = [] {};
    std::vector<std::string> digits;
    int messageCounts = 0;
    bool dialogueReturned = false;

    void ring(std::int32_t count) override
    {
        calls_.state().idleCountdown = 180;
        if (calls_.state().callInProgress) return;
        calls_.state().callover = false;
        if (count == 2) line_.answer();
    }
    void callerId() override {}
    void connected() override
    {
        calls_.state().callphase = CallPhase::Interrogating;
        calls_.state().callInProgress = true;
        line_.setDigitMonitoring(true);
        dialogue();
        dialogueReturned = true;
    }
    void digitpressed(std::string_view digit) override
    {
        digits.emplace_back(digit);
        calls_.state().currentCaller += digit;
    }
    void checkmessages() override { ++messageCounts; }

private:
    CallControl& calls_;
    Line& line_;
};

class CallControlTest : public ::testing::Test {
protected:
    explicit CallControlTest(LocalTime start = VirtualEventLoop::defaultStart()) : loop(start)
    {
        line.setLineOpen(true);
        testing::writeTone(folder / "short.wav", 2.5);
        testing::writeTone(folder / "ten.wav", 10.0);
    }
    ~CallControlTest() override { std::filesystem::remove_all(folder); }

    std::string prompt(const char* name) const { return (folder / name).string(); }

    // A caller who rings and, once answered (at 6 s), keys `keys` at the given times.
    void callerKeys(std::vector<ScriptedCall::Key> keys)
    {
        ScriptedCall call;
        call.keys = std::move(keys);
        line.placeCall(call);
    }

    std::filesystem::path folder = [] {
        auto path = std::filesystem::temp_directory_path() /
                    ("corvel-calls-" + std::to_string(::getpid()) + "-" +
                     ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(path);
        return path;
    }();
    VirtualEventLoop loop;
    TestLine line{loop};
    testing::RecordingView view;
    CallEvents events;
    CallControl calls{loop, line, view, events};
    ScriptedRoutines routines{calls, line};
    CallState& state = calls.state();
};

void expectIdle(const CallState& state, const Line& line)
{
    EXPECT_FALSE(line.callActive());
    EXPECT_FALSE(line.playing());
    EXPECT_FALSE(line.recording());
    EXPECT_FALSE(line.digitMonitoring());
    EXPECT_TRUE(state.callover);
    EXPECT_FALSE(state.callInProgress);
    EXPECT_EQ(state.callphase, CallPhase::Idle);
    EXPECT_EQ(state.idleCountdown, 0);
    EXPECT_EQ(state.countdown, 0);
    EXPECT_TRUE(state.currentCaller.empty());
    EXPECT_TRUE(state.noCallerNumber);
}

TEST_F(CallControlTest, Timer1EndsAnAnsweredCallThreeMinutesAfterItsLastRing)
{
    routines.dialogue = [&] { calls.waitUntil([&] { return state.callover; }); };
    callerKeys({});
    // The dialogue waits inside the loop, so the state is looked at from the loop too.
    bool upBeforeTheLimit = false;
    bool endedAtTheLimit = false;
    loop.schedule(6s + 178500ms, [&] { upBeforeTheLimit = line.callActive() && state.callInProgress; });
    loop.schedule(6s + 180500ms, [&] { endedAtTheLimit = !line.callActive(); });
    loop.runUntil([&] { return routines.dialogueReturned; });
    loop.runFor(2s);

    EXPECT_TRUE(upBeforeTheLimit) << "the call must last its three minutes";
    EXPECT_TRUE(endedAtTheLimit);
    expectIdle(state, line);
    EXPECT_TRUE(line.lineOpen()) << "standby reopens the line after a second";
    EXPECT_EQ(routines.messageCounts, 1);
}

// "*" is the caller's way out from anywhere in an answered call: during a prompt, during a
// recording and during a plain wait.
TEST_F(CallControlTest, StarEndsTheCallAtAnyMoment)
{
    routines.dialogue = [&] {
        if (!calls.playPromptAndWait(prompt("ten.wav"), "", 25)) return;
        if (state.callover) return;
        line.setRecordFile(prompt("message.wav"));
        line.setRecording(true);
        state.countdown = 30;
        calls.waitUntil([&] { return state.countdown == 0; });
        line.setRecording(false);
        if (state.callover) return;
        state.countdown = 20;
        calls.waitUntil([&] { return state.countdown == 0; });
    };
    for (const auto starAt : {3s, 15s, 45s}) {
        SCOPED_TRACE(starAt.count());
        routines.dialogueReturned = false;
        callerKeys({{starAt, '*'}});
        const auto answeredAt = loop.elapsed() + 6s;
        loop.runUntil([&] { return routines.dialogueReturned; });
        EXPECT_LE(loop.elapsed() - answeredAt, starAt + 1s) << "the dialogue must give up at once";
        expectIdle(state, line);
        EXPECT_THAT(routines.digits, IsEmpty()) << "\"*\" is not a digit of the number";
        loop.runFor(2s);
        EXPECT_TRUE(line.lineOpen());
    }
    EXPECT_TRUE(std::filesystem::exists(prompt("message.wav")));
}

TEST_F(CallControlTest, StandbyWithNothingActiveOnlyResetsAndReopens)
{
    state.callphase = CallPhase::PuttingThrough;
    state.currentCaller = "0123";
    state.inmessage = state.wantsmessage = state.lineflag = state.entrydone = true;
    bool closedMeanwhile = false;
    auto probe = loop.createTimer([&] { closedMeanwhile = !line.lineOpen(); }, TimerKind::SingleShot);
    probe->setInterval(500ms);
    probe->setEnabled(true);

    calls.standby();

    EXPECT_EQ(loop.elapsed(), 1s) << "the line is closed for one second";
    EXPECT_TRUE(closedMeanwhile);
    EXPECT_TRUE(line.lineOpen());
    expectIdle(state, line);
    EXPECT_FALSE(state.inmessage || state.wantsmessage || state.lineflag);
    EXPECT_TRUE(state.entrydone) << "standby leaves entrydone as it was";
    EXPECT_THAT(view.events, ElementsAre("busy", "unload frm_display", "unload frm_pickup", "idle"));
    EXPECT_EQ(routines.messageCounts, 1);

    line.setLineOpen(false);
    calls.standby();
    EXPECT_FALSE(line.lineOpen()) << "a closed line stays closed";
    EXPECT_EQ(loop.elapsed(), 1s);
}

TEST_F(CallControlTest, PromptThatCannotPlayEndsTheCallWithItsMessage)
{
    routines.dialogue = [&] {
        const bool played = calls.playPrompt(prompt("missing.wav"), CallControl::cantPlay("goodmorning.wav"));
        EXPECT_FALSE(played);
    };
    callerKeys({});
    loop.runUntil([&] { return routines.dialogueReturned; });
    ASSERT_EQ(view.boxes.size(), 1u);
    EXPECT_EQ(view.boxes[0].icon, MessageIcon::Stop);
    EXPECT_EQ(view.boxes[0].title, "Error!");
    EXPECT_EQ(view.boxes[0].text,
              "Sorry, there was an error whilst playing the goodmorning.wav file so I`m quitting!");
    expectIdle(state, line);
}

TEST_F(CallControlTest, PromptWaitEndsOnPlayDoneOnTimeOrOnTheCallersCondition)
{
    std::vector<std::pair<std::int64_t, bool>> ends; // seconds after the answer, playdone
    routines.dialogue = [&] {
        const auto answeredAt = loop.elapsed();
        auto mark = [&] {
            ends.emplace_back(std::chrono::duration_cast<std::chrono::seconds>(loop.elapsed() - answeredAt).count(),
                              state.playdone);
        };
        calls.playPromptAndWait(prompt("short.wav"), "", 25);
        mark();
        calls.playPromptAndWait(prompt("ten.wav"), "", 3);
        mark();
        EXPECT_FALSE(line.playing()) << "a prompt cut short by the time-out is stopped";
        calls.playPromptAndWait(prompt("ten.wav"), "", 25, [&] { return !state.currentCaller.empty(); });
        mark();
    };
    callerKeys({{6s, '5'}});
    loop.runUntil([&] { return routines.dialogueReturned; });
    EXPECT_THAT(ends, ElementsAre(std::pair<std::int64_t, bool>{2, true}, std::pair<std::int64_t, bool>{5, false},
                                  std::pair<std::int64_t, bool>{6, false}));
    const auto& heard = line.transcript();
    ASSERT_EQ(heard.size(), 3u);
    EXPECT_TRUE(heard[0].complete);
    EXPECT_EQ(heard[1].heard, 2500ms);
}

TEST_F(CallControlTest, CallerHangingUpEndsAnAnsweredCallButNotARingingOne)
{
    ScriptedCall leaves;
    leaves.ringsBeforeGivingUp = 1;
    line.placeCall(leaves);
    state.currentCaller = "Withheld";
    loop.runFor(30s);
    EXPECT_EQ(state.currentCaller, "Withheld") << "an unanswered caller leaving resets nothing";

    routines.dialogue = [&] { calls.waitUntil([&] { return state.callover; }); };
    ScriptedCall hangsUp;
    hangsUp.hangUpAt = 4s;
    line.placeCall(hangsUp);
    loop.runFor(6s + 4s);
    EXPECT_TRUE(routines.dialogueReturned);
    expectIdle(state, line);
}

TEST_F(CallControlTest, LampsFollowTheLineAndTheKeypressLampGoesOutOnTheNextTick)
{
    routines.dialogue = [&] { calls.playPromptAndWait(prompt("ten.wav"), "", 25); };
    callerKeys({});
    std::vector<LineLamps> seen;
    for (auto at = 7500ms; at < 11s; at += 1s) loop.schedule(at, [&] { seen.push_back(view.lamps); });
    loop.schedule(10500ms, [&] { calls.lightKeypressLamp(); seen.push_back(view.lamps); });
    loop.runUntil([&] { return routines.dialogueReturned; });

    ASSERT_EQ(seen.size(), 5u);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_TRUE(seen[i].l1 && seen[i].l3 && !seen[i].l2 && !seen[i].l4) << i;
        if (i > 0) {
            EXPECT_NE(seen[i].l5, seen[i - 1].l5) << "l5 blinks while the call is up";
        }
    }
    EXPECT_TRUE(seen[4].l4 && seen[4].Label6);
    EXPECT_FALSE(view.lamps.l4) << "put out by the next tick";
    EXPECT_TRUE(view.lamps.Label6);
}

// An idle line must cost no wake-ups, yet a call must find the call timer and the lamps going.
TEST_F(CallControlTest, TheOneSecondTimersSleepWhileTheLineIsIdleAndACallWakesThem)
{
    loop.runFor(3s);
    EXPECT_TRUE(view.lamps.l1) << "the lamps show the open line before the timers sleep";
    EXPECT_THROW(loop.yield(), testing::VirtualLoopStalled) << "nothing left to tick while idle";

    routines.dialogue = [&] { calls.waitUntil([&] { return state.callover; }); };
    callerKeys({});
    const auto rang = loop.elapsed();
    loop.runUntil([&] { return routines.dialogueReturned; });
    EXPECT_GE(loop.elapsed() - rang, 180s) << "the three-minute limit still counts";
    EXPECT_LE(loop.elapsed() - rang, 190s);
    loop.runFor(15s); // the line reopened, the rings are over
    EXPECT_TRUE(view.lamps.l1 && !view.lamps.l5);
    EXPECT_THROW(loop.yield(), testing::VirtualLoopStalled) << "asleep again after the call";
}

TEST_F(CallControlTest, KeysThatNoTelephoneSendsAreIgnored)
{
    std::vector<std::string> warnings;
    log::setSink([&](log::Level, std::string_view text) { warnings.emplace_back(text); });
    callerKeys({{1s, '7'}, {2s, 'x'}, {3s, '\n'}, {4s, 'D'}});
    loop.runFor(6s + 5s);
    log::setSink({});
    EXPECT_THAT(routines.digits, ElementsAre("7", "D"));
    EXPECT_EQ(std::count_if(warnings.begin(), warnings.end(),
                            [](const std::string& line) { return line.find("key code") != std::string::npos; }),
              2);
}

class MidnightTest : public CallControlTest {
protected:
    MidnightTest()
        : CallControlTest(std::chrono::local_days{std::chrono::year{2026} / 12 / 31} + 23h + 59min + 59s + 500ms)
    {
    }
};

// The seconds-since-midnight clock starts again at 0; a pause across midnight still ends.
TEST_F(MidnightTest, PauseAcrossMidnightEndsOnTime)
{
    calls.pause(1);
    EXPECT_EQ(loop.elapsed(), 1s);
    calls.pause(2);
    EXPECT_EQ(loop.elapsed(), 3s);
}

} // namespace
} // namespace corvel
