// Counting rings, deciding to answer, and making sure an answered call is ours.

#include "base/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::ring(std::int32_t count)
{
    CallState& call = calls_.state();
    agent_.show();
    agent_.play("Alert");
    call.idleCountdown = 180;
    if (call.callInProgress) return;
    line_.setOwnCall(true);
    shake();
    if (count == 1) newCalls_.count();
    view_.selectTab("SSTab1", 0);
    call.callover = false;

    const long long rings = text::leadingNumber(settings::readData(settings_, "rings", "5"));
    const bool allcalls = settings::dataFlag(settings_, "allcalls", "False");
    if (count >= rings && (allcalls || (call.callerIdReceived && call.noCallerNumber))) line_.answer();
}

void CallHandling::shake()
{
    for (int shakes = 0; shakes < 5; ++shakes) {
        for (const double step : {1.0, -1.0}) {
            for (int move = 0; move < 100; ++move) {
                view_.shiftMainWindowDown(step);
                loop_.processPending();
            }
        }
    }
    loop_.processPending();
}

bool CallHandling::callIsOurs()
{
    const std::string owner = text::fromLine(line_.ownerApplication(), 260);
    if (text::lower(owner) == ownLineControl) return true;
    if (settings::readData(settings_, "warning1", "False") == "False") {
        view_.messageBox(
            MessageIcon::Stop, applicationTitle,
            "Because you have some other answer phone software monitoring this line, Corvel can`t take the call "
            "for you. Please turn the auto answer or receive setting OFF for the other application. Until you do "
            "this, I can`t answer the line. The application that has control of this call is " +
                owner + ". You won`t see this message again!");
    }
    settings::writeData(settings_, "warning1", "True");
    return false;
}

} // namespace corvel
