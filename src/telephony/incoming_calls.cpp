// Counting rings, deciding to answer, and making sure an answered call is ours.

#include "base/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::ring(std::int32_t count)
{
    CallState& call = with_.calls.state();
    // A new call's caller is screened afresh when their caller ID comes.
    if (count == 1 && !call.callInProgress) call.screen = CallScreen::Ordinary;
    const bool quiet = with_.screening.quietHours();
    const bool unseen = quiet || call.screen == CallScreen::Blocked; // no character, no shaking
    if (!unseen) {
        with_.agent.show();
        with_.agent.play("Alert");
    }
    call.idleCountdown = 180;
    if (call.callInProgress) return;
    with_.line.setOwnCall(true);
    if (!unseen) shake();
    if (count == 1) with_.newCalls.count();
    with_.view.selectTab("SSTab1", 0);
    call.callover = false;

    // A blocked caller was dealt with at their caller ID; a trusted one rings for the user.
    if (call.screen == CallScreen::Blocked || call.screen == CallScreen::Trusted) return;
    const long long rings = text::leadingNumber(settings::readData(with_.settings, "rings", "5"));
    if (quiet && ((count >= 2 && call.callerIdReceived) || count >= rings)) {
        // Quiet hours: taken on the first ring after caller ID (on a line without caller ID,
        // when the rings are up) for a message.
        call.screen = CallScreen::Quiet;
        with_.line.answer();
        return;
    }
    const bool allcalls = settings::dataFlag(with_.settings, "allcalls", "False");
    if (count >= rings && (allcalls || (call.callerIdReceived && call.noCallerNumber))) with_.line.answer();
}

void CallHandling::shake()
{
    // A thousand turns of the loop to move a window that is not there would only delay the
    // answer; the last turn stays, in which a caller ID sent with the ring is heard first.
    for (int shakes = 0; shakes < 5 && with_.view.hasMainWindow(); ++shakes) {
        for (const double step : {1.0, -1.0}) {
            for (int move = 0; move < 100; ++move) {
                with_.view.shiftMainWindowDown(step);
                with_.loop.processPending();
            }
        }
    }
    with_.loop.processPending();
}

bool CallHandling::callIsOurs()
{
    const std::string owner = text::fromLine(with_.line.ownerApplication(), 260);
    if (text::lower(owner) == ownLineControl) return true;
    if (settings::readData(with_.settings, "warning1", "False") == "False") {
        with_.view.messageBox(
            MessageIcon::Stop, applicationTitle,
            "Because you have some other answer phone software monitoring this line, Corvel can`t take the call "
            "for you. Please turn the auto answer or receive setting OFF for the other application. Until you do "
            "this, I can`t answer the line. The application that has control of this call is " +
                owner + ". You won`t see this message again!");
    }
    settings::writeData(with_.settings, "warning1", "True");
    return false;
}

} // namespace corvel
