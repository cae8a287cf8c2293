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
    CallState& call = calls_.state();
    if (call.callphase == CallPhase::PuttingThrough && digit == "1") {
        calls_.stopPlaying();
        call.countdown = 10;
        leavemessage();
        call.callphase = CallPhase::Idle;
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
    calls_.stopPlaying();
    calls_.lightKeypressLamp();
    if (digit == "#") endNumber();
    else if (call.currentCaller.size() < maxKeyedDigits) call.currentCaller += digit;
}

void CallHandling::endNumber()
{
    CallState& call = calls_.state();
    if (line_.recording()) line_.setRecording(false);
    call.entrydone = true;
    if (call.inmessage) return; // only the first "#" of a call
    call.inmessage = true;

    const std::string number = call.currentCaller;
    callLog_.append(" keyed - " + number);
    if (folder_.exists(Directory::fileName)) {
        std::string spelled;
        for (char c : number) (spelled += c) += ' ';
        const auto name = directory_.lookup(number);
        speech_.say((name ? *name : "") + ", " + spelled);
    }
    display_.loadPhotoOrDefault(text::removeAll(number, '-'));
    display_.show();
    callLog_.rebuild();
    if (readBack("", number)) transfer();
}

} // namespace corvel
