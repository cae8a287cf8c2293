#include "support/virtual_event_loop.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

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

class VirtualWatch final : public Watch {
public:
    explicit VirtualWatch(std::shared_ptr<VirtualEventLoop::WatchCore> core) : core_(std::move(core)) {}
    ~VirtualWatch() override { core_->enabled = false; }

    void setEnabled(bool enabled) override { core_->enabled = enabled; }
    bool enabled() const override { return core_->enabled; }

private:
    std::shared_ptr<VirtualEventLoop::WatchCore> core_;
};

// A handler that neither drains nor disables its descriptor would hold the clock still for
// ever; past this many serves in a row with nothing else happening, the loop gives up.
constexpr std::uint64_t maxServesInARow = 100000;

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

std::unique_ptr<Watch> VirtualEventLoop::watchReadable(int fd, std::function<void()> ready)
{
    auto core = std::make_shared<WatchCore>(WatchCore{fd, POLLIN, std::move(ready)});
    watches_.push_back(core);
    return std::make_unique<VirtualWatch>(std::move(core));
}

std::unique_ptr<Watch> VirtualEventLoop::watchWritable(int fd, std::function<void()> ready)
{
    auto core = std::make_shared<WatchCore>(WatchCore{fd, POLLOUT, std::move(ready)});
    watches_.push_back(core);
    return std::make_unique<VirtualWatch>(std::move(core));
}

// The enabled watches whose descriptors are ready now, in polling order.
std::vector<std::weak_ptr<VirtualEventLoop::WatchCore>> VirtualEventLoop::readyWatches()
{
    std::erase_if(watches_, [](const std::weak_ptr<WatchCore>& watch) { return watch.expired(); });
    std::vector<std::shared_ptr<WatchCore>> polled;
    std::vector<pollfd> fds;
    for (std::size_t i = 0; i < watches_.size(); ++i) {
        auto watch = watches_[(nextWatch_ + i) % watches_.size()].lock();
        if (!watch || !watch->enabled || watch->running) continue;
        fds.push_back({watch->fd, watch->events, 0});
        polled.push_back(std::move(watch));
    }
    if (fds.empty()) return {};
    if (::poll(fds.data(), fds.size(), 0) < 0) {
        throw VirtualLoopStalled(std::string("cannot poll the watched descriptors: ") + std::strerror(errno));
    }
    std::vector<std::weak_ptr<WatchCore>> ready;
    for (std::size_t i = 0; i < fds.size(); ++i) {
        // An error or hang-up is news to the handler too: its read or write will say which.
        if (fds[i].revents != 0) ready.push_back(polled[i]);
    }
    return ready;
}

void VirtualEventLoop::serve(const std::shared_ptr<WatchCore>& watch)
{
    if (!watch->enabled || watch->running) return;
    servedInARow_ = lastServed_ == watch.get() ? servedInARow_ + 1 : 1;
    lastServed_ = watch.get();
    if (servedInARow_ > maxServesInARow) {
        throw VirtualLoopStalled("a watched descriptor stays ready although its handler ran " +
                                 std::to_string(maxServesInARow) + " times in a row");
    }
    watch->running = true;
    struct Done {
        WatchCore& watch;
        ~Done() { watch.running = false; }
    } done{*watch};
    watch->ready();
}

bool VirtualEventLoop::serveReadyWatch()
{
    const auto ready = readyWatches();
    if (ready.empty()) return false;
    nextWatch_ = (nextWatch_ + 1) % std::max<std::size_t>(watches_.size(), 1);
    if (const auto watch = ready.front().lock()) serve(watch);
    return true;
}

bool VirtualEventLoop::dueNow() const { return !queue_.empty() && queue_.begin()->first.first <= now_; }

void VirtualEventLoop::schedule(Milliseconds due, std::function<void()> task)
{
    queue_.emplace(Key{due, nextSequence_++}, std::move(task));
}

void VirtualEventLoop::runFirst()
{
    lastServed_ = nullptr;
    auto first = queue_.begin();
    now_ = std::max(now_, first->first.first);
    auto task = std::move(first->second);
    queue_.erase(first);
    task();
}

void VirtualEventLoop::yield()
{
    if (dueNow()) {
        runFirst();
        return;
    }
    if (serveReadyWatch()) return;
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
    // Then the descriptors that are ready at this moment, each once.
    for (const auto& weak : readyWatches()) {
        if (const auto watch = weak.lock()) serve(watch);
    }
}

void VirtualEventLoop::runFor(Milliseconds duration)
{
    const Milliseconds end = now_ + duration;
    for (;;) {
        if (dueNow()) runFirst();
        else if (serveReadyWatch()) continue;
        else if (!queue_.empty() && queue_.begin()->first.first <= end) runFirst();
        else break;
    }
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
