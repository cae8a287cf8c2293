// The keys an answered caller presses: their number while they are asked for it, "1" for a
// message while they wait to be put through, and any key to end their message.

#include "base/text.h"
#include "telephony/call_handling.h"

namespace corvel {
namespace {

// Longer than any telephone number; a caller who keys on and on adds nothing more.
constexpr std::size_t maxKeyedDigits = 32;

} // namespace

void CallHandling::digitpressed(std::string_view digit)
{
    CallState& call = with_.calls.state();
    if (call.callphase == CallPhase::PuttingThrough && digit == "1") {
        takeMessage();
        return;
    }
    // Any other key would stop the waiting prompt, which the wait takes for the user having
    // picked up: the caller would be left in silence until the call timer ran out.
    if (call.callphase == CallPhase::PuttingThrough) return;
    if (call.callphase == CallPhase::TakingMessage) {
        if (digit == "1") call.wantsmessage = true;
        call.entrydone = true;
        return;
    }
    if (call.callover) return;
    call.countdown = 5; // the caller has five seconds for the next key
    with_.calls.stopPlaying();
    with_.calls.lightKeypressLamp();
    if (digit == "#") endNumber();
    else if (call.currentCaller.size() < maxKeyedDigits) call.currentCaller += digit;
}

void CallHandling::endNumber()
{
    CallState& call = with_.calls.state();
    if (with_.line.recording()) with_.line.setRecording(false);
    call.entrydone = true;
    if (call.inmessage) return; // only the first "#" of a call
    call.inmessage = true;

    const std::string number = call.currentCaller;
    with_.callLog.append(" keyed - " + number);
    const bool listed = with_.folder.exists(Directory::fileName);
    const auto name = listed ? with_.directory.lookup(number) : std::nullopt;
    if (listed) {
        std::string spelled;
        for (char c : number) (spelled += c) += ' ';
        with_.speech.say((name ? *name : "") + ", " + spelled);
    }
    with_.display.loadPhotoOrDefault(text::removeAll(number, '-'));
    with_.display.show();
    with_.events.callerAnnounced({number, name ? *name : number, with_.display.picture()});
    with_.callLog.rebuild();
    if (readBack("", number)) transfer();
}

} // namespace corvel
