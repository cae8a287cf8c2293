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
    CallState& call = calls_.state();

    call.callphase = CallPhase::PuttingThrough;
    if (call.callover) return;
    calls_.stopPlaying();
    if (line_.recording()) line_.setRecording(false);
    view_.showPickup();
    view_.setPickupCaption(call.currentCaller);
    line_.setPlayList(prompt("connect", "pleasewait.wav"));
    if (!calls_.startPlay(CallControl::cantPlay("pleasewait.wav"))) return;
    line_.setPlayRepeat(true);
    line_.setPlaying(true);
    if (call.callover) return;

    // Not a number reads as 0; a negative time would keep the caller waiting to the limit.
    const long long seconds = text::leadingNumber(settings::readData(settings_, "transfer", "20"));
    call.countdown = static_cast<std::int16_t>(std::clamp<long long>(seconds, 0, std::numeric_limits<std::int16_t>::max()));
    while (call.countdown != 0 && !call.callover) {
        view_.beep();
        view_.setPickupCaption(call.currentCaller + " - " + std::to_string(call.countdown));
        if (!line_.playing()) return; // the user has taken the call
        loop_.yield();
    }
    if (call.callover) return;
    line_.setPlaying(false);
    if (line_.playing()) line_.setPlaying(false);
    if (!call.callover) leavemessage();
}

void CallHandling::pickupClicked()
{
    const std::string caller = calls_.state().currentCaller; // standby clears it
    line_.handOver();
    if (line_.desktopCall()) view_.showDesktopCall(caller);
    calls_.standby();
    unloadme();
}

void CallHandling::takeCall()
{
    if (calls_.state().callphase != CallPhase::PuttingThrough) {
        log::info("no caller waits to be put through");
        return;
    }
    pickupClicked();
}

void CallHandling::hangUpDesktopCall()
{
    if (!line_.desktopCall()) {
        log::info("there is no call on the computer's microphone and speaker to hang up");
        return;
    }
    log::info("the user hangs up");
    line_.hangUpDesktopCall();
}

void CallHandling::unloadme()
{
    calls_.standby();
    view_.unloadPickup();
}

} // namespace corvel
