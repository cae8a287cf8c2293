#pragma once

#include <QTest>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "character/agent.h"
#include "support/qt_application.h"
#include "ui/agent/qt_agent.h"

namespace corvel::testing {

// Phony, as the build draws it.
inline const std::filesystem::path characters = CORVEL_CHARACTERS_DIR;

// Hears what the character reports: requests ended, commands chosen.
class AgentListener final : public AgentEvents {
public:
    explicit AgentListener(Agent& agent) : agent_(agent) { agent_.addListener(this); }
    ~AgentListener() { agent_.removeListener(this); }
    void requestComplete(AgentRequest request) override { completed.push_back(request); }
    void command(std::string_view name) override { commands.emplace_back(name); }
    bool done(AgentRequest request) const
    {
        return std::find(completed.begin(), completed.end(), request) != completed.end();
    }

    std::vector<AgentRequest> completed;
    std::vector<std::string> commands;

private:
    Agent& agent_;
};

inline QtAgent::Options phonyOptions(bool voiceCommands = false)
{
    QtAgent::Options options;
    options.characterFolders = {characters};
    options.voiceCommands = voiceCommands;
    options.seed = 7;
    return options;
}

// Lets the loop run until `condition` holds, for at most `seconds`.
inline bool waitFor(const std::function<bool()>& condition, int seconds = 10)
{
    return QTest::qWaitFor(condition, seconds * 1000);
}

} // namespace corvel::testing
