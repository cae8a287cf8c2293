#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <utility>

#include "app/event_loop.h"

namespace corvel::testing {

// Thrown by yield() when nothing could ever end the wait in progress: nothing is scheduled,
// or virtual time has run past the loop's budget.
struct VirtualLoopStalled : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// An event loop on a virtual clock. Events run one per yield in the order they fall due (ties
// in the order they were scheduled); when nothing is due, the clock jumps to the next event.
// A three-minute call takes milliseconds and runs the same way every time.
class VirtualEventLoop final : public EventLoop {
public:
    static LocalTime defaultStart();

    explicit VirtualEventLoop(LocalTime start = defaultStart(),
                              Milliseconds budget = std::chrono::hours(24));
    ~VirtualEventLoop() override;

    std::unique_ptr<Timer> createTimer(std::function<void()> handler, TimerKind kind) override;
    void post(std::function<void()> task) override;
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

private:
    void runFirst();

    using Key = std::pair<Milliseconds, std::uint64_t>;
    std::map<Key, std::function<void()>> queue_;
    std::uint64_t nextSequence_ = 0;
    LocalTime start_;
    Milliseconds budget_;
    Milliseconds now_{0};
};

} // namespace corvel::testing
