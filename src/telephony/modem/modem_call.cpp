// The call on a voice modem: rings and caller ID, answering, the caller's keys, handing the
// call to the user's telephone and hanging up.

#include "telephony/modem/modem_line.h"

#include <algorithm>

#include "base/log.h"

namespace corvel::modem {
namespace {

constexpr Milliseconds callerIdSettles{300}; // the lines of one caller-ID block come this close together
constexpr Milliseconds ringsMerge{1000};     // a UK double ring may come as two RINGs

} // namespace

// --- Calls ---

void ModemLine::unsolicited(std::string_view line, LineKind kind, bool duringCommand)
{
    if (kind == LineKind::Ring) {
        ring();
        return;
    }
    if (kind == LineKind::Cadence) return; // distinctive-ring timing, never a ring
    if (callerId_.feed(line)) {
        callerIdLine();
        return;
    }
    if (duringCommand) return; // part of a response
    if (kind == LineKind::NoCarrier && callActive_) {
        callerLeft("NO CARRIER");
        return;
    }
    log::info("the modem said, unasked: \"" + log::printable(line) + "\"");
}

void ModemLine::newCall()
{
    ringing_ = true;
    ringCount_ = 0;
    ringInterval_ = Milliseconds{0};
    callerId_.clear();
    callerIdReported_ = false;
    callerNumber_.clear();
    callerName_.clear();
    numberWithheld_ = false;
    numberUnavailable_ = false;
    callerGone_ = false;
    mediaReported_ = false;
}

void ModemLine::ring()
{
    if (state_ != State::Idle && state_ != State::Starting) return; // a call is up: not a new one
    const Milliseconds at = now();
    if (ringing_ && ringCount_ > 0 && at - lastRingAt_ < ringsMerge) {
        lastRingAt_ = at; // the second burst of a double ring
    } else {
        if (!ringing_) newCall();
        if (ringCount_ > 0) ringInterval_ = at - lastRingAt_;
        lastRingAt_ = at;
        // Caller ID that came before this ring is reported before it.
        if (callerIdTimer_->enabled()) {
            callerIdTimer_->setEnabled(false);
            reportCallerId();
        }
        ++ringCount_;
        report([count = ringCount_](LineEvents& e) { e.ring(count); });
    }
    // Ringing has stopped when the next ring is well overdue.
    Milliseconds wait = options_.ringingStopsAfter;
    if (ringInterval_ > Milliseconds{0}) wait = std::clamp(ringInterval_ * 3 / 2, Milliseconds{2000}, wait);
    ringTimer_->setInterval(wait);
    ringTimer_->setEnabled(true);
}

void ModemLine::ringingStopped()
{
    if (!ringing_ || state_ != State::Idle) return;
    ringing_ = false;
    log::info("the caller stopped ringing after " + std::to_string(ringCount_) + " ring" + (ringCount_ == 1 ? "" : "s"));
}

void ModemLine::callerIdLine()
{
    if (state_ != State::Idle && state_ != State::Starting && !ringing_) return;
    if (!ringing_) {
        // In the UK the caller ID comes before the first ring: it opens the call.
        newCall();
        ringTimer_->setInterval(options_.ringingStopsAfter);
        ringTimer_->setEnabled(true);
    }
    callerIdTimer_->setInterval(callerIdSettles);
    callerIdTimer_->setEnabled(true);
}

void ModemLine::reportCallerId()
{
    if (!ringing_ || callerIdReported_) return;
    const CallerIdentity& who = callerId_.identity();
    callerNumber_ = who.number;
    callerName_ = who.name;
    numberWithheld_ = who.withheld;
    // Caller ID with no number in it (a date alone, an undecodable item) tells nothing either.
    numberUnavailable_ = who.unavailable || (!who.withheld && who.number.empty());
    callerIdReported_ = true;
    log::info("caller ID: " + (numberWithheld_ ? std::string("withheld") :
                               numberUnavailable_ ? std::string("unavailable") : log::printable(callerNumber_)) +
              (callerName_.empty() ? "" : ", " + log::printable(callerName_)));
    report([](LineEvents& e) { e.callerId(); });
}

void ModemLine::answer()
{
    if (ringing_ && state_ == State::Starting) {
        // Rung before the set-up had finished: answered as soon as it has.
        answerWhenReady_ = true;
        callActive_ = true;
        return;
    }
    if (!ringing_ || state_ != State::Idle) {
        log::info("the modem was asked to answer with no call ringing");
        return;
    }
    const VoiceModem* modem = chosen();
    ringing_ = false;
    ringTimer_->setEnabled(false);
    callerIdTimer_->setEnabled(false); // a call answered before its caller ID never gets it
    callActive_ = true;
    hangUpWanted_ = false;
    handOverWanted_ = false;
    setState(State::Answering);
    std::vector<std::string> steps;
    if (modem && modem->dialect == Dialect::Hash) {
        steps = {"AT#CLS=8", modem->usRobotics ? "AT#VLS=0A" : "AT#VLS=0", "?AT#VTD=3F,3F,3F"};
        if (!modem->usRobotics) steps.insert(steps.begin() + 2, "ATA");
    } else {
        steps = {"AT+FCLASS=8"};
        if (extensionEvents_) steps.push_back("?AT-STE=7");
        steps.push_back("AT+VLS=1");
        const std::string vsm = "AT+VSM=" + std::to_string(codec_ ? codec_->compression.id : 0) + "," +
                                std::to_string(codec_ ? codec_->rate : 8000);
        steps.push_back(vsm);
        steps.push_back("?AT+IFC=2,2"); // some USB modems refuse flow control commands: harmless
    }
    run(steps, [this](bool ok, const std::string& failed, const Reply& reply) {
        if (!ok) {
            if (reply.lost) return;
            if (failed.starts_with("AT+VSM=") && reply.result == LineKind::Error) {
                // Some modems want the silence settings spelt out as well.
                channel_.command(failed + ",0,0", options_.commandTimeout, [this](const Reply& again) {
                    if (again.ok()) return answered();
                    log::warning("the modem would not take the sound format: " + again.describe());
                    callActive_ = false;
                    hangUp();
                });
                return;
            }
            log::warning("the modem would not answer: " + failed + " (" + reply.describe() + ")");
            callActive_ = false;
            if (reply.timedOut) return recover("it did not answer " + failed);
            hangUp();
            return;
        }
        answered();
    });
}

void ModemLine::answered()
{
    setState(State::OffHook);
    if (!callActive_) {
        hangUp(); // dropped while it was being answered
        return;
    }
    log::info("answered the call");
    report([](LineEvents& e) { e.connected(); });
    advance();
}

void ModemLine::setCallActive(bool active)
{
    if (!active) drop();
    else if (ringing_) answer();
}

void ModemLine::drop()
{
    if (!callActive_) return;
    answerWhenReady_ = false;
    hangUpWanted_ = true;
    leaveCall();
}

void ModemLine::handOver()
{
    if (!callActive_ || (state_ != State::OffHook && state_ != State::Answering)) return;
    handOverWanted_ = true; // the caller is the user's now
    leaveCall();
}

void ModemLine::leaveCall()
{
    callActive_ = false;
    playing_ = false;
    playWanted_ = false;
    if (recording_) {
        recording_ = false;
        writeRecording();
    }
    captureWanted_ = false;
    if (data_ == Data::Transmit || data_ == Data::OpeningTransmit) endTransmit(true);
    else if (data_ == Data::Receive || data_ == Data::OpeningReceive) endReceive();
    advance();
}

void ModemLine::hangUp()
{
    handOverTimer_->setEnabled(false);
    if (data_ != Data::None) {
        hangUpWanted_ = true; // once the data state has ended
        return;
    }
    hangUpWanted_ = false;
    setState(State::HangingUp);
    const VoiceModem* modem = chosen();
    std::vector<std::string> steps;
    if (modem && modem->dialect == Dialect::Hash) steps = {modem->usRobotics ? "AT#VLS=0H0" : "ATH0", "?AT#CLS=0"};
    else steps = {"AT+VLS=0", "?AT+FCLASS=0"};
    run(steps, [this](bool ok, const std::string& failed, const Reply& reply) {
        if (!ok && !reply.lost) {
            log::warning("the modem would not go on-hook with " + failed + " (" + reply.describe() + "): trying ATH0");
            channel_.command("ATH0", options_.commandTimeout, [this](const Reply& again) {
                if (again.ok()) return onHook();
                if (!again.lost) recover("it would not go on-hook");
            });
            return;
        }
        if (ok) onHook();
    });
}

void ModemLine::onHook()
{
    setState(State::Idle);
    log::info("the modem is on-hook");
    listening_ = false;
    if (!wantOpen_ && closeWhenIdle_) {
        closePort("the line was closed");
        return;
    }
    advance();
}

// The far end has gone (or the line can no longer be used for the call): said once a call.
void ModemLine::callerLeft(const std::string& sign)
{
    if (callerGone_) return;
    callerGone_ = true;
    log::info("the caller has hung up (" + sign + ")");
    playing_ = false;
    playWanted_ = false;
    captureWanted_ = false;
    if (data_ == Data::Transmit || data_ == Data::OpeningTransmit) endTransmit(true);
    else if (data_ == Data::Receive || data_ == Data::OpeningReceive) endReceive();
    if (callActive_) report([](LineEvents& e) { e.callerHungUp(); });
    if (state_ == State::HandingOver) {
        // Nobody is left for the user's handset to take over.
        handOverWanted_ = false;
        hangUp();
    }
}

void ModemLine::event(char code)
{
    const bool up = state_ == State::OffHook || state_ == State::HandingOver;
    if (isKeyCode(code)) {
        if (up && callActive_ && digitMonitoring()) {
            report([digit = static_cast<char16_t>(code)](LineEvents& e) { e.digitReceived(digit); });
        }
        return;
    }
    const VoiceModem* modem = chosen();
    const bool inData = data_ != Data::None;
    switch (code) {
    case 'R':
        ring();
        return;
    case 'b':
    case 'K':
        if (up) callerLeft("busy tone");
        return;
    case 'd':
        // US Robotics modems hear dial tone in their own sound while playing or recording.
        if (up && !(inData && modem && modem->usRobotics)) callerLeft("dial tone");
        return;
    case 'l':
        if (up) callerLeft("loop current broken");
        return;
    case 's':
        if (up && data_ == Data::Receive && !listening_) callerLeft("silence");
        return;
    case 'q':
        if (up && data_ == Data::Receive && !listening_) callerLeft("quiet after speech");
        return;
    case 'P':
        if (state_ == State::HandingOver) {
            log::info("the user's handset has taken the call");
            handOverTimer_->setEnabled(false);
            handOverWanted_ = false;
            hangUp();
        } else if (up && callActive_) {
            // Someone picked up a handset on the line in the middle of the call: theirs now.
            log::info("a handset on the line was lifted: leaving the call to it");
            callerLeft("a handset took the call");
        }
        return;
    case 'c':
    case 'e':
    case 'f':
    case 'a':
        if (up && callActive_ && !mediaReported_) {
            mediaReported_ = true;
            log::info(std::string("the caller is a fax or data machine (<DLE>") + code + ")");
            report([](LineEvents& e) { e.mediaModeChanged(); });
        }
        return;
    case 'o': log::info("the modem's receive buffer overran"); return;
    case 'u': log::info("the modem ran out of sound to play"); return;
    case 'E': log::warning("the modem says the sound it was sent is in the wrong format"); return;
    default: return; // handset, timing and other codes mean nothing to a call
    }
}

void ModemLine::setDigitMonitoring(bool on)
{
    Line::setDigitMonitoring(on);
    // A modem that hears keys only while it records is set listening, or let go.
    if (!options_.keysOnlyWhileRecording) return;
    if (!on && listening_ && data_ == Data::Receive) endReceive();
    else advance();
}

} // namespace corvel::modem
