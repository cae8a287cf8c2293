#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "base/event_loop.h"
#include "base/settings_store.h"
#include "base/view.h"
#include "character/agent.h"

namespace corvel {

// The one way anything is spoken: `say` makes the character speak with the configured
// volume and balloon, gestures in rotation and arms the auto-hide timer `Timer3`;
// `geniemove` stands the character beside the main window.
class CharacterSpeech final : private AgentEvents {
public:
    static constexpr std::uint32_t balloonOn = 0x021C000D;
    static constexpr std::uint32_t balloonOff = 0x021C000C;

    CharacterSpeech(Agent& agent, const SettingsStore& settings, EventLoop& loop,
                    const View& view);
    ~CharacterSpeech();
    CharacterSpeech(const CharacterSpeech&) = delete;
    CharacterSpeech& operator=(const CharacterSpeech&) = delete;

    void say(std::string_view speech);
    void geniemove();

    // Set by every completed request of the character, cleared by `say`; start-up waits on it.
    bool requestdone() const { return requestdone_; }
    void setRequestdone(bool done) { requestdone_ = done; }
    AgentRequest lastrequest() const { return lastrequest_; }

    // The value of the speech volume tag for a "vol" setting; empty when it is not a step.
    static std::string_view volumeTag(std::string_view vol);

private:
    void requestComplete(AgentRequest request) override;
    void timer3Tick();
    bool characterOff() const;

    Agent& agent_;
    const SettingsStore& settings_;
    const View& view_;
    std::unique_ptr<Timer> timer3_;
    AgentRequest lastrequest_ = 0;
    std::int16_t gesturecount_ = 0;
    bool requestdone_ = false;
};

} // namespace corvel
