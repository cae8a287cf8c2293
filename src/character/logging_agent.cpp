#include "character/logging_agent.h"

#include <string>

#include "base/log.h"

namespace corvel {

bool LoggingAgent::load(std::string_view name)
{
    loaded_ = name;
    log::info("character: " + loaded_ + " (not drawn)");
    return true;
}

void LoggingAgent::unload(std::string_view name)
{
    if (name == loaded_) loaded_.clear();
}

AgentRequest LoggingAgent::speak(std::string_view text)
{
    log::info("say: " + std::string(text));
    return complete();
}

AgentRequest LoggingAgent::play(std::string_view) { return complete(); }

AgentRequest LoggingAgent::moveTo(int, int) { return complete(); }

// Every request is over as soon as it is made, and reported so from the loop as the real
// character would.
AgentRequest LoggingAgent::complete()
{
    const AgentRequest request = ++lastRequest_;
    loop_.post([this, request] { notifyRequestComplete(request); });
    return request;
}

} // namespace corvel
