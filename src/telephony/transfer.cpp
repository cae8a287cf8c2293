// Putting the caller through: the caller hears the waiting prompt while the pick-up window
// asks the user to take the call on their own telephone.

#include <algorithm>
#include <limits>

#include "base/log.h"
#include "base/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::transfer()
{
    CallState& call = with_.calls.state();

    call.callphase = CallPhase::PuttingThrough;
    if (call.callover) return;
    with_.calls.stopPlaying();
    if (with_.line.recording()) with_.line.setRecording(false);
    with_.view.showPickup();
    with_.view.setPickupCaption(call.currentCaller);
    with_.events.callerWaiting(call.currentCaller);
    with_.line.setPlayList(prompt("connect", "pleasewait.wav"));
    if (!with_.calls.startPlay(CallControl::cantPlay("pleasewait.wav"))) return;
    with_.line.setPlayRepeat(true);
    with_.line.setPlaying(true);
    if (call.callover) return;

    // Not a number reads as 0; a negative time would keep the caller waiting to the limit.
    const long long seconds = text::leadingNumber(settings::readData(with_.settings, "transfer", "20"));
    call.countdown = static_cast<std::int16_t>(std::clamp<long long>(seconds, 0, std::numeric_limits<std::int16_t>::max()));
    while (call.countdown != 0 && !call.callover) {
        with_.view.beep();
        with_.view.setPickupCaption(call.currentCaller + " - " + std::to_string(call.countdown));
        if (!with_.line.playing()) return; // the user has taken the call
        with_.loop.yield();
    }
    if (call.callover) return;
    with_.line.setPlaying(false);
    if (with_.line.playing()) with_.line.setPlaying(false);
    if (!call.callover) leavemessage();
}

void CallHandling::pickupClicked()
{
    const std::string caller = with_.calls.state().currentCaller; // standby clears it
    with_.line.handOver();
    if (with_.line.desktopCall()) with_.view.showDesktopCall(caller);
    with_.calls.standby();
    unloadme();
}

void CallHandling::takeCall()
{
    if (with_.calls.state().callphase != CallPhase::PuttingThrough) {
        log::info("no caller waits to be put through");
        return;
    }
    pickupClicked();
}

void CallHandling::takeMessage()
{
    CallState& call = with_.calls.state();
    if (call.callphase != CallPhase::PuttingThrough) {
        log::info("no caller waits to be put through");
        return;
    }
    with_.calls.stopPlaying();
    call.countdown = 10;
    leavemessage();
    call.callphase = CallPhase::Idle;
}

void CallHandling::hangUp()
{
    if (with_.line.desktopCall()) {
        hangUpDesktopCall();
    } else if (with_.calls.state().callInProgress) {
        log::info("the user ends the call");
        with_.calls.standby();
    } else {
        log::info("there is no call to hang up");
    }
}

void CallHandling::hangUpDesktopCall()
{
    if (!with_.line.desktopCall()) {
        log::info("there is no call on the computer's microphone and speaker to hang up");
        return;
    }
    log::info("the user hangs up");
    with_.line.hangUpDesktopCall();
}

void CallHandling::unloadme()
{
    with_.calls.standby();
    with_.view.unloadPickup();
}

} // namespace corvel
