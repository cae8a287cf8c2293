#include "records/caller_id.h"

#include "base/text.h"

namespace corvel {

CallerId::CallerId(const Line& line, CallState& call, Agent& agent, CharacterSpeech& speech,
                   const Directory& directory, CallerDisplay& display, CallLog& log, CallEvents& events)
    : line_(line), call_(call), agent_(agent), speech_(speech), directory_(directory), display_(display), log_(log),
      events_(events)
{
}

std::string CallerId::Identity::logText() const
{
    if (withheld) return "Withheld";
    if (unavailable) return "Unavailable";
    const std::string lowerNumber = text::lower(number);
    return lowerNumber.size() > 2 ? lowerNumber : text::lower(name);
}

CallerId::Identity CallerId::identify() const
{
    // The number and name are a stranger's text: made safe once, here.
    return {text::fromLine(line_.callerNumber(), maxNumberBytes), text::fromLine(line_.callerName(), maxNameBytes),
            line_.numberWithheld(), line_.numberUnavailable()};
}

void CallerId::say(const std::string& text)
{
    if (!quietly_) speech_.say(text);
}

void CallerId::callerId(bool quietly)
{
    quietly_ = quietly;
    if (!quietly) agent_.show();
    call_.idleCountdown = 180;
    if (call_.callInProgress) return;
    call_.inmessage = false;

    const auto [number, name, withheld, unavailable] = identify();
    const std::string digitsOnly = text::removeAll(number, '-');

    if (!quietly) {
        if (!withheld && !unavailable) {
            display_.loadPhotoOrDefault(digitsOnly);
            display_.setLabel(digitsOnly);
        } else {
            display_.loadPhoto("default.gif");
        }
        if (withheld) display_.loadPhoto("withheld.gif");
        if (unavailable) display_.loadPhoto("default.gif");
    }

    if (withheld || unavailable) announceWithheld(withheld, unavailable);
    else announceNumber(number, digitsOnly, name);
}

void CallerId::announceWithheld(bool withheld, bool unavailable)
{
    call_.noCallerNumber = true;
    if (withheld) {
        say(", Withheld!");
        call_.currentCaller = "Withheld";
    }
    if (unavailable) {
        say(", Number Unavailable!");
        call_.currentCaller = "Unavailable";
    }
    if (!quietly_) display_.show();
    display_.setLabel("Withheld"); // for an unavailable number too
    call_.callerIdReceived = true;
    if (withheld) log_.append("Withheld");
    if (unavailable) log_.append("Unavailable");
    log_.rebuild();
    announced(call_.currentCaller, unavailable ? "Number Unavailable" : "Withheld");
}

void CallerId::announceNumber(const std::string& number, const std::string& digitsOnly, const std::string& name)
{
    call_.noCallerNumber = false;
    std::string spelled;
    for (char c : number) (spelled += c) += ' ';

    // The spelled number is said digit by digit; followers are given it as written.
    std::string said = name;
    if (const auto known = directory_.lookup(digitsOnly)) {
        said = *known;
        say(said);
    } else if (text::containsNoCase(name, "private") || name.size() < 2) {
        said = number;
        say(", " + spelled);
    } else {
        say(", " + name);
    }

    if (!quietly_) display_.show();
    const std::string lowerNumber = text::lower(number);
    std::string label;
    if (lowerNumber.size() > 2) {
        label = lowerNumber;
        call_.currentCaller = lowerNumber;
    } else {
        label = text::lower(name);
    }
    display_.setLabel(label);
    log_.append(label);
    log_.rebuild();
    call_.callerIdReceived = true;
    announced(label, said);
}

void CallerId::announced(const std::string& caller, const std::string& said)
{
    // In quiet hours no picture was shown, and the desktop is not to be disturbed.
    events_.callerAnnounced({caller, said, quietly_ ? std::filesystem::path() : display_.picture(), quietly_});
}

} // namespace corvel
