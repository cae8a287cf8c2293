// A SIP call on the line: an INVITE ringing, answering it, the caller's keys, handing the call
// to the user's telephone or the desktop, and its end.

#include "telephony/sip/sip_line.h"

#include <linphone++/linphone.hh>

#include <malloc.h>

#include <algorithm>

#include "base/log.h"

namespace corvel {
namespace fs = std::filesystem;
namespace lp = linphone;

namespace {

// How often a call on the desktop's microphone and speaker is checked for sound going out, and
// how long at most between tries to give it sound again while the desktop has none.
constexpr Milliseconds desktopSoundInterval{3000};
constexpr Milliseconds desktopSoundRetryLimit{60000};

std::string describe(const sip::CallerIdentity& identity)
{
    if (identity.withheld) return "a withheld number";
    std::string text = identity.unavailable ? "an unavailable number" : identity.number;
    if (!identity.name.empty()) text += " (" + identity.name + ")";
    return text;
}

} // namespace

// --- Calls ---

void SipLine::callStateChanged(const std::shared_ptr<lp::Call>& call, int state, const std::string& message)
{
    switch (static_cast<lp::Call::State>(state)) {
    case lp::Call::State::IncomingReceived: incomingCall(call); break;
    case lp::Call::State::StreamsRunning:
        if (isCurrent(call) && call_->phase == CurrentCall::Phase::Answered && !call_->connected) {
            call_->connected = true;
            report([](LineEvents& e) { e.connected(); });
        } else if (isCurrent(call) && bridged_ && !desktopSoundLost_) {
            log::info("the caller talks to the desktop now");
            desktopSoundCheck_->setInterval(desktopSoundInterval);
            desktopSoundCheck_->setEnabled(true);
        }
        break;
    case lp::Call::State::Paused:
        // Held only to move its sound to the desktop: taken back at once.
        if (isCurrent(call) && bridged_ && call->resume() != 0) log::warning("the SIP stack would not take the call back");
        break;
    case lp::Call::State::End:
    case lp::Call::State::Error: callEnded(call, message); break;
    case lp::Call::State::Released: callReleased(call); break;
    default: break;
    }
}

void SipLine::incomingCall(const std::shared_ptr<lp::Call>& call)
{
    if (!core_ || !call) return;
    if (call_ && call_->phase != CurrentCall::Phase::Ended) {
        log::info("a second SIP caller hears busy");
        call->decline(lp::Reason::Busy);
        return;
    }
    sip::CallerHeaders headers;
    if (const auto from = call->getRemoteAddress()) {
        headers.fromDisplayName = from->getDisplayName();
        headers.fromUser = from->getUsername();
        headers.fromDomain = from->getDomain();
    }
    if (const auto remote = call->getRemoteParams()) {
        headers.assertedIdentity = remote->getCustomHeader("P-Asserted-Identity");
        headers.privacy = remote->getCustomHeader("Privacy");
        if (!headers.assertedIdentity.empty()) {
            // Anybody can write the header; it counts only from a peer that is known to check it.
            const std::string source = sip::viaSourceHost(remote->getCustomHeader("Via"));
            auto trusted = sip::trustedHosts(settings_);
            const auto accounts = sip::accounts(settings_);
            if (const sip::Account* account = chosenAccount(accounts)) trusted.push_back(account->domain);
            headers.assertedIdentityTrusted =
                !source.empty() && std::find(trusted.begin(), trusted.end(), source) != trusted.end();
        }
    }
    call_ = std::make_shared<CurrentCall>();
    call_->call = call;
    identity_ = sip::callerIdentity(headers);
    log::info("a SIP call from " + describe(identity_) + (open_ ? "" : " waits for the line to reopen"));
    setCallPace(true);
    if (open_) startRinging();
}

void SipLine::startRinging()
{
    call_->ringing = true;
    ring();
    // Between the first ring and the second, as the network delivers it on a telephone line.
    report([](LineEvents& e) { e.callerId(); });
}

void SipLine::ring()
{
    if (!call_ || call_->phase != CurrentCall::Phase::Ringing || !call_->ringing || !open_) {
        ringTimer_->setEnabled(false);
        return;
    }
    ++call_->rings;
    report([count = call_->rings](LineEvents& e) { e.ring(count); });
    const Milliseconds interval = sip::ringInterval(settings_);
    if (ringTimer_->interval() != interval) ringTimer_->setInterval(interval);
    ringTimer_->setEnabled(true);
}

void SipLine::callEnded(const std::shared_ptr<lp::Call>& call, const std::string& message)
{
    if (!isCurrent(call)) return;
    const CurrentCall::Phase phase = call_->phase;
    call_->phase = CurrentCall::Phase::Ended;
    ringTimer_->setEnabled(false);
    setCallPace(false);
    const lp::Reason reason = call->getReason();
    switch (phase) {
    case CurrentCall::Phase::Ringing:
        log::info("the SIP caller gave up before the answer" + (message.empty() ? "" : " (" + message + ")"));
        break;
    case CurrentCall::Phase::Answered:
        stopPlay();
        if (reason == lp::Reason::IOError) {
            log::warning("the SIP call was lost: no sound from the caller for " +
                         std::to_string(sip::mediaLossTime(settings_).count()) + " s");
        } else {
            log::info("the SIP caller hung up" + (message.empty() ? "" : " (" + message + ")"));
        }
        report([](LineEvents& e) { e.callerHungUp(); });
        break;
    case CurrentCall::Phase::HandedOver:
        log::info("the call handed over to " + call_->handedTo + " has ended");
        if (!bridged_) break;
        // Files again at once, not at the release: the next caller may ring before that.
        core_->setUseFiles(true);
        bridged_ = false;
        desktopSoundLost_ = false;
        desktopSoundCheck_->setEnabled(false);
        // The line may be closed for its reopening: the user's hang-up window must go all the same.
        reportEvenWhenClosed([](LineEvents& e) { e.desktopCallEnded(); });
        break;
    case CurrentCall::Phase::Ended: break; // ended by this line
    }
}

void SipLine::callReleased(const std::shared_ptr<lp::Call>& call)
{
    // The stack closes a recording when the call's streams stop: only now is the file whole.
    for (auto it = unfinished_.begin(); it != unfinished_.end();) {
        if (it->call == call) {
            sip::finishRecording(it->recorded, it->target);
            it = unfinished_.erase(it);
        } else {
            ++it;
        }
    }
    if (recording_ && recording_->call == call) recording_->call.reset(); // finished when stopped
    if (!isCurrent(call)) return;
    if (player_) player_->removeListener(eofListener_);
    player_.reset();
    playerOpen_ = false;
    call_.reset();
    // The stack frees a call's media in many small blocks: hand the heap's free tail back to the
    // system, or an answer phone that runs for months keeps the peak of every call.
    ::malloc_trim(0);
}

void SipLine::answer()
{
    if (!call_ || call_->phase != CurrentCall::Phase::Ringing || !core_) {
        log::info("the SIP line was answered with no call ringing");
        return;
    }
    ringTimer_->setEnabled(false);
    // The stack records into the file given at the answer, and adds to a file that is there:
    // each call gets a fresh one.
    call_->recordPath = options_.stateFolder / "recordings" /
                        ("call-" + std::to_string(::getpid()) + "-" + std::to_string(++recordings_) + ".wav");
    std::error_code ignored;
    fs::remove(call_->recordPath, ignored);
    try {
        const auto params = core_->createCallParams(call_->call);
        params->enableVideo(false);
        params->setRecordFile(call_->recordPath.string());
        call_->phase = CurrentCall::Phase::Answered;
        log::info("answering the SIP call");
        if (call_->call->acceptWithParams(params) != 0) {
            log::warning("the SIP call could not be answered");
            call_->phase = CurrentCall::Phase::Ended;
            call_->call->terminate();
        }
    } catch (const std::exception& failure) {
        log::warning(std::string("the SIP call could not be answered: ") + failure.what());
    }
}

bool SipLine::callActive() const { return call_ && call_->phase == CurrentCall::Phase::Answered; }

void SipLine::setCallActive(bool active)
{
    if (!active) drop();
    else if (call_ && call_->phase == CurrentCall::Phase::Ringing) answer();
}

void SipLine::drop()
{
    if (!call_) return;
    const CurrentCall::Phase phase = call_->phase;
    if (phase != CurrentCall::Phase::Ringing && phase != CurrentCall::Phase::Answered) return;
    stopPlay();
    if (recording_) setRecording(false);
    ringTimer_->setEnabled(false);
    call_->phase = CurrentCall::Phase::Ended;
    setCallPace(false);
    // The stack raises the end of the call before these return: that comes back as a task.
    if (phase == CurrentCall::Phase::Ringing) call_->call->decline(lp::Reason::Busy);
    else call_->call->terminate();
}

bool SipLine::decline()
{
    if (!call_ || call_->phase != CurrentCall::Phase::Ringing) return false;
    ringTimer_->setEnabled(false);
    call_->phase = CurrentCall::Phase::Ended;
    setCallPace(false);
    log::info("declining the SIP call");
    // 603 Decline: the caller's network tells them the call was refused and offers them no
    // retry elsewhere; the stack raises the call's end, which comes back as a task.
    call_->call->decline(lp::Reason::Declined);
    return true;
}

void SipLine::handOver()
{
    if (!callActive() || !core_) {
        log::info("there is no SIP call to hand over");
        return;
    }
    stopPlay();
    if (recording_) setRecording(false);
    const std::string phone = sip::handOverPhone(settings_);
    if (!phone.empty()) {
        const auto accounts = sip::accounts(settings_);
        const std::string target = sip::handOverAddress(phone, chosenAccount(accounts));
        const auto address = target.empty() ? nullptr : core_->createAddress(target);
        if (!address) {
            log::warning("cannot hand the caller over to \"" + phone +
                         "\": it is no SIP address (give sip:user@host); the desktop takes the call instead");
        } else if (call_->call->transferTo(address) != 0) {
            log::warning("the SIP stack would not hand the caller over to " + target +
                         "; the desktop takes the call instead");
        } else {
            call_->phase = CurrentCall::Phase::HandedOver;
            call_->handedTo = target;
            log::info("handing the caller over to " + target);
            return;
        }
    }
    bridgeToDesktop();
}

// The caller talks to the computer's own microphone and speaker, as on a desktop telephone.
void SipLine::bridgeToDesktop()
{
    call_->phase = CurrentCall::Phase::HandedOver;
    call_->handedTo = "the desktop";
    bridged_ = true;
    if (!useDesktopSound()) return;
    // The call's sound runs on files until now; the stack builds it anew on the devices only
    // when the call changes state, so the caller is held for a moment and taken back.
    core_->setUseFiles(false);
    if (call_->call->pause() != 0) {
        log::warning("the SIP stack would not move the call to the desktop's microphone and speaker");
        return;
    }
    log::info("moving the caller to the desktop");
}

bool SipLine::useDesktopSound()
{
    core_->reloadSoundDevices(); // a headset plugged in since the stack started counts too
    std::shared_ptr<lp::AudioDevice> microphone;
    std::shared_ptr<lp::AudioDevice> speaker;
    for (const auto& device : core_->getExtendedAudioDevices()) {
        if (!microphone && device->hasCapability(lp::AudioDevice::Capabilities::CapabilityRecord)) microphone = device;
        if (!speaker && device->hasCapability(lp::AudioDevice::Capabilities::CapabilityPlay)) speaker = device;
    }
    if (!microphone || !speaker) {
        log::warning("the computer has no microphone or speaker for the caller, who hears nothing until they hang up");
        return false;
    }
    call_->call->setInputAudioDevice(microphone);
    call_->call->setOutputAudioDevice(speaker);
    log::info("the desktop call uses the microphone " + microphone->getId() + " and the speaker " + speaker->getId());
    return true;
}

// A desktop call that sends the caller nothing has lost its sound: the sound server went away,
// and the stack never reconnects to it by itself. Renewed on the devices there are now, which
// reach the server afresh, the call has sound again once the server is back.
void SipLine::checkDesktopSound()
{
    if (!desktopCall()) {
        desktopSoundCheck_->setEnabled(false);
        return;
    }
    if (call_->call->getState() != lp::Call::State::StreamsRunning) return;
    const auto stats = call_->call->getAudioStats();
    if (stats && stats->getUploadBandwidth() > 0) {
        if (std::exchange(desktopSoundLost_, false)) log::info("the desktop call has sound again");
        desktopSoundCheck_->setInterval(desktopSoundInterval);
        return;
    }
    if (!std::exchange(desktopSoundLost_, true)) {
        log::warning("the desktop call has lost its sound (has the sound server stopped?); it is renewed on the "
                     "devices there are now");
    }
    // Each renewal asks the caller anew (a re-INVITE): less often while the desktop stays silent.
    desktopSoundCheck_->setInterval(std::min(desktopSoundCheck_->interval() * 2, desktopSoundRetryLimit));
    if (!useDesktopSound()) return;
    // The stack takes other devices into a running call only when the call is renewed.
    if (call_->call->update(core_->createCallParams(call_->call)) != 0) {
        log::warning("the SIP stack would not renew the desktop call");
    }
}

bool SipLine::desktopCall() const
{
    return bridged_ && call_ && call_->phase == CurrentCall::Phase::HandedOver;
}

void SipLine::hangUpDesktopCall()
{
    if (!desktopCall()) return;
    log::info("hanging up the call on the desktop");
    call_->call->terminate(); // its end comes back as a task, which reports it
}

void SipLine::transferStateChanged(const std::shared_ptr<lp::Call>& call, int state)
{
    if (!call_ || call_->call != call) return;
    switch (static_cast<lp::Call::State>(state)) {
    case lp::Call::State::Connected: log::info("the caller has been handed over to " + call_->handedTo); break;
    case lp::Call::State::Error:
        log::warning("handing the caller over to " + call_->handedTo + " failed; the call ends");
        call->terminate();
        break;
    default: break;
    }
}

void SipLine::keyReceived(const std::shared_ptr<lp::Call>& call, char key)
{
    if (!isCurrent(call) || call_->phase != CurrentCall::Phase::Answered || !digitMonitoring()) return;
    log::info(std::string("the SIP caller keyed ") + key);
    report([digit = static_cast<char16_t>(static_cast<unsigned char>(key))](LineEvents& e) { e.digitReceived(digit); });
}

} // namespace corvel
