#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace corvel {

using Milliseconds = std::chrono::milliseconds;
using LocalTime = std::chrono::local_time<Milliseconds>;

// A timer on the event loop. Like the timer controls the call logic was written for, it
// ticks only while it is enabled with an interval above zero, and a tick that falls due
// while its own handler is still running (the handler yielded) is skipped, never nested.
class Timer {
public:
    virtual ~Timer() = default;

    virtual void setInterval(Milliseconds interval) = 0;
    virtual Milliseconds interval() const = 0;
    virtual void setEnabled(bool enabled) = 0;
    virtual bool enabled() const = 0;

    // Starts a fresh full interval from now.
    void restart()
    {
        setEnabled(false);
        setEnabled(true);
    }
};

// Wall time and the user's local time.
class Clock {
public:
    virtual ~Clock() = default;
    virtual std::chrono::system_clock::time_point now() const = 0;
    virtual LocalTime localNow() const = 0;

    // Seconds since local midnight, with fractions.
    double secondsSinceMidnight() const;
};

enum class TimerKind { Repeating, SingleShot };

// The one thread's event loop. Everything in Corvel runs in handlers called from here.
class EventLoop : public Clock {
public:
    virtual std::unique_ptr<Timer> createTimer(std::function<void()> handler,
                                               TimerKind kind = TimerKind::Repeating) = 0;

    // Runs `task` on a later turn of the loop, after the handler that posted it returns
    // or yields.
    virtual void post(std::function<void()> task) = 0;

    // Handles pending events and blocks until at least one event has been handled. A
    // routine that waits for a flag loops on this; it never spins.
    virtual void yield() = 0;

    // Handles the events that are pending now and returns without waiting: lets a device
    // settle between two steps of a routine.
    virtual void processPending() = 0;
};

} // namespace corvel
