#pragma once

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "support/virtual_event_loop.h"
#include "telephony/line.h"

namespace corvel::testing {

// Keeps every line event in order with the virtual time it arrived at, as text: "ring 2",
// "callerId", "connected", "digit 5", "callOwnerChanged", "callerHungUp", "playDone", ...
class RecordingLineEvents final : public LineEvents {
public:
    struct Event {
        Milliseconds at;
        std::string name;

        bool operator==(const Event&) const = default;
        friend std::ostream& operator<<(std::ostream& out, const Event& event)
        {
            return out << event.name << " @" << event.at.count() << "ms";
        }
    };

    explicit RecordingLineEvents(const VirtualEventLoop& loop) : loop_(loop) {}

    std::vector<Event> events;

    std::vector<std::string> names() const
    {
        std::vector<std::string> out;
        for (const Event& event : events) out.push_back(event.name);
        return out;
    }
    // When each event of this name came.
    std::vector<Milliseconds> times(std::string_view name) const
    {
        std::vector<Milliseconds> out;
        for (const Event& event : events)
            if (event.name == name) out.push_back(event.at);
        return out;
    }
    long count(std::string_view name) const
    {
        return std::count_if(events.begin(), events.end(),
                             [&](const Event& event) { return event.name == name; });
    }

    void ring(std::int32_t count) override { record("ring " + std::to_string(count)); }
    void callerId() override { record("callerId"); }
    void connected() override { record("connected"); }
    void digitReceived(char16_t digit) override
    {
        record(digit < 0x80 ? "digit " + std::string(1, static_cast<char>(digit))
                            : "digit code " + std::to_string(static_cast<unsigned>(digit)));
    }
    void callOwnerChanged() override { record("callOwnerChanged"); }
    void callStateChanged() override { record("callStateChanged"); }
    void mediaModeChanged() override { record("mediaModeChanged"); }
    void callerHungUp() override { record("callerHungUp"); }
    void playDone() override { record("playDone"); }
    void desktopCallEnded() override { record("desktopCallEnded"); }

private:
    void record(std::string name) { events.push_back({loop_.elapsed(), std::move(name)}); }

    const VirtualEventLoop& loop_;
};

} // namespace corvel::testing
