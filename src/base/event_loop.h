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

// A file descriptor watched by the event loop: while enabled, its handler runs from the loop
// whenever the descriptor can be read (or written) without blocking. A handler that leaves
// data unread (or has nothing more to write) disables its watch; otherwise it is called again
// on the next turn. A watch starts enabled; destroying it stops it.
class Watch {
public:
    virtual ~Watch() = default;
    virtual void setEnabled(bool enabled) = 0;
    virtual bool enabled() const = 0;
};

// The one thread's event loop. Everything in Corvel runs in handlers called from here.
class EventLoop : public Clock {
public:
    virtual std::unique_ptr<Timer> createTimer(std::function<void()> handler,
                                               TimerKind kind = TimerKind::Repeating) = 0;

    // Runs `task` on a later turn of the loop, after the handler that posted it returns
    // or yields.
    virtual void post(std::function<void()> task) = 0;

    // Watches `fd` (which stays the caller's to close, after the watch is gone).
    virtual std::unique_ptr<Watch> watchReadable(int fd, std::function<void()> ready) = 0;
    virtual std::unique_ptr<Watch> watchWritable(int fd, std::function<void()> ready) = 0;

    // Handles pending events and blocks until at least one event has been handled. A
    // routine that waits for a flag loops on this; it never spins.
    virtual void yield() = 0;

    // Handles the events that are pending now and returns without waiting: lets a device
    // settle between two steps of a routine.
    virtual void processPending() = 0;
};

} // namespace corvel
