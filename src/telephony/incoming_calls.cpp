// Counting rings, deciding to answer, and making sure an answered call is ours.

#include "base/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::ring(std::int32_t count)
{
    CallState& call = with_.calls.state();
    with_.agent.show();
    with_.agent.play("Alert");
    call.idleCountdown = 180;
    if (call.callInProgress) return;
    with_.line.setOwnCall(true);
    shake();
    if (count == 1) with_.newCalls.count();
    with_.view.selectTab("SSTab1", 0);
    call.callover = false;

    const long long rings = text::leadingNumber(settings::readData(with_.settings, "rings", "5"));
    const bool allcalls = settings::dataFlag(with_.settings, "allcalls", "False");
    if (count >= rings && (allcalls || (call.callerIdReceived && call.noCallerNumber))) with_.line.answer();
}

void CallHandling::shake()
{
    for (int shakes = 0; shakes < 5; ++shakes) {
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
