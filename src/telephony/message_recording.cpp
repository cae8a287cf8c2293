// Taking a message from a caller whom nobody answers.

#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::leavemessage()
{
    CallState& call = calls_.state();

    display_.unload();
    view_.unloadPickup();
    call.callphase = CallPhase::TakingMessage;
    if (call.callover) return;
    line_.setDigitMonitoring(true);
    call.inmessage = true;
    call.entrydone = false;
    call.playdone = false;
    if (!calls_.playPromptAndWait(prompt("nobody", "nobodyavailable.wav"), CallControl::cantPlay("nobodyavailable.wav"), 15))
        return;

    if (call.callover) return;
    call.countdown = 10;
    calls_.waitUntil([&] { return call.wantsmessage || call.countdown == 0; });
    if (call.callover) return;
    if (!call.wantsmessage) {
        calls_.standby(); // the caller did not press 1
        return;
    }
    call.countdown = 0;

    call.playdone = false;
    call.entrydone = false;
    if (!calls_.playPromptAndWait(prompt("leavemessage", "leavemessage.wav"), CallControl::cantPlay("leavemessage.wav"), 15))
        return;
    if (call.callover) return;
    if (!call.playdone) {
        calls_.standby(); // the prompt did not end in its fifteen seconds
        return;
    }

    const auto slot = messages_.freeSlot(MessageStore::Kind::New);
    if (!slot) {
        calls_.standby();
        speech_.say("No more room left for messages!");
        view_.messageBox(MessageIcon::Stop, applicationTitle, "No more room for messages, sorry!");
        call.callover = true;
        calls_.standby();
        return;
    }
    if (call.callover) return;
    if (line_.recording()) line_.setRecording(false);
    line_.setRecordFile(*folder_.file(MessageStore::fileName(MessageStore::Kind::New, *slot, call.currentCaller)));
    line_.setRecording(true);
    call.countdown = 30;
    calls_.waitUntil([&] { return call.countdown == 0 || call.entrydone; });
    line_.setRecording(false);
    messages_.checkmessages();
    if (!call.callover) calls_.standby();
}

} // namespace corvel
