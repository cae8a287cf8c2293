#include "support/virtual_event_loop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvel::testing {
namespace {

using ::testing::ElementsAre;
using namespace std::chrono_literals;

TEST(VirtualEventLoop, RunsTimersInTimeOrderAndHonoursIntervalZeroAndRestart)
{
    VirtualEventLoop loop;
    std::vector<std::string> ticks;
    auto stamp = [&](const char* name) {
        return [&, name] { ticks.push_back(std::string(name) + "@" + std::to_string(loop.elapsed().count())); };
    };
    auto fast = loop.createTimer(stamp("fast"), TimerKind::Repeating);
    auto slow = loop.createTimer(stamp("slow"), TimerKind::Repeating);
    auto once = loop.createTimer(stamp("once"), TimerKind::SingleShot);
    fast->setInterval(400ms);
    fast->setEnabled(true);
    slow->setInterval(1000ms);
    slow->setEnabled(true);
    once->setInterval(500ms);
    once->setEnabled(true);

    loop.runFor(900ms);
    slow->restart(); // a full second from 900 ms
    fast->setInterval(0ms); // stopped, though still enabled
    loop.runFor(1100ms);
    EXPECT_THAT(ticks, ElementsAre("fast@400", "once@500", "fast@800", "slow@1900"));
    EXPECT_FALSE(once->enabled());
}

TEST(VirtualEventLoop, NeverReentersATimerHandlerThatYields)
{
    VirtualEventLoop loop;
    int depth = 0;
    int deepest = 0;
    int calls = 0;
    std::unique_ptr<Timer> timer = loop.createTimer(
        [&] {
            ++calls;
            deepest = std::max(deepest, ++depth);
            if (calls == 1) loop.runFor(5s); // a long wait inside the handler
            --depth;
        },
        TimerKind::Repeating);
    timer->setInterval(1s);
    timer->setEnabled(true);
    loop.runFor(10s);
    EXPECT_EQ(deepest, 1);
    EXPECT_EQ(calls, 5) << "the ticks due while the handler ran are skipped, not queued";
}

TEST(VirtualEventLoop, AWaitThatNothingCanEndFailsInsteadOfHanging)
{
    VirtualEventLoop idle;
    EXPECT_THROW(idle.yield(), VirtualLoopStalled);

    VirtualEventLoop ticking(VirtualEventLoop::defaultStart(), 1h);
    auto timer = ticking.createTimer([] {}, TimerKind::Repeating);
    timer->setInterval(1s);
    timer->setEnabled(true);
    EXPECT_THROW(ticking.runUntil([] { return false; }), VirtualLoopStalled);
}

TEST(VirtualEventLoop, ProcessPendingRunsOnlyWhatIsDueNow)
{
    VirtualEventLoop loop;
    std::vector<int> ran;
    loop.post([&] {
        ran.push_back(1);
        loop.post([&] { ran.push_back(3); });
    });
    loop.post([&] { ran.push_back(2); });
    auto later = loop.createTimer([&] { ran.push_back(4); }, TimerKind::SingleShot);
    later->setInterval(1ms);
    later->setEnabled(true);

    loop.processPending();
    EXPECT_THAT(ran, ElementsAre(1, 2));
    EXPECT_EQ(loop.elapsed(), 0ms);
    loop.yield();
    loop.yield();
    EXPECT_THAT(ran, ElementsAre(1, 2, 3, 4));
}

TEST(VirtualEventLoop, ClockCountsFromItsStartAndKnowsTheTimeOfDay)
{
    using namespace std::chrono;
    VirtualEventLoop loop(local_days{year{2026} / 3 / 1} + 23h + 59min + 59s);
    EXPECT_DOUBLE_EQ(loop.secondsSinceMidnight(), 86399.0);
    loop.runFor(1500ms);
    EXPECT_DOUBLE_EQ(loop.secondsSinceMidnight(), 0.5);
    EXPECT_EQ(floor<days>(loop.localNow()), local_days{year{2026} / 3 / 2});
}

} // namespace
} // namespace corvel::testing
