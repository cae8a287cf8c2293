#pragma once

#include "base/call_events.h"
#include "character/agent.h"
#include "character/character_speech.h"
#include "records/call_log.h"
#include "records/caller_display.h"
#include "records/directory.h"
#include "telephony/call_state.h"
#include "telephony/line.h"

namespace corvel {

// Announces a caller when the line delivers caller ID: by directory name, by the name the
// network gives, or digit by digit; shows their picture and logs the call.
class CallerId {
public:
    // Longest caller number and name taken from the line; anything longer is cut.
    static constexpr std::size_t maxNumberBytes = 64;
    static constexpr std::size_t maxNameBytes = 64;

    CallerId(const Line& line, CallState& call, Agent& agent, CharacterSpeech& speech, const Directory& directory,
             CallerDisplay& display, CallLog& log, CallEvents& events);

    // The line's caller-ID event.
    void callerId();

private:
    void announceWithheld(bool withheld, bool unavailable);
    void announceNumber(const std::string& number, const std::string& digitsOnly, const std::string& name);

    const Line& line_;
    CallState& call_;
    Agent& agent_;
    CharacterSpeech& speech_;
    const Directory& directory_;
    CallerDisplay& display_;
    CallLog& log_;
    CallEvents& events_;
};

} // namespace corvel
