#include "records/caller_id.h"

#include "base/text.h"

namespace corvel {

CallerId::CallerId(const Line& line, CallState& call, Agent& agent, CharacterSpeech& speech,
                   const Directory& directory, CallerDisplay& display, CallLog& log, CallEvents& events)
    : line_(line), call_(call), agent_(agent), speech_(speech), directory_(directory), display_(display), log_(log),
      events_(events)
{
}

void CallerId::callerId()
{
    agent_.show();
    call_.idleCountdown = 180;
    if (call_.callInProgress) return;
    call_.inmessage = false;

    // The number and name are a stranger's text: made safe once, here.
    const std::string number = text::fromLine(line_.callerNumber(), maxNumberBytes);
    const std::string name = text::fromLine(line_.callerName(), maxNameBytes);
    const bool withheld = line_.numberWithheld();
    const bool unavailable = line_.numberUnavailable();
    const std::string digitsOnly = text::removeAll(number, '-');

    if (!withheld && !unavailable) {
        display_.loadPhotoOrDefault(digitsOnly);
        display_.setLabel(digitsOnly);
    } else {
        display_.loadPhoto("default.gif");
    }
    if (withheld) display_.loadPhoto("withheld.gif");
    if (unavailable) display_.loadPhoto("default.gif");

    if (withheld || unavailable) announceWithheld(withheld, unavailable);
    else announceNumber(number, digitsOnly, name);
}

void CallerId::announceWithheld(bool withheld, bool unavailable)
{
    call_.noCallerNumber = true;
    if (withheld) {
        speech_.say(", Withheld!");
        call_.currentCaller = "Withheld";
    }
    if (unavailable) {
        speech_.say(", Number Unavailable!");
        call_.currentCaller = "Unavailable";
    }
    display_.show();
    display_.setLabel("Withheld"); // for an unavailable number too
    call_.callerIdReceived = true;
    if (withheld) log_.append("Withheld");
    if (unavailable) log_.append("Unavailable");
    log_.rebuild();
    events_.callerAnnounced({call_.currentCaller, unavailable ? "Number Unavailable" : "Withheld", display_.picture()});
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
        speech_.say(said);
    } else if (text::containsNoCase(name, "private") || name.size() < 2) {
        said = number;
        speech_.say(", " + spelled);
    } else {
        speech_.say(", " + name);
    }

    display_.show();
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
    events_.callerAnnounced({label, said, display_.picture()});
}

} // namespace corvel
