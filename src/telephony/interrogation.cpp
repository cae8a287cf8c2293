// The dialogue with an answered caller: the greeting by the hour, then either asking for their
// number or reading back the number the network delivered.

#include "app/answer_phone.h"
#include "app/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::connected()
{
    if (!callIsOurs()) return;
    CallControl& calls = phone_.calls;
    CallState& call = calls.state();
    call.callphase = CallPhase::Interrogating;
    call.callInProgress = true;
    call.playdone = false;

    const auto now = phone_.ports.loop.localNow();
    const auto hour = std::chrono::hh_mm_ss(now - std::chrono::floor<std::chrono::days>(now)).hours().count();
    // Three tests, not a chain: exactly one of them holds.
    if (hour >= 0 && hour <= 11)
        calls.playPrompt(prompt("morning", "goodmorning.wav"), CallControl::cantPlay("goodmorning.wav"));
    if (hour >= 12 && hour <= 17)
        calls.playPrompt(prompt("afternoon", "goodafternoon.wav"), CallControl::cantPlay("goodafternoon.wav"));
    if (hour >= 18 && hour <= 23)
        calls.playPrompt(prompt("evening", "goodevening.wav"), CallControl::cantPlay("goodevening.wav"));
    if (call.callover) return;

    const SettingsStore& settings = phone_.ports.settings;
    const std::string caller = text::lower(call.currentCaller);
    const bool ask = settings::dataFlag(settings, "ansall", "True") ||
                     (settings::dataFlag(settings, "noid", "True") && call.currentCaller.empty()) ||
                     (caller == "withheld" && settings::dataFlag(settings, "answithheld", "True")) ||
                     (caller == "unavailable" && settings::dataFlag(settings, "ansunavailable", "True"));
    if (ask) interrogate();
    else readBackDeliveredNumber();
}

void CallHandling::interrogate()
{
    Line& line = phone_.ports.line;
    CallControl& calls = phone_.calls;
    CallState& call = calls.state();

    call.currentCaller.clear(); // from now on it collects the keyed digits
    // An entry finished in an earlier call must not cut this one's short.
    call.entrydone = false;
    line.setDigitMonitoring(true);
    const auto keyed = [&] { return !call.currentCaller.empty(); };
    if (!calls.playPromptAndWait(line.playList() + "," + prompt("number", "askfornumber.wav"),
                                 CallControl::cantPlay("askfornumber.wav"), 25, keyed))
        return;
    if (call.callover) return;
    if (!keyed()) {
        call.countdown = 10;
        calls.waitUntil([&] { return keyed() || call.countdown == 0; });
    }
    if (!keyed()) {
        calls.standby(); // the caller keyed nothing
        return;
    }
    while (line.callActive() && !call.entrydone) {
        // A caller who stops keying has ended the number.
        if (call.countdown == 0 && !call.entrydone && keyed()) digitpressed("#");
        if (call.countdown == 0 && !call.entrydone && call.currentCaller.size() < 2) {
            call.entrydone = true;
            call.callover = true;
            calls.standby();
        }
        if (line.callActive() && !call.entrydone) phone_.ports.loop.yield();
    }
}

void CallHandling::readBackDeliveredNumber()
{
    CallState& call = phone_.calls.state();
    phone_.ports.line.setDigitMonitoring(true);
    // The caller is known by the digits alone from here: the pick-up caption, the message's
    // file name and the picture shown when it is played.
    call.currentCaller = text::removeAll(call.currentCaller, '-');
    if (!readBack(phone_.ports.line.playList(), call.currentCaller) || call.callover) return;
    phone_.calls.stopPlaying();
    if (settings::dataFlag(phone_.ports.settings, "ansa", "True")) leavemessage();
    else transfer();
}

} // namespace corvel
