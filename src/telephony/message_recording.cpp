// Taking a message from a caller whom nobody answers.

#include <filesystem>

#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::leavemessage()
{
    CallState& call = with_.calls.state();

    with_.display.unload();
    with_.view.unloadPickup();
    call.callphase = CallPhase::TakingMessage;
    if (call.callover) return;
    with_.line.setDigitMonitoring(true);
    call.inmessage = true;
    call.entrydone = false;
    call.playdone = false;
    const std::string nobody = prompt("nobody", "nobodyavailable.wav");
    if (!with_.calls.playPromptAndWait(nobody, CallControl::cantPlay("nobodyavailable.wav"), 15))
        return;

    if (call.callover) return;
    call.countdown = 10;
    with_.calls.waitUntil([&] { return call.wantsmessage || call.countdown == 0; });
    if (call.callover) return;
    if (!call.wantsmessage) {
        with_.calls.standby(); // the caller did not press 1
        return;
    }
    call.countdown = 0;

    call.playdone = false;
    call.entrydone = false;
    const std::string leaveMessage = prompt("leavemessage", "leavemessage.wav");
    if (!with_.calls.playPromptAndWait(leaveMessage, CallControl::cantPlay("leavemessage.wav"), 15))
        return;
    if (call.callover) return;
    if (!call.playdone) {
        with_.calls.standby(); // the prompt did not end in its fifteen seconds
        return;
    }

    const auto slot = with_.messages.freeSlot(MessageStore::Kind::New);
    if (!slot) {
        with_.calls.standby();
        with_.speech.say("No more room left for messages!");
        with_.view.messageBox(MessageIcon::Stop, applicationTitle, "No more room for messages, sorry!");
        call.callover = true;
        with_.calls.standby();
        return;
    }
    if (call.callover) return;
    if (with_.line.recording()) with_.line.setRecording(false);
    const std::string caller = call.currentCaller; // a caller who hangs up ends the call before the recording
    const std::string name = MessageStore::fileName(MessageStore::Kind::New, *slot, caller);
    with_.line.setRecordFile(with_.folder.file(name)->string());
    with_.line.setRecording(true);
    call.countdown = 30;
    with_.calls.waitUntil([&] { return call.countdown == 0 || call.entrydone; });
    with_.line.setRecording(false);
    // Not counted behind a gap: a message played meanwhile moved the others down.
    const auto message = with_.folder.exists(name) ? with_.folder.file(with_.messages.settle(MessageStore::Kind::New, *slot, name))
                                                   : std::nullopt;
    with_.messages.checkmessages();
    if (message) with_.events.messageRecorded(*message, caller);
    if (!call.callover) with_.calls.standby();
}

} // namespace corvel
