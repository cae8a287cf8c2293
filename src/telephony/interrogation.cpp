// The dialogue with an answered caller: the greeting by the hour, then either asking for their
// number or reading back the number the network delivered.

#include "base/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::connected()
{
    if (!callIsOurs()) return;
    CallState& call = with_.calls.state();
    if (call.screen == CallScreen::Blocked) {
        turnAway();
        return;
    }
    call.callphase = CallPhase::Interrogating;
    call.callInProgress = true;
    call.playdone = false;

    const auto now = with_.loop.localNow();
    const auto hour = std::chrono::hh_mm_ss(now - std::chrono::floor<std::chrono::days>(now)).hours().count();
    // Three tests, not a chain: exactly one of them holds.
    if (hour >= 0 && hour <= 11)
        with_.calls.playPrompt(prompt("morning", "goodmorning.wav"), CallControl::cantPlay("goodmorning.wav"));
    if (hour >= 12 && hour <= 17)
        with_.calls.playPrompt(prompt("afternoon", "goodafternoon.wav"), CallControl::cantPlay("goodafternoon.wav"));
    if (hour >= 18 && hour <= 23)
        with_.calls.playPrompt(prompt("evening", "goodevening.wav"), CallControl::cantPlay("goodevening.wav"));
    if (call.callover) return;
    if (call.screen == CallScreen::Quiet) {
        // Nobody is to be disturbed: the caller is offered a message straight away, known by
        // the digits of their number alone as a read-back caller is.
        call.currentCaller = text::removeAll(call.currentCaller, '-');
        call.countdown = 15; // the greeting first, heard whole
        with_.calls.waitUntil([&] { return call.playdone || call.countdown == 0 || call.callover; });
        if (call.callover) return;
        leavemessage();
        return;
    }

    const std::string caller = text::lower(call.currentCaller);
    const bool ask = settings::dataFlag(with_.settings, "ansall", "True") ||
                     (settings::dataFlag(with_.settings, "noid", "True") && call.currentCaller.empty()) ||
                     (caller == "withheld" && settings::dataFlag(with_.settings, "answithheld", "True")) ||
                     (caller == "unavailable" && settings::dataFlag(with_.settings, "ansunavailable", "True"));
    if (ask) interrogate();
    else readBackDeliveredNumber();
}

void CallHandling::interrogate()
{
    CallState& call = with_.calls.state();

    call.currentCaller.clear(); // from now on it collects the keyed digits
    // An entry finished in an earlier call must not cut this one's short.
    call.entrydone = false;
    with_.line.setDigitMonitoring(true);
    const auto keyed = [&] { return !call.currentCaller.empty(); };
    if (!with_.calls.playPromptAndWait(with_.line.playList() + "," + prompt("number", "askfornumber.wav"),
                                 CallControl::cantPlay("askfornumber.wav"), 25, keyed))
        return;
    if (call.callover) return;
    if (!keyed()) {
        call.countdown = 10;
        with_.calls.waitUntil([&] { return keyed() || call.countdown == 0; });
    }
    if (!keyed()) {
        with_.calls.standby(); // the caller keyed nothing
        return;
    }
    while (with_.line.callActive() && !call.entrydone) {
        // A caller who stops keying has ended the number.
        if (call.countdown == 0 && !call.entrydone && keyed()) digitpressed("#");
        if (call.countdown == 0 && !call.entrydone && call.currentCaller.size() < 2) {
            call.entrydone = true;
            call.callover = true;
            with_.calls.standby();
        }
        if (with_.line.callActive() && !call.entrydone) with_.loop.yield();
    }
}

void CallHandling::readBackDeliveredNumber()
{
    CallState& call = with_.calls.state();
    with_.line.setDigitMonitoring(true);
    // The caller is known by the digits alone from here: the pick-up caption, the message's
    // file name and the picture shown when it is played.
    call.currentCaller = text::removeAll(call.currentCaller, '-');
    if (!readBack(with_.line.playList(), call.currentCaller) || call.callover) return;
    with_.calls.stopPlaying();
    if (settings::dataFlag(with_.settings, "ansa", "True")) leavemessage();
    else transfer();
}

} // namespace corvel
