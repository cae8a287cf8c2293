#include "telephony/call_control.h"

#include <chrono>
#include <cmath>
#include <utility>

#include "base/log.h"

namespace corvel {
namespace {

constexpr Milliseconds second{1000};
// Rings come every six seconds or so; none for this long and a call nobody answered is over,
// for the network says nothing when the caller gives up.
constexpr Milliseconds ringsOverAfter{10000};
constexpr double secondsPerDay = 24 * 60 * 60;

bool isKey(char16_t code)
{
    return (code >= u'0' && code <= u'9') || code == u'*' || code == u'#' ||
           (code >= u'A' && code <= u'D');
}

} // namespace

CallControl::CallControl(EventLoop& loop, Line& line, View& view, CallEvents& events)
    : loop_(loop), line_(line), view_(view), events_(events)
{
    line_.setListener(this);
    timer1_ = loop_.createTimer([this] { timer1Tick(); });
    timer1_->setInterval(second);
    timer1_->setEnabled(true);
    timer2_ = loop_.createTimer([this] { timer2Tick(); });
    timer2_->setInterval(second);
    timer2_->setEnabled(true);
    ringsOver_ = loop_.createTimer(
        [this] {
            if (!state_.callInProgress && std::exchange(callKnown_, false)) events_.callEnded();
        },
        TimerKind::SingleShot);
    ringsOver_->setInterval(ringsOverAfter);
}

CallControl::~CallControl() { line_.setListener(nullptr); }

void CallControl::standby()
{
    view_.setBusyCursor(true);
    state_.countdown = 0;
    state_.callover = true;
    view_.unloadCallerPicture();
    view_.unloadPickup();

    // Each device gets a second chance to let go after pending events have run.
    if (line_.playing()) {
        line_.setPlaying(false);
        loop_.processPending();
        if (line_.playing()) line_.setPlaying(false);
    }
    if (line_.recording()) {
        line_.setRecording(false);
        loop_.processPending();
        if (line_.recording()) line_.setRecording(false);
    }
    if (line_.callActive()) {
        line_.setCallActive(false);
        line_.drop();
        loop_.processPending();
        if (line_.callActive()) {
            line_.setCallActive(false);
            line_.drop();
        }
    }
    loop_.processPending();
    line_.setDigitMonitoring(false);

    state_.callerIdReceived = false;
    state_.noCallerNumber = true;
    state_.currentCaller.clear();
    state_.idleCountdown = 0;
    state_.callphase = CallPhase::Idle;
    state_.inmessage = false;
    state_.wantsmessage = false;
    state_.screen = CallScreen::Ordinary;
    state_.lineflag = false;
    if (std::exchange(callKnown_, false)) events_.callEnded();
    wake(); // the lamps follow the line as it closes and opens again

    if (line_.lineOpen()) {
        line_.setLineOpen(false);
        pause(1);
        if (!line_.lineOpen()) line_.setLineOpen(true);
    }
    if (routines_) routines_->checkmessages();
    view_.setBusyCursor(false);
    state_.callInProgress = false;
}

void CallControl::pause(std::uint8_t seconds)
{
    const double start = loop_.secondsSinceMidnight();
    const auto elapsed = [&] {
        double now = loop_.secondsSinceMidnight();
        // The clock starts again from 0 at midnight; without this a pause begun just before
        // midnight would never end.
        if (now < start) now += secondsPerDay;
        return now - start;
    };
    // Something must wake the loop when the time is up, whatever else is going on.
    auto wake = loop_.createTimer([] {}, TimerKind::SingleShot);
    for (double left = seconds - elapsed(); left > 0; left = seconds - elapsed()) {
        wake->setInterval(Milliseconds(static_cast<Milliseconds::rep>(std::ceil(left * 1000))));
        wake->restart();
        loop_.yield();
    }
}

void CallControl::waitUntil(const std::function<bool()>& done)
{
    wake();
    while (!done()) loop_.yield();
}

void CallControl::lightKeypressLamp()
{
    wake();
    lamps_.l4 = true;
    lamps_.Label6 = true;
    showLamps();
}

std::string CallControl::cantPlay(std::string_view fileName)
{
    return "Sorry, there was an error whilst playing the " + std::string(fileName) +
           " file so I`m quitting!";
}

bool CallControl::startPlay(std::string_view failureText)
{
    if (line_.startPlay()) return true;
    log::warning("cannot play \"" + line_.playList() + "\" to the caller; ending the call");
    standby();
    view_.messageBox(MessageIcon::Stop, "Error!", failureText);
    return false;
}

void CallControl::stopPlaying()
{
    if (line_.playing()) line_.setPlaying(false);
}

bool CallControl::playPrompt(std::string list, std::string_view failureText)
{
    stopPlaying();
    line_.setPlayList(std::move(list));
    line_.setPlayRepeat(false);
    return startPlay(failureText);
}

bool CallControl::playPromptAndWait(std::string list, std::string_view failureText,
                                    std::int16_t seconds, const std::function<bool()>& until)
{
    stopPlaying();
    state_.playdone = false;
    if (!playPrompt(std::move(list), failureText)) return false;
    line_.setPlaying(true);
    state_.countdown = seconds;
    waitUntil([&] { return state_.playdone || state_.countdown == 0 || (until && until()); });
    stopPlaying();
    return true;
}

void CallControl::ring(std::int32_t count)
{
    wake();
    callKnown_ = true;
    ringsOver_->restart();
    events_.ringing(count);
    if (routines_) routines_->ring(count);
}

void CallControl::callerId()
{
    wake();
    callKnown_ = true;
    if (routines_) routines_->callerId();
}

void CallControl::connected()
{
    wake();
    if (routines_) routines_->connected();
}

void CallControl::digitReceived(char16_t digit)
{
    wake();
    // Only telephone keys are taken: the code comes from the far end of the line.
    if (!isKey(digit)) {
        log::warning("ignored a key code " + std::to_string(static_cast<unsigned>(digit)) +
                     " that no telephone sends");
        return;
    }
    if (digit == u'*') {
        state_.callover = true;
        standby();
        return;
    }
    if (routines_) routines_->digitpressed(std::string(1, static_cast<char>(digit)));
}

void CallControl::callOwnerChanged()
{
    // Claimed on every such event, whoever the owner is.
    line_.setOwnCall(true);
}

void CallControl::callStateChanged()
{
    wake();
    state_.lineflag = true;
}

// A fax would be handed over to a fax program here; that hand-over is switched off.
void CallControl::mediaModeChanged() {}

void CallControl::callerHungUp()
{
    wake();
    // Ends the answered call now rather than holding a dead line until the call timer runs out.
    if (state_.callInProgress && !state_.callover) standby();
}

void CallControl::playDone()
{
    wake();
    state_.playdone = true;
}

void CallControl::desktopCallEnded() { view_.closeDesktopCall(); }

void CallControl::timer1Tick()
{
    if (state_.callInProgress && state_.idleCountdown > 0) {
        --state_.idleCountdown;
        if (state_.idleCountdown == 0) standby();
    }
    if (state_.countdown > 0) --state_.countdown;
    if (!line_.ownerPrivilege() || !line_.monitorPrivilege()) {
        line_.setLineOpen(false);
        line_.setOwnerPrivilege(true);
        line_.setMonitorPrivilege(true);
        line_.setLineOpen(true);
    }
    sleepIfIdle();
}

void CallControl::timer2Tick()
{
    lamps_.l5 = line_.callActive() && !lamps_.l5;
    lamps_.l1 = line_.lineOpen();
    lamps_.l2 = line_.recording();
    lamps_.l3 = line_.playing();
    lamps_.l4 = false;
    showLamps();
    sleepIfIdle();
}

bool CallControl::nothingToDo() const
{
    const bool lineIdle = !line_.callActive() && !line_.playing() && !line_.recording() &&
                          line_.ownerPrivilege() && line_.monitorPrivilege();
    const bool lampsShowIt = !lamps_.l2 && !lamps_.l3 && !lamps_.l4 && !lamps_.l5 && lamps_.l1 == line_.lineOpen();
    return lineIdle && lampsShowIt && !state_.callInProgress && state_.countdown == 0 && !callKnown_;
}

void CallControl::sleepIfIdle()
{
    if (!nothingToDo()) return;
    timer1_->setEnabled(false);
    timer2_->setEnabled(false);
}

void CallControl::wake()
{
    if (!timer1_->enabled()) timer1_->setEnabled(true);
    if (!timer2_->enabled()) timer2_->setEnabled(true);
}

void CallControl::showLamps() { view_.showLamps(lamps_); }

} // namespace corvel
