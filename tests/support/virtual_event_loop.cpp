#include "support/virtual_event_loop.h"

#include <algorithm>

namespace corvel::testing {
namespace {

class VirtualTimer final : public Timer {
public:
    VirtualTimer(VirtualEventLoop& loop, std::function<void()> handler, TimerKind kind)
        : core_(std::make_shared<Core>(Core{loop, std::move(handler), kind}))
    {
    }

    void setInterval(Milliseconds interval) override
    {
        core_->interval = interval;
        rearm();
    }
    Milliseconds interval() const override { return core_->interval; }
    void setEnabled(bool enabled) override
    {
        if (core_->enabled == enabled) return;
        core_->enabled = enabled;
        rearm();
    }
    bool enabled() const override { return core_->enabled; }

private:
    struct Core {
        VirtualEventLoop& loop;
        std::function<void()> handler;
        TimerKind kind;
        Milliseconds interval{0};
        bool enabled = false;
        bool running = false;
        std::uint64_t generation = 0; // ticks scheduled under an older setting are void
    };

    void rearm()
    {
        ++core_->generation;
        schedule(core_);
    }

    static void schedule(const std::shared_ptr<Core>& core)
    {
        if (!core->enabled || core->interval <= Milliseconds{0}) return;
        core->loop.schedule(core->loop.elapsed() + core->interval,
                            [weak = std::weak_ptr<Core>(core), generation = core->generation] {
                                fire(weak.lock(), generation);
                            });
    }

    static void fire(const std::shared_ptr<Core>& core, std::uint64_t generation)
    {
        if (!core || core->generation != generation) return;
        if (core->kind == TimerKind::SingleShot) {
            core->enabled = false;
            ++core->generation;
        } else {
            schedule(core);
        }
        if (core->running) return;
        struct Running {
            Core& core;
            explicit Running(Core& c) : core(c) { core.running = true; }
            ~Running() { core.running = false; }
        } running(*core);
        core->handler();
    }

    std::shared_ptr<Core> core_;
};

} // namespace

LocalTime VirtualEventLoop::defaultStart()
{
    using namespace std::chrono;
    return local_days{year{2026} / January / 5} + hours{10};
}

VirtualEventLoop::VirtualEventLoop(LocalTime start, Milliseconds budget)
    : start_(start), budget_(budget)
{
}

VirtualEventLoop::~VirtualEventLoop() = default;

std::unique_ptr<Timer> VirtualEventLoop::createTimer(std::function<void()> handler, TimerKind kind)
{
    return std::make_unique<VirtualTimer>(*this, std::move(handler), kind);
}

void VirtualEventLoop::post(std::function<void()> task) { schedule(now_, std::move(task)); }

void VirtualEventLoop::schedule(Milliseconds due, std::function<void()> task)
{
    queue_.emplace(Key{due, nextSequence_++}, std::move(task));
}

void VirtualEventLoop::runFirst()
{
    auto first = queue_.begin();
    now_ = std::max(now_, first->first.first);
    auto task = std::move(first->second);
    queue_.erase(first);
    task();
}

void VirtualEventLoop::yield()
{
    if (queue_.empty()) throw VirtualLoopStalled("a wait that nothing is scheduled to end");
    if (queue_.begin()->first.first > budget_)
        throw VirtualLoopStalled("virtual time ran out waiting for something that never happened");
    runFirst();
}

void VirtualEventLoop::processPending()
{
    // Only what is pending now: events that the handlers add wait for a later turn.
    const std::uint64_t bound = nextSequence_;
    while (!queue_.empty() && queue_.begin()->first.first <= now_ &&
           queue_.begin()->first.second < bound) {
        runFirst();
    }
}

void VirtualEventLoop::runFor(Milliseconds duration)
{
    const Milliseconds end = now_ + duration;
    while (!queue_.empty() && queue_.begin()->first.first <= end) runFirst();
    now_ = std::max(now_, end); // a handler that waited may have carried the clock past the end
}

void VirtualEventLoop::runUntil(const std::function<bool()>& done)
{
    while (!done()) yield();
}

std::chrono::system_clock::time_point VirtualEventLoop::now() const
{
    return std::chrono::system_clock::time_point(start_.time_since_epoch() + now_);
}

LocalTime VirtualEventLoop::localNow() const { return start_ + now_; }

} // namespace corvel::testing
