// The dialogue with an answered caller: the greeting by the hour, then either asking for their
// number or reading back the number the network delivered.

#include "base/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::connected()
{
    if (!callIsOurs()) return;
    CallState& call = calls_.state();
    call.callphase = CallPhase::Interrogating;
    call.callInProgress = true;
    call.playdone = false;

    const auto now = loop_.localNow();
    const auto hour = std::chrono::hh_mm_ss(now - std::chrono::floor<std::chrono::days>(now)).hours().count();
    // Three tests, not a chain: exactly one of them holds.
    if (hour >= 0 && hour <= 11)
        calls_.playPrompt(prompt("morning", "goodmorning.wav"), CallControl::cantPlay("goodmorning.wav"));
    if (hour >= 12 && hour <= 17)
        calls_.playPrompt(prompt("afternoon", "goodafternoon.wav"), CallControl::cantPlay("goodafternoon.wav"));
    if (hour >= 18 && hour <= 23)
        calls_.playPrompt(prompt("evening", "goodevening.wav"), CallControl::cantPlay("goodevening.wav"));
    if (call.callover) return;

    const std::string caller = text::lower(call.currentCaller);
    const bool ask = settings::dataFlag(settings_, "ansall", "True") ||
                     (settings::dataFlag(settings_, "noid", "True") && call.currentCaller.empty()) ||
                     (caller == "withheld" && settings::dataFlag(settings_, "answithheld", "True")) ||
                     (caller == "unavailable" && settings::dataFlag(settings_, "ansunavailable", "True"));
    if (ask) interrogate();
    else readBackDeliveredNumber();
}

void CallHandling::interrogate()
{
    CallState& call = calls_.state();

    call.currentCaller.clear(); // from now on it collects the keyed digits
    // An entry finished in an earlier call must not cut this one's short.
    call.entrydone = false;
    line_.setDigitMonitoring(true);
    const auto keyed = [&] { return !call.currentCaller.empty(); };
    if (!calls_.playPromptAndWait(line_.playList() + "," + prompt("number", "askfornumber.wav"),
                                 CallControl::cantPlay("askfornumber.wav"), 25, keyed))
        return;
    if (call.callover) return;
    if (!keyed()) {
        call.countdown = 10;
        calls_.waitUntil([&] { return keyed() || call.countdown == 0; });
    }
    if (!keyed()) {
        calls_.standby(); // the caller keyed nothing
        return;
    }
    while (line_.callActive() && !call.entrydone) {
        // A caller who stops keying has ended the number.
        if (call.countdown == 0 && !call.entrydone && keyed()) digitpressed("#");
        if (call.countdown == 0 && !call.entrydone && call.currentCaller.size() < 2) {
            call.entrydone = true;
            call.callover = true;
            calls_.standby();
        }
        if (line_.callActive() && !call.entrydone) loop_.yield();
    }
}

void CallHandling::readBackDeliveredNumber()
{
    CallState& call = calls_.state();
    line_.setDigitMonitoring(true);
    // The caller is known by the digits alone from here: the pick-up caption, the message's
    // file name and the picture shown when it is played.
    call.currentCaller = text::removeAll(call.currentCaller, '-');
    if (!readBack(line_.playList(), call.currentCaller) || call.callover) return;
    calls_.stopPlaying();
    if (settings::dataFlag(settings_, "ansa", "True")) leavemessage();
    else transfer();
}

} // namespace corvel
