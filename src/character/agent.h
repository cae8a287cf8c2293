#pragma once

#include <cstdint>
#include <string_view>

namespace corvel {

// Identifies one queued request of the character; 0 is no request.
using AgentRequest = std::int64_t;

class AgentEvents {
public:
    virtual void requestComplete(AgentRequest request) = 0;

protected:
    ~AgentEvents() = default;
};

// The speaking character. Requests queue and run in order; an operation the character cannot
// perform (none loaded, an animation it lacks) is skipped.
class Agent {
public:
    virtual ~Agent() = default;

    void setListener(AgentEvents* listener) { listener_ = listener; }

    virtual void setBalloonStyle(std::uint32_t style) = 0;
    virtual void stop() = 0; // drops every queued and current request
    virtual void show() = 0;
    virtual AgentRequest speak(std::string_view text) = 0; // text may carry speech tags
    virtual AgentRequest play(std::string_view animation) = 0;
    virtual int height() const = 0; // pixels
    virtual int width() const = 0;  // pixels
    virtual AgentRequest moveTo(int x, int y) = 0; // screen pixels, default speed
    virtual void hide() = 0;
    virtual void setSoundEffects(bool on) = 0;

protected:
    AgentEvents* listener() const { return listener_; }

private:
    AgentEvents* listener_ = nullptr;
};

} // namespace corvel
