#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvel {

// Identifies one queued request of the character; 0 is no request.
using AgentRequest = std::int64_t;

class AgentEvents {
public:
    // A request ended, done or dropped by stop().
    virtual void requestComplete(AgentRequest request) = 0;
    // The user chose one of the character's commands, from its menu or by voice.
    virtual void command(std::string_view name) { (void)name; }

protected:
    ~AgentEvents() = default;
};

// A command of the character: its menu caption and the words that say it (voice grammar:
// "[optional] words", "(one | other)").
struct AgentCommand {
    std::string name;
    std::string caption;
    std::string voice;
    bool operator==(const AgentCommand&) const = default;
};

// The speaking character. Requests queue and run in order; an operation the character cannot
// perform (none loaded, an animation it lacks) is skipped.
class Agent {
public:
    virtual ~Agent() = default;

    // Every listener hears every event, in the order they were added.
    void addListener(AgentEvents* listener) { listeners_.push_back(listener); }
    void removeListener(AgentEvents* listener) { std::erase(listeners_, listener); }

    // Loads the character `name` from the file `name` + ".acs" in the characters folders and makes
    // it the one the operations below act on. False, with no character, when it cannot be read.
    virtual bool load(std::string_view name) = 0;
    // Unloads the character of that name, if it is the one loaded.
    virtual void unload(std::string_view name) = 0;
    // The loaded character's own description; empty when none is loaded.
    virtual std::string description() const = 0;
    virtual void addCommand(const AgentCommand& command) = 0;
    // The character's property sheet: its name, description and speech settings.
    virtual void showPropertySheet() = 0;

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
    void notifyRequestComplete(AgentRequest request) const
    {
        for (AgentEvents* listener : std::vector(listeners_)) listener->requestComplete(request);
    }
    void notifyCommand(std::string_view name) const
    {
        for (AgentEvents* listener : std::vector(listeners_)) listener->command(name);
    }

private:
    std::vector<AgentEvents*> listeners_;
};

} // namespace corvel
