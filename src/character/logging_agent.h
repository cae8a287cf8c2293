#pragma once

#include <string>
#include <string_view>

#include "base/event_loop.h"
#include "character/agent.h"

namespace corvel {

// A character with no body: it writes what it is asked to say to the log. Serves where no
// character can be drawn (no display, or the character switched off by the system).
class LoggingAgent final : public Agent {
public:
    explicit LoggingAgent(EventLoop& loop) : loop_(loop) {}

    // Remembers the name only: there is nothing to draw it with.
    bool load(std::string_view name) override;
    void unload(std::string_view name) override;
    std::string description() const override { return {}; }
    void addCommand(const AgentCommand&) override {}
    void showPropertySheet() override {}

    void setBalloonStyle(std::uint32_t) override {}
    void stop() override {}
    void show() override {}
    AgentRequest speak(std::string_view text) override;
    AgentRequest play(std::string_view animation) override;
    int height() const override { return 0; }
    int width() const override { return 0; }
    AgentRequest moveTo(int x, int y) override;
    void hide() override {}
    void setSoundEffects(bool) override {}

private:
    AgentRequest complete();

    EventLoop& loop_;
    AgentRequest lastRequest_ = 0;
    std::string loaded_;
};

} // namespace corvel
