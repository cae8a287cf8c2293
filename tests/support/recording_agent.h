#pragma once

#include <string>
#include <vector>

#include "character/agent.h"

namespace corvel::testing {

// Records every operation as a line of text ("Speak \Vol=65535\Hello", "MoveTo 10 20",
// "Load Owl", "Command exit|Exit Corvel|[Exit] Ombrel").
class RecordingAgent final : public Agent {
public:
    std::vector<std::string> calls;
    int characterHeight = 128;
    int characterWidth = 128;
    bool loads = true; // whether load() finds the character
    std::string characterDescription = "A recorded character.";

    bool load(std::string_view name) override
    {
        record("Load " + std::string(name));
        return loads;
    }
    void unload(std::string_view name) override { record("Unload " + std::string(name)); }
    std::string description() const override { return characterDescription; }
    void addCommand(const AgentCommand& command) override
    {
        record("Command " + command.name + "|" + command.caption + "|" + command.voice);
    }
    void showPropertySheet() override { record("PropertySheet"); }

    void setBalloonStyle(std::uint32_t style) override { record("BalloonStyle " + std::to_string(style)); }
    void stop() override { record("Stop"); }
    void show() override { record("Show"); }
    AgentRequest speak(std::string_view text) override { return record("Speak " + std::string(text)); }
    AgentRequest play(std::string_view animation) override { return record("Play " + std::string(animation)); }
    int height() const override { return characterHeight; }
    int width() const override { return characterWidth; }
    AgentRequest moveTo(int x, int y) override
    {
        return record("MoveTo " + std::to_string(x) + " " + std::to_string(y));
    }
    void hide() override { record("Hide"); }
    void setSoundEffects(bool on) override { record(on ? "SoundEffects on" : "SoundEffects off"); }

    void completeRequest(AgentRequest request) { notifyRequestComplete(request); }
    // The user chooses a command from the character's menu, or says it.
    void chooseCommand(std::string_view name) { notifyCommand(name); }

private:
    AgentRequest record(std::string call)
    {
        calls.push_back(std::move(call));
        return static_cast<AgentRequest>(calls.size());
    }
};

} // namespace corvel::testing
