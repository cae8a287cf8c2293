#include "character/logging_agent.h"

#include <string>

#include "app/log.h"

namespace corvel {

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
    loop_.post([this, request] {
        if (listener()) listener()->requestComplete(request);
    });
    return request;
}

} // namespace corvel
