// The virtual loop's descriptor watches, which the modem tests run on: a conversation over a
// pipe takes no virtual time, and the clock moves only when every descriptor is quiet.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include "support/virtual_event_loop.h"

namespace corvel::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

class Pipe {
public:
    Pipe() { EXPECT_EQ(::pipe(fds_), 0); }
    ~Pipe()
    {
        ::close(fds_[0]);
        ::close(fds_[1]);
    }
    int reader() const { return fds_[0]; }
    int writer() const { return fds_[1]; }
    void put(char c) const { ASSERT_EQ(::write(fds_[1], &c, 1), 1); }
    std::string drain() const
    {
        char buffer[64];
        const ssize_t n = ::read(fds_[0], buffer, sizeof buffer);
        return n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : std::string();
    }

private:
    int fds_[2];
};

TEST(VirtualLoopWatch, AnExchangeOverDescriptorsRunsBeforeTheClockMoves)
{
    VirtualEventLoop loop;
    Pipe ping, pong;
    std::vector<std::string> log;
    // Two parties answering each other until the tenth message: all of it at the same instant.
    auto a = loop.watchReadable(ping.reader(), [&] {
        const std::string got = ping.drain();
        log.push_back("a" + got + "@" + std::to_string(loop.elapsed().count()));
        if (log.size() < 10) pong.put('x');
    });
    auto b = loop.watchReadable(pong.reader(), [&] {
        const std::string got = pong.drain();
        log.push_back("b" + got + "@" + std::to_string(loop.elapsed().count()));
        ping.put('y');
    });
    auto timer = loop.createTimer([&] { log.push_back("timer@" + std::to_string(loop.elapsed().count())); },
                                  TimerKind::SingleShot);
    timer->setInterval(5ms);
    timer->setEnabled(true);
    ping.put('y');
    loop.runFor(10ms);
    ASSERT_EQ(log.size(), 12u);
    EXPECT_EQ(log[0], "ay@0");
    EXPECT_EQ(log[10], "ay@0");
    EXPECT_EQ(log[11], "timer@5");
}

TEST(VirtualLoopWatch, ADisabledOrDestroyedWatchIsNotCalled)
{
    VirtualEventLoop loop;
    Pipe pipe;
    int calls = 0;
    auto watch = loop.watchReadable(pipe.reader(), [&] { ++calls; });
    watch->setEnabled(false);
    pipe.put('x');
    loop.runFor(1ms);
    EXPECT_EQ(calls, 0);
    watch->setEnabled(true);
    loop.processPending();
    EXPECT_EQ(calls, 1) << "pending at once, without waiting for time to pass";
    // A handler that ends its own watch.
    watch = loop.watchReadable(pipe.reader(), [&] {
        ++calls;
        pipe.drain();
        watch.reset();
    });
    loop.runFor(1ms);
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(watch, nullptr);
}

TEST(VirtualLoopWatch, AWritableWatchFiresWhileThereIsRoom)
{
    VirtualEventLoop loop;
    Pipe pipe;
    int calls = 0;
    std::unique_ptr<Watch> watch;
    watch = loop.watchWritable(pipe.writer(), [&] {
        if (++calls == 3) watch->setEnabled(false);
    });
    loop.runFor(1ms);
    EXPECT_EQ(calls, 3);
}

TEST(VirtualLoopWatch, AHandlerThatLeavesItsDescriptorReadyStallsTheLoopInsteadOfHangingIt)
{
    VirtualEventLoop loop;
    Pipe pipe;
    auto watch = loop.watchReadable(pipe.reader(), [] {});
    pipe.put('x');
    EXPECT_THROW(loop.runFor(1s), VirtualLoopStalled);
}

} // namespace
} // namespace corvel::testing
