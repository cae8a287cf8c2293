// Counting rings, deciding to answer, and making sure an answered call is ours.

#include "app/answer_phone.h"
#include "app/text.h"
#include "telephony/call_handling.h"

namespace corvel {

void CallHandling::ring(std::int32_t count)
{
    CallState& call = phone_.calls.state();
    phone_.ports.agent.show();
    phone_.ports.agent.play("Alert");
    call.idleCountdown = 180;
    if (call.callInProgress) return;
    phone_.ports.line.setOwnCall(true);
    shake();
    if (count == 1) phone_.newCalls.count();
    phone_.ports.view.selectTab("SSTab1", 0);
    call.callover = false;

    const long long rings = text::leadingNumber(settings::readData(phone_.ports.settings, "rings", "5"));
    const bool allcalls = settings::dataFlag(phone_.ports.settings, "allcalls", "False");
    if (count >= rings && (allcalls || (call.callerIdReceived && call.noCallerNumber))) phone_.ports.line.answer();
}

void CallHandling::shake()
{
    View& view = phone_.ports.view;
    EventLoop& loop = phone_.ports.loop;
    for (int shakes = 0; shakes < 5; ++shakes) {
        for (const double step : {1.0, -1.0}) {
            for (int move = 0; move < 100; ++move) {
                view.shiftMainWindowDown(step);
                loop.processPending();
            }
        }
    }
    loop.processPending();
}

bool CallHandling::callIsOurs()
{
    const std::string owner = text::fromLine(phone_.ports.line.ownerApplication(), 260);
    if (text::lower(owner) == ownLineControl) return true;
    SettingsStore& settings = phone_.ports.settings;
    if (settings::readData(settings, "warning1", "False") == "False") {
        phone_.ports.view.messageBox(
            MessageIcon::Stop, applicationTitle,
            "Because you have some other answer phone software monitoring this line, Corvel can`t take the call "
            "for you. Please turn the auto answer or receive setting OFF for the other application. Until you do "
            "this, I can`t answer the line. The application that has control of this call is " +
                owner + ". You won`t see this message again!");
    }
    settings::writeData(settings, "warning1", "True");
    return false;
}

} // namespace corvel
