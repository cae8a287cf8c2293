#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace corvel {

// A caller as the character announces them.
struct AnnouncedCaller {
    std::string caller;            // as the call log names them: a number, keyed digits, "Withheld", "Unavailable"
    std::string said;              // what the character says: a directory name, the network's name or the number
    std::filesystem::path picture; // the caller's picture on show; empty when none
    bool quietly = false;          // in quiet hours: logged, not shown or said
};

// What happens to calls, for whoever follows them from outside Corvel's windows: desktop
// notifications and the session bus. Every event does nothing unless a follower overrides it.
class CallEvents {
public:
    virtual ~CallEvents() = default;

    virtual void ringing(std::int32_t /*count*/) {}
    virtual void callerAnnounced(const AnnouncedCaller& /*caller*/) {}
    // An answered caller waits to be put through: the user may pick up or let them leave a message.
    virtual void callerWaiting(std::string_view /*caller*/) {}
    virtual void messageRecorded(const std::filesystem::path& /*file*/, std::string_view /*caller*/) {}
    // A blocked caller was turned away; `caller` as the call log would name them.
    virtual void callBlocked(std::string_view /*caller*/) {}
    // The call Corvel knew of is over, answered or not.
    virtual void callEnded() {}
    // The counters of new calls or messages were drawn again; they may show other numbers.
    virtual void countsChanged() {}
};

// Passes every event on to each follower, in the order they were added. A follower leaves
// before it ends, and never while it is told an event.
class CallEventFollowers final : public CallEvents {
public:
    void add(CallEvents& follower) { followers_.push_back(&follower); }
    void remove(CallEvents& follower) { std::erase(followers_, &follower); }

    void ringing(std::int32_t count) override { each(&CallEvents::ringing, count); }
    void callerAnnounced(const AnnouncedCaller& caller) override { each(&CallEvents::callerAnnounced, caller); }
    void callerWaiting(std::string_view caller) override { each(&CallEvents::callerWaiting, caller); }
    void messageRecorded(const std::filesystem::path& file, std::string_view caller) override
    {
        each(&CallEvents::messageRecorded, file, caller);
    }
    void callBlocked(std::string_view caller) override { each(&CallEvents::callBlocked, caller); }
    void callEnded() override { each(&CallEvents::callEnded); }
    void countsChanged() override { each(&CallEvents::countsChanged); }

private:
    template <class Event, class... Arguments>
    void each(Event event, const Arguments&... arguments)
    {
        for (CallEvents* follower : followers_) (follower->*event)(arguments...);
    }

    std::vector<CallEvents*> followers_;
};

} // namespace corvel
