// Calls that screening sets apart: blocked callers turned away before anyone hears them.

#include "base/log.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::callerId()
{
    CallState& call = with_.calls.state();
    if (call.callInProgress) {
        with_.callerIdentity.callerId(); // an answered call goes on; this only shows the character
        return;
    }
    const CallerId::Identity caller = with_.callerIdentity.identify();
    call.screen = with_.screening.judge(caller.number, caller.withheld, caller.unavailable);
    if (call.screen == CallScreen::Blocked) callBlocked(caller.logText());
    else with_.callerIdentity.callerId(call.screen == CallScreen::Quiet);
}

void CallHandling::callBlocked(const std::string& callerText)
{
    CallState& call = with_.calls.state();
    call.callerIdReceived = true;
    call.currentCaller = callerText;
    log::info("turning away the blocked caller " + callerText);
    with_.blockedCalls.record(callerText);
    with_.events.callBlocked(callerText);
    // A line that can refuse the call does (SIP answers 603 Decline): answering only to play a
    // prompt would tell an automatic dialler that the number is live and worth calling again,
    // and no telephone of the user's shares a SIP line, so nothing rings on that needs stopping.
    // A modem answers, so that the user's telephone on the same line stops ringing at once.
    if (with_.line.decline()) return;
    with_.line.answer();
}

void CallHandling::turnAway()
{
    CallState& call = with_.calls.state();
    call.callInProgress = true;
    if (!with_.calls.playPromptAndWait(prompt("blocked", "blocked.wav"), CallControl::cantPlay("blocked.wav"), 15)) return;
    if (!call.callover) with_.calls.standby();
}

} // namespace corvel
