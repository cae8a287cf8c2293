#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include "base/event_loop.h"

namespace corvel::testing {

// Thrown by yield() when nothing could ever end the wait in progress: nothing is scheduled,
// or virtual time has run past the loop's budget.
struct VirtualLoopStalled : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// An event loop on a virtual clock. Events run one per yield in the order they fall due (ties
// in the order they were scheduled); when nothing is due, the clock jumps to the next event.
// A three-minute call takes milliseconds and runs the same way every time.
//
// Watched file descriptors are polled, without waiting, whenever no event is due at the
// present instant, and a ready one is served before the clock may move on: the clock only
// jumps once every watched descriptor is quiet. Between two ends that live in this process
// (a pseudo-terminal, a pipe, a socket pair) a write is readable at the other end as soon as
// write() returns, so a conversation over such descriptors runs in no virtual time and always
// the same way. A descriptor fed from outside the process would not be waited for: that needs
// a real-time loop.
class VirtualEventLoop final : public EventLoop {
public:
    static LocalTime defaultStart();

    explicit VirtualEventLoop(LocalTime start = defaultStart(),
                              Milliseconds budget = std::chrono::hours(24));
    ~VirtualEventLoop() override;

    std::unique_ptr<Timer> createTimer(std::function<void()> handler, TimerKind kind) override;
    void post(std::function<void()> task) override;
    std::unique_ptr<Watch> watchReadable(int fd, std::function<void()> ready) override;
    std::unique_ptr<Watch> watchWritable(int fd, std::function<void()> ready) override;
    void yield() override;
    void processPending() override;
    std::chrono::system_clock::time_point now() const override;
    LocalTime localNow() const override;

    // Runs every event that falls due within `duration`, then stands at its end.
    void runFor(Milliseconds duration);
    // Yields until `done` holds.
    void runUntil(const std::function<bool()>& done);
    Milliseconds elapsed() const { return now_; }

    void schedule(Milliseconds due, std::function<void()> task);

    struct WatchCore {
        int fd;
        short events;
        std::function<void()> ready;
        bool enabled = true;
        bool running = false;
    };

private:
    void runFirst();
    bool dueNow() const;
    // Serves one ready watch, if any; false when every watched descriptor is quiet.
    bool serveReadyWatch();
    std::vector<std::weak_ptr<WatchCore>> readyWatches();
    void serve(const std::shared_ptr<WatchCore>& watch);

    using Key = std::pair<Milliseconds, std::uint64_t>;
    std::map<Key, std::function<void()>> queue_;
    std::uint64_t nextSequence_ = 0;
    LocalTime start_;
    Milliseconds budget_;
    Milliseconds now_{0};
    std::vector<std::weak_ptr<WatchCore>> watches_;
    std::size_t nextWatch_ = 0;       // where the next poll starts, so that no watch starves
    const WatchCore* lastServed_ = nullptr;
    std::uint64_t servedInARow_ = 0;  // serves of the same watch with nothing else between
};

} // namespace corvel::testing
