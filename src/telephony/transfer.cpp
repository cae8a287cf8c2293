// Putting the caller through: the caller hears the waiting prompt while the pick-up window
// asks the user to take the call on their own telephone.

#include <algorithm>
#include <limits>

#include "app/answer_phone.h"
#include "app/log.h"
#include "app/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::transfer()
{
    Line& line = phone_.ports.line;
    View& view = phone_.ports.view;
    CallControl& calls = phone_.calls;
    CallState& call = calls.state();

    call.callphase = CallPhase::PuttingThrough;
    if (call.callover) return;
    calls.stopPlaying();
    if (line.recording()) line.setRecording(false);
    view.showPickup();
    view.setPickupCaption(call.currentCaller);
    line.setPlayList(prompt("connect", "pleasewait.wav"));
    if (!calls.startPlay(CallControl::cantPlay("pleasewait.wav"))) return;
    line.setPlayRepeat(true);
    line.setPlaying(true);
    if (call.callover) return;

    // Not a number reads as 0; a negative time would keep the caller waiting to the limit.
    const long long seconds = text::leadingNumber(settings::readData(phone_.ports.settings, "transfer", "20"));
    call.countdown = static_cast<std::int16_t>(std::clamp<long long>(seconds, 0, std::numeric_limits<std::int16_t>::max()));
    while (call.countdown != 0 && !call.callover) {
        view.beep();
        view.setPickupCaption(call.currentCaller + " - " + std::to_string(call.countdown));
        if (!line.playing()) return; // the user has taken the call
        phone_.ports.loop.yield();
    }
    if (call.callover) return;
    line.setPlaying(false);
    if (line.playing()) line.setPlaying(false);
    if (!call.callover) leavemessage();
}

void CallHandling::pickupClicked()
{
    Line& line = phone_.ports.line;
    const std::string caller = phone_.calls.state().currentCaller; // standby clears it
    line.handOver();
    if (line.desktopCall()) phone_.ports.view.showDesktopCall(caller);
    phone_.calls.standby();
    unloadme();
}

void CallHandling::takeCall()
{
    if (phone_.calls.state().callphase != CallPhase::PuttingThrough) {
        log::info("no caller waits to be put through");
        return;
    }
    pickupClicked();
}

void CallHandling::hangUpDesktopCall()
{
    if (!phone_.ports.line.desktopCall()) {
        log::info("there is no call on the computer's microphone and speaker to hang up");
        return;
    }
    log::info("the user hangs up");
    phone_.ports.line.hangUpDesktopCall();
}

void CallHandling::unloadme()
{
    phone_.calls.standby();
    phone_.ports.view.unloadPickup();
}

} // namespace corvel
