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

    // Who the line says is calling, made safe to show, speak and log.
    struct Identity {
        std::string number; // as delivered, dashes kept
        std::string name;
        bool withheld = false;
        bool unavailable = false;
        // The caller as the call log names them: "Withheld", "Unavailable", the number in
        // lower case, or the name when the number is too short to be one.
        std::string logText() const;
    };

    CallerId(const Line& line, CallState& call, Agent& agent, CharacterSpeech& speech, const Directory& directory,
             CallerDisplay& display, CallLog& log, CallEvents& events);

    Identity identify() const;
    // The line's caller-ID event. `quietly` (quiet hours) keeps the character and the picture
    // out of it: the call is only logged.
    void callerId(bool quietly = false);

private:
    void announceWithheld(bool withheld, bool unavailable);
    void announceNumber(const std::string& number, const std::string& digitsOnly, const std::string& name);
    void say(const std::string& text);
    void announced(const std::string& caller, const std::string& said);

    const Line& line_;
    CallState& call_;
    Agent& agent_;
    CharacterSpeech& speech_;
    const Directory& directory_;
    CallerDisplay& display_;
    CallLog& log_;
    CallEvents& events_;
    bool quietly_ = false;
};

} // namespace corvel
