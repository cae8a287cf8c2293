// Taking a message from a caller whom nobody answers.

#include "app/answer_phone.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::leavemessage()
{
    Line& line = phone_.ports.line;
    CallControl& calls = phone_.calls;
    CallState& call = calls.state();

    phone_.display.unload();
    phone_.ports.view.unloadPickup();
    call.callphase = CallPhase::TakingMessage;
    if (call.callover) return;
    line.setDigitMonitoring(true);
    call.inmessage = true;
    call.entrydone = false;
    call.playdone = false;
    if (!calls.playPromptAndWait(prompt("nobody", "nobodyavailable.wav"), CallControl::cantPlay("nobodyavailable.wav"), 15))
        return;

    if (call.callover) return;
    call.countdown = 10;
    calls.waitUntil([&] { return call.wantsmessage || call.countdown == 0; });
    if (call.callover) return;
    if (!call.wantsmessage) {
        calls.standby(); // the caller did not press 1
        return;
    }
    call.countdown = 0;

    call.playdone = false;
    call.entrydone = false;
    if (!calls.playPromptAndWait(prompt("leavemessage", "leavemessage.wav"), CallControl::cantPlay("leavemessage.wav"), 15))
        return;
    if (call.callover) return;
    if (!call.playdone) {
        calls.standby(); // the prompt did not end in its fifteen seconds
        return;
    }

    const auto slot = phone_.messages.freeSlot(MessageStore::Kind::New);
    if (!slot) {
        calls.standby();
        phone_.speech.say("No more room left for messages!");
        phone_.ports.view.messageBox(MessageIcon::Stop, applicationTitle, "No more room for messages, sorry!");
        call.callover = true;
        calls.standby();
        return;
    }
    if (call.callover) return;
    if (line.recording()) line.setRecording(false);
    line.setRecordFile(*phone_.ports.folder.file(MessageStore::fileName(MessageStore::Kind::New, *slot, call.currentCaller)));
    line.setRecording(true);
    call.countdown = 30;
    calls.waitUntil([&] { return call.countdown == 0 || call.entrydone; });
    line.setRecording(false);
    phone_.messages.checkmessages();
    if (!call.callover) calls.standby();
}

} // namespace corvel
