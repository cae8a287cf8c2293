#include "telephony/modem/modem_line.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/log.h"
#include "telephony/line_audio.h"
#include "telephony/modem/modem_probe.h"
#include "telephony/modem/voice_codec.h"

namespace corvel::modem {
namespace {

using namespace std::chrono_literals;

constexpr Milliseconds feedEvery{20};
constexpr Milliseconds endCodeAhead{100}; // the end of a play is sent this long before its sound ends
constexpr Milliseconds callerIdSettles{300}; // the lines of one caller-ID block come this close together
constexpr Milliseconds ringsMerge{1000};     // a UK double ring may come as two RINGs
constexpr Milliseconds recoverPause{1000};
constexpr Milliseconds retryStartAfter{30000};

std::vector<std::uint8_t> bytes(std::initializer_list<std::uint8_t> list) { return list; }

std::string errorText(int error) { return std::strerror(error); }

} // namespace

// --- Set-up ---

ModemLine::ModemLine(EventLoop& loop, ModemOptions options)
    : loop_(loop), options_(std::move(options)), channel_(loop, *this),
      ringTimer_(loop.createTimer([this] { ringingStopped(); }, TimerKind::SingleShot)),
      callerIdTimer_(loop.createTimer([this] { reportCallerId(); }, TimerKind::SingleShot)),
      feedTimer_(loop.createTimer([this] { feed(); }, TimerKind::Repeating)),
      playEndTimer_(loop.createTimer([this] { playEnded(); }, TimerKind::SingleShot)),
      stopTimer_(loop.createTimer([this] { stopTry(); }, TimerKind::SingleShot)),
      reopenTimer_(loop.createTimer([this] { tryOpen(); }, TimerKind::SingleShot)),
      handOverTimer_(loop.createTimer(
          [this] {
              log::info("the user's handset did not pick up in time: hanging up");
              handOverWanted_ = false;
              hangUp();
          },
          TimerKind::SingleShot)),
      recoverTimer_(loop.createTimer([this] { start(); }, TimerKind::SingleShot))
{
    channel_.setGap(options_.commandGap);
    feedTimer_->setInterval(feedEvery);
}

ModemLine::~ModemLine()
{
    *alive_ = false;
    probe_.reset();
    if (!channel_.isOpen()) return;
    // Last words: whatever it was doing, the modem is left on-hook.
    if (data_ != Data::None) {
        channel_.discardOutput();
        channel_.send(bytes({DLE, CAN, DLE, ETX, DLE, '!'}));
    }
    if (state_ == State::OffHook || state_ == State::Answering || state_ == State::HandingOver ||
        state_ == State::HangingUp) {
        const VoiceModem* modem = chosen();
        channel_.send(modem && modem->dialect == Dialect::Hash ? "\rATH0\r" : "\rAT+VLS=0\r");
    }
    channel_.port().drainFor(300);
    if (const int error = channel_.close(); error != 0) {
        log::warning("closing the modem port failed: " + errorText(error));
    }
}

const VoiceModem* ModemLine::chosen() const
{
    if (deviceNumber_ < 0 || static_cast<std::size_t>(deviceNumber_) >= modems_.size()) return nullptr;
    return &modems_[static_cast<std::size_t>(deviceNumber_)];
}

std::vector<LineDevice> ModemLine::devices() const
{
    std::vector<LineDevice> out;
    for (std::size_t i = 0; i < modems_.size(); ++i) {
        out.push_back({static_cast<std::int32_t>(i), modems_[i].identity + " (" + modems_[i].port.string() + ")"});
    }
    return out;
}

std::string ModemLine::deviceName() const
{
    const auto list = devices();
    if (deviceNumber_ < 0 || static_cast<std::size_t>(deviceNumber_) >= list.size()) return {};
    return list[static_cast<std::size_t>(deviceNumber_)].name;
}

std::string ModemLine::providerName() const
{
    const VoiceModem* modem = chosen();
    return modem ? modem->family : std::string();
}

std::string ModemLine::ownerApplication() const
{
    // The port is ours or nobody's; only a program holding its lock can own calls on it.
    if (busyWith_) return busyWith_->program;
    return std::string(ownLineControl);
}

void ModemLine::probe(std::function<void()> done)
{
    probeDone_ = std::move(done);
    std::vector<std::filesystem::path> ports = options_.ports.empty() ? candidatePorts() : options_.ports;
    // The open line's own port is known: asking it again would disturb a call.
    if (channel_.isOpen()) std::erase(ports, channel_.device());
    probe_ = std::make_unique<ModemProbe>(loop_, ports, options_.lockFolder, options_.baud,
                                     [this, alive = std::weak_ptr<bool>(alive_)](std::vector<VoiceModem> found) {
                                         if (alive.expired()) return;
                                         loop_.post([this, alive, found = std::move(found)]() mutable {
                                             if (alive.expired()) return;
                                             if (channel_.isOpen()) {
                                                 for (const VoiceModem& modem : modems_) {
                                                     if (modem.port == channel_.device()) found.insert(found.begin(), modem);
                                                 }
                                             }
                                             modems_ = std::move(found);
                                             probe_.reset();
                                             if (probeDone_) std::exchange(probeDone_, nullptr)();
                                         });
                                     });
}

Milliseconds ModemLine::now() const
{
    return std::chrono::duration_cast<Milliseconds>(loop_.now().time_since_epoch());
}

void ModemLine::report(std::function<void(LineEvents&)> event)
{
    if (!wantOpen_) return; // nobody is listening to a closed line
    loop_.post([this, alive = std::weak_ptr<bool>(alive_), event = std::move(event)] {
        if (alive.expired() || !wantOpen_ || !listener()) return;
        event(*listener());
    });
}

void ModemLine::setState(State state) { state_ = state; }

// --- Opening and closing ---

bool ModemLine::lineOpen() const { return wantOpen_ && channel_.isOpen(); }

void ModemLine::setLineOpen(bool open)
{
    lastError_ = 0;
    if (open) {
        if (wantOpen_ && channel_.isOpen()) return;
        wantOpen_ = true;
        closeWhenIdle_ = false;
        if (channel_.isOpen()) {
            // Still finishing the last call (a hand-over, say): the line is simply ours again.
            advance();
            return;
        }
        tryOpen();
        if (!channel_.isOpen()) lastError_ = busyWith_ ? EBUSY : (lostError_ ? lostError_ : ENODEV);
        return;
    }

    if (!wantOpen_) return;
    wantOpen_ = false;
    reopenTimer_->setEnabled(false);
    busyWith_.reset();
    ringing_ = false;
    ringTimer_->setEnabled(false);
    callerIdTimer_->setEnabled(false);
    if (lostError_ != 0) {
        // The device went away under us: this close cannot be a clean one.
        lastError_ = std::exchange(lostError_, 0);
        log::warning("the modem could not be closed cleanly: " + errorText(lastError_));
        return;
    }
    if (!channel_.isOpen()) return;
    if (unresponsive_) {
        lastError_ = ETIMEDOUT;
        log::warning("the modem on " + channel_.device().string() + " stopped answering; closing it");
        closePort("it stopped answering");
        return;
    }
    if (callActive_) drop();
    if (state_ == State::Idle || state_ == State::Starting || state_ == State::Closed) {
        closePort("the line was closed");
        return;
    }
    // The modem is still busy with the call: the port closes once it is back on-hook.
    closeWhenIdle_ = true;
}

void ModemLine::tryOpen()
{
    reopenTimer_->setEnabled(false);
    if (!wantOpen_ || channel_.isOpen()) return;
    const VoiceModem* modem = chosen();
    if (!modem) {
        log::warning("there is no voice modem number " + std::to_string(deviceNumber_) + " to open");
        return;
    }
    const int error = channel_.open(modem->port, options_.baud, options_.lockFolder);
    if (error == EBUSY) {
        const auto& holder = channel_.lock().holder();
        if (!busyWith_ || !holder || busyWith_->pid != holder->pid) {
            log::warning("the modem on " + modem->port.string() + " is in use by " +
                         (holder ? holder->program + " (process " + std::to_string(holder->pid) + ")" : "another program") +
                         "; waiting for it to be free");
            if (holder) report([](LineEvents& e) { e.callOwnerChanged(); });
        }
        busyWith_ = holder ? holder : LockHolder{0, "another program"};
    } else if (error != 0) {
        if (lostError_ == 0) {
            log::warning("cannot open the modem on " + modem->port.string() + ": " + errorText(error));
        }
        lostError_ = error;
    }
    if (error != 0) {
        reopenTimer_->setInterval(options_.reopenEvery);
        reopenTimer_->setEnabled(true);
        return;
    }
    if (busyWith_) log::info("the modem on " + modem->port.string() + " is free again");
    busyWith_.reset();
    lostError_ = 0;
    unresponsive_ = false;
    recoveries_ = 0;
    start();
}

void ModemLine::closePort(const char* why)
{
    feedTimer_->setEnabled(false);
    stopTimer_->setEnabled(false);
    playEndTimer_->setEnabled(false);
    handOverTimer_->setEnabled(false);
    recoverTimer_->setEnabled(false);
    data_ = Data::None;
    closeWhenIdle_ = false;
    setState(State::Closed);
    if (!channel_.isOpen()) return;
    const std::string port = channel_.device().string();
    if (const int error = channel_.close(); error != 0) {
        lastError_ = error;
        log::warning("closing the modem on " + port + " failed: " + errorText(error));
    } else {
        log::info("closed the modem on " + port + " (" + why + ")");
    }
}

// --- Commands in sequence ---

// Runs `commands` one after another. A command starting with "?" may fail (some modems
// refuse it) without ending the sequence; any other failure ends it.
void ModemLine::run(std::vector<std::string> commands, SequenceDone done)
{
    auto sequence = std::make_shared<Sequence>();
    sequence->rest.assign(std::make_move_iterator(commands.rbegin()), std::make_move_iterator(commands.rend()));
    sequence->done = std::move(done);
    runNext(sequence);
}

// Each reply starts the next command from a fresh call: no function object ever runs after
// the sequence has let go of it.
void ModemLine::runNext(const std::shared_ptr<Sequence>& sequence)
{
    if (sequence->rest.empty()) {
        const SequenceDone done = std::move(sequence->done);
        done(true, {}, Reply{LineKind::Ok, false, false, {}});
        return;
    }
    std::string command = std::move(sequence->rest.back());
    sequence->rest.pop_back();
    const bool optional = command.starts_with("?");
    if (optional) command.erase(0, 1);
    const Milliseconds timeout = command == "ATZ" ? options_.resetTimeout : options_.commandTimeout;
    channel_.command(command, timeout,
                     [this, command, optional, sequence, alive = std::weak_ptr<bool>(alive_)](const Reply& reply) {
                         if (alive.expired()) return;
                         if (reply.ok() || (optional && !reply.timedOut && !reply.lost)) {
                             if (!reply.ok()) log::info("the modem refused " + command + " (" + reply.describe() + "); going on");
                             runNext(sequence);
                             return;
                         }
                         const SequenceDone done = std::move(sequence->done);
                         done(false, command, reply);
                     });
}

void ModemLine::start()
{
    const VoiceModem* modem = chosen();
    if (!modem || !channel_.isOpen()) return;
    setState(State::Starting);
    data_ = Data::None;
    channel_.cancelCommands();
    channel_.stream().reset();
    channel_.stream().setMode(ModemStream::Mode::Command);
    const bool hash = modem->dialect == Dialect::Hash;

    startStep_ = "ATZ";
    // After ATZ echo may be back on: E0 is sent again straight away, and echoes are ignored.
    std::vector<std::string> first{"ATZ", "ATE0V1Q0"};
    if (!options_.country.empty()) first.push_back("?AT+GCI=" + options_.country);
    first.push_back(hash ? "?AT#CID=1" : "?AT+VCID=1");
    first.push_back("?ATS0=0");
    first.push_back(hash ? "AT#CLS=8" : "AT+FCLASS=8");
    run(std::move(first), [this, hash](bool ok, const std::string& failed, const Reply& reply) {
        if (!ok) return startFailed(failed, reply);
        if (hash) {
            // The # modems have one 8-bit linear format, chosen with #VBS.
            codec_ = CodecChoice{VoiceCompression{8, "8-BIT LINEAR", 8, {7200}}, SampleFormat::Unsigned8, 7200};
            const VoiceModem* modem = chosen();
            std::vector<std::string> rest{"?AT#VBS=8", "?AT#VTD=3F,3F,3F", "?AT#VSD=1", "?AT#VSS=2",
                                          "?AT#VSP=" + std::to_string(options_.silenceTenths), "?AT#CLS=0"};
            if (modem && modem->usRobotics) {
                rest[0] = "?AT#VSM=129,8000";
                codec_->rate = 8000;
            }
            run(std::move(rest), [this](bool ok, const std::string& failed, const Reply& reply) {
                if (!ok) return startFailed(failed, reply);
                setState(State::Idle);
                log::info("the modem on " + channel_.device().string() + " is ready for calls");
                advance();
            });
            return;
        }
        channel_.command("AT+VSM=?", options_.commandTimeout, [this](const Reply& reply) {
            if (!reply.ok()) return startFailed("AT+VSM=?", reply);
            std::vector<VoiceCompression> offered;
            for (const std::string& line : reply.lines) {
                if (auto compression = parseCompression(line)) offered.push_back(std::move(*compression));
            }
            codec_ = chooseCodec(offered);
            if (!codec_) {
                log::error("the modem on " + channel_.device().string() + " offers no sound format Corvel can use: " +
                           reply.text());
                return startFailed("AT+VSM=?", reply);
            }
            log::info("the modem will carry sound as " + std::string(toString(codec_->format)) + " at " +
                      std::to_string(codec_->rate) + " Hz (\"" + codec_->compression.name + "\", number " +
                      std::to_string(codec_->compression.id) + ")");
            channel_.command("AT-STE=?", options_.commandTimeout, [this](const Reply& reply) {
                extensionEvents_ = reply.ok() && offersExtensionEvents(reply.text());
                std::vector<std::string> rest{"?AT+VIT=0", "?AT+VGT=128", "?AT+VGR=128",
                                              "?AT+VSD=128," + std::to_string(options_.silenceTenths), "AT+FCLASS=0"};
                run(std::move(rest), [this](bool ok, const std::string& failed, const Reply& reply) {
                    if (!ok) return startFailed(failed, reply);
                    setState(State::Idle);
                    recoveries_ = 0;
                    log::info("the modem on " + channel_.device().string() + " is ready for calls" +
                              (extensionEvents_ ? ", and tells when a handset on the line is lifted" : ""));
                    advance();
                });
            });
        });
    });
}

void ModemLine::startFailed(const std::string& step, const Reply& reply)
{
    if (reply.lost) return; // lost() says why
    log::error("the modem on " + channel_.device().string() + " failed to set up at " + step + " (" +
               reply.describe() + ")" + (reply.lines.empty() ? "" : ": " + reply.text()));
    if (reply.timedOut) {
        recover("it did not answer " + step);
        return;
    }
    // A modem that refuses voice now will refuse it in a moment too: tried again later.
    setState(State::Recovering);
    recoverTimer_->setInterval(retryStartAfter);
    recoverTimer_->setEnabled(true);
}

// Finds its feet after the modem went astray: both ways out of a data state, a pause, and the
// whole set-up again, which starts with a reset. After three tries in a row without success the
// modem is declared unresponsive (a close will report it) and left to a slower retry.
void ModemLine::recover(const std::string& why)
{
    log::warning("resynchronising with the modem on " + channel_.device().string() + ": " + why);
    if (callActive_) callerLeft("the modem went astray");
    channel_.cancelCommands();
    feedTimer_->setEnabled(false);
    stopTimer_->setEnabled(false);
    data_ = Data::None;
    playing_ = false;
    playWanted_ = false;
    channel_.discardOutput();
    channel_.send(bytes({DLE, CAN, DLE, ETX, DLE, '!', '\r'}));
    channel_.stream().setMode(ModemStream::Mode::Command);
    setState(State::Recovering);
    ++recoveries_;
    if (recoveries_ > 3) {
        unresponsive_ = true;
        log::error("the modem on " + channel_.device().string() + " does not answer; trying again every " +
                   std::to_string(retryStartAfter.count() / 1000) + " s");
        recoverTimer_->setInterval(retryStartAfter);
    } else {
        recoverTimer_->setInterval(recoverPause);
    }
    recoverTimer_->setEnabled(true);
}

void ModemLine::lost(int error)
{
    log::warning("lost the modem on " + channel_.device().string() + ": " + errorText(error));
    if (callActive_) callerLeft("the modem went away");
    playing_ = false;
    playWanted_ = false;
    callActive_ = false;
    ringing_ = false;
    if (recording_) {
        recording_ = false;
        writeRecording();
    }
    closePort("the device failed");
    lostError_ = error;
    if (wantOpen_) {
        reopenTimer_->setInterval(options_.reopenEvery);
        reopenTimer_->setEnabled(true);
    }
}

// --- What comes next ---

// Called whenever something finished: starts whatever the call logic asked for next.
void ModemLine::advance()
{
    if (!channel_.isOpen() || !channel_.idle()) return;
    switch (state_) {
    case State::Idle:
        if (closeWhenIdle_ && !wantOpen_) closePort("the line was closed");
        else if (std::exchange(answerWhenReady_, false) && callActive_) answer();
        return;
    case State::OffHook:
        if (data_ != Data::None) return;
        if (hangUpWanted_) return hangUp();
        if (handOverWanted_) {
            if (extensionEvents_) {
                setState(State::HandingOver);
                handOverTimer_->setInterval(options_.handOverWait);
                handOverTimer_->setEnabled(true);
                log::info("waiting for the user's handset to take the call");
                return;
            }
            handOverWanted_ = false;
            return hangUp();
        }
        if (captureWanted_) return openReceive();
        if (playWanted_) return openTransmit();
        if (options_.keysOnlyWhileRecording && digitMonitoring() && !callerGone_) {
            listening_ = true;
            return openReceive();
        }
        return;
    default: return;
    }
}

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

// --- Playing ---

bool ModemLine::startPlay()
{
    const std::uint64_t run = ++playRun_;
    playing_ = false;
    playWanted_ = false;
    if (data_ == Data::Transmit || data_ == Data::OpeningTransmit) endTransmit(true);
    const bool up = callActive_ && (state_ == State::OffHook || state_ == State::Answering);
    if (!up) {
        log::warning("cannot play \"" + playList() + "\": no call is up on the modem");
        return false;
    }
    if (!codec_) return false;
    std::vector<Prompt> prompts;
    for (std::string& file : playListEntries(playList())) {
        auto sound = loadForModem(file, codec_->format, codec_->rate); // logs why it cannot
        if (!sound) return false;
        prompts.push_back({std::move(file), std::move(*sound)});
    }
    if (prompts.empty()) {
        log::warning("cannot play an empty play list");
        return false;
    }
    prompts_ = std::move(prompts);
    promptAt_ = 0;
    offset_ = 0;
    playing_ = true;
    playWanted_ = true;
    listEnded_ = false;
    streamRun_ = run;
    if (data_ == Data::Receive && listening_) endReceive();
    else if (data_ == Data::Receive) log::warning("a play was asked for while recording: it waits for the recording to end");
    advance();
    return true;
}

void ModemLine::setPlaying(bool play)
{
    if (play) {
        if (!playing_) startPlay();
        return;
    }
    if (!playing_) return;
    playing_ = false;
    playWanted_ = false;
    ++playRun_; // a play-done on its way is void
    if (data_ == Data::Transmit || data_ == Data::OpeningTransmit) {
        endTransmit(true);
    } else if (data_ == Data::Ending && !stoppingReceive_ && listEnded_) {
        channel_.send(bytes({DLE, CAN})); // the last of the sound, already ended: thrown away
    }
}

void ModemLine::openTransmit()
{
    const VoiceModem* modem = chosen();
    data_ = Data::OpeningTransmit;
    const std::string command = modem && modem->dialect == Dialect::Hash ? "AT#VTX" : "AT+VTX";
    channel_.command(command, options_.commandTimeout, [this, command](const Reply& reply) {
        if (reply.lost) return;
        if (data_ != Data::OpeningTransmit) {
            // Stopped before the modem was ready: end the data state it has just entered.
            if (reply.connect()) {
                data_ = Data::Transmit;
                endTransmit(true);
            } else {
                data_ = Data::None;
                advance();
            }
            return;
        }
        if (!reply.connect()) {
            data_ = Data::None;
            log::warning("the modem would not play: " + command + " (" + reply.describe() + ")");
            if (playing_ && playWanted_) {
                playing_ = false;
                playWanted_ = false;
                report([this, run = playRun_](LineEvents& e) {
                    if (run == playRun_) e.playDone();
                });
            }
            if (reply.timedOut) recover("it did not answer " + command);
            else advance();
            return;
        }
        data_ = Data::Transmit;
        streamStart_ = now();
        streamBytes_ = 0;
        feedTimer_->setEnabled(true);
        feed();
    });
}

// Keeps the modem's buffer `playAhead` in front of what the caller has heard, no further: the
// port's own back-pressure (CTS, a full USB queue) holds the rest here.
void ModemLine::feed()
{
    if (data_ != Data::Transmit) {
        feedTimer_->setEnabled(false);
        return;
    }
    if (!playWanted_) return;
    const std::uint64_t perSecond = static_cast<std::uint64_t>(codec_->rate) * bytesPerSample(codec_->format);
    const auto elapsed = static_cast<std::uint64_t>(std::max<Milliseconds::rep>(0, (now() - streamStart_).count()));
    if (listEnded_) {
        // The end code goes just before the sound runs out, not with the last of it: until
        // then the play can still be stopped at once.
        if ((elapsed + static_cast<std::uint64_t>(endCodeAhead.count())) * perSecond / 1000 >= streamBytes_) {
            endTransmit(false);
        }
        return;
    }
    const std::uint64_t wanted = (elapsed + static_cast<std::uint64_t>(options_.playAhead.count())) * perSecond / 1000;
    std::vector<std::uint8_t> out;
    while (streamBytes_ < wanted && channel_.pendingOutput() == 0) {
        Prompt& prompt = prompts_[promptAt_];
        const std::size_t take = std::min<std::size_t>(prompt.sound.size() - offset_, wanted - streamBytes_);
        out.clear();
        appendShielded(out, std::span<const std::uint8_t>(prompt.sound).subspan(offset_, take));
        channel_.send(out);
        offset_ += take;
        streamBytes_ += take;
        if (offset_ < prompt.sound.size()) continue;
        offset_ = 0;
        if (++promptAt_ < prompts_.size()) continue;
        promptAt_ = 0;
        if (playRepeat() && streamBytes_ > 0) continue; // a list of nothing would go round for ever
        listEnded_ = true;
        feed();
        return;
    }
}

// Ends the data state of a play: after the modem has played everything (`abort` false) or at
// once, throwing away what it holds.
void ModemLine::endTransmit(bool abort)
{
    feedTimer_->setEnabled(false);
    if (data_ == Data::OpeningTransmit) {
        data_ = Data::Ending; // the CONNECT still to come ends it at once
        return;
    }
    if (data_ != Data::Transmit) return;
    data_ = Data::Ending;
    stoppingReceive_ = false;
    stopTries_ = 0;
    const VoiceModem* modem = chosen();
    if (abort) {
        // What the port still holds is thrown away, so the stop goes out at once.
        channel_.discardOutput();
        if (modem && modem->usRobotics) channel_.send(bytes({DLE, CAN}));
        else channel_.send(bytes({DLE, CAN, DLE, ETX}));
        stopTimer_->setInterval(options_.stopWait);
        stopTimer_->setEnabled(true);
        channel_.awaitFinal(options_.stopWait * 4, [this](const Reply& reply) { transmitEnded(reply); });
        return;
    }
    channel_.send(bytes({DLE, ETX}));
    // The modem answers once its buffer has drained: give it that long and the usual margin.
    channel_.awaitFinal(options_.playAhead + options_.commandTimeout, [this](const Reply& reply) { transmitEnded(reply); });
}

void ModemLine::transmitEnded(const Reply& reply)
{
    stopTimer_->setEnabled(false);
    if (reply.lost) return;
    if (!reply.ok()) {
        recover("it did not end the play (" + reply.describe() + ")");
        return;
    }
    data_ = Data::None;
    if (listEnded_ && playing_ && streamRun_ == playRun_) {
        // Some modems answer as soon as they have the end code, before the buffer is played out.
        const std::uint64_t perSecond = static_cast<std::uint64_t>(codec_->rate) * bytesPerSample(codec_->format);
        const Milliseconds end = streamStart_ + Milliseconds(static_cast<Milliseconds::rep>(streamBytes_ * 1000 / perSecond));
        if (end > now()) {
            playEndTimer_->setInterval(end - now());
            playEndTimer_->setEnabled(true);
            return;
        }
        playEnded();
        return;
    }
    advance();
}

void ModemLine::playEnded()
{
    if (playing_ && listEnded_ && streamRun_ == playRun_) {
        playing_ = false;
        playWanted_ = false;
        report([this, run = playRun_](LineEvents& e) {
            if (run == playRun_) e.playDone(); // not once another list has been started
        });
    }
    advance();
}

// A stop the modem has not acted on: a firmer one, then a fresh start.
void ModemLine::stopTry()
{
    if (data_ != Data::Ending) return;
    ++stopTries_;
    const VoiceModem* modem = chosen();
    if (stopTries_ == 1) {
        log::info("the modem did not stop; trying the stubborn modems' stop");
        channel_.send(stoppingReceive_ ? bytes({DLE, DLE, DLE, '!', DLE, ETX}) : bytes({DLE, DLE, DLE, ETX}));
    } else if (stopTries_ == 2) {
        channel_.send(stoppingReceive_ ? bytes({'!', DLE, ETX}) : bytes({DLE, CAN, DLE, '!'}));
        if (modem && modem->usRobotics) channel_.send(bytes({DLE}));
    } else {
        recover("it would not leave the data state");
        return;
    }
    stopTimer_->setInterval(options_.stopWait);
    stopTimer_->setEnabled(true);
}

// --- Recording ---

void ModemLine::setRecording(bool record)
{
    if (record == recording_) return;
    recording_ = record;
    if (!record) {
        captureWanted_ = false;
        writeRecording();
        if (data_ == Data::Receive || data_ == Data::OpeningReceive) endReceive();
        advance();
        return;
    }
    samples_.clear();
    halfSample_.reset();
    limitLogged_ = false;
    const bool up = callActive_ && (state_ == State::OffHook || state_ == State::Answering);
    if (!up || callerGone_) {
        log::warning("recording with no caller on the line: the file will be silent");
        return;
    }
    captureWanted_ = true;
    if (playing_) {
        log::warning("recording was asked for while playing: the play is stopped");
        setPlaying(false);
    }
    if (data_ == Data::Receive && listening_) listening_ = false; // the keys' recording becomes the real one
    else advance();
}

void ModemLine::openReceive()
{
    const VoiceModem* modem = chosen();
    data_ = Data::OpeningReceive;
    const std::string command = modem && modem->dialect == Dialect::Hash ? "AT#VRX" : "AT+VRX";
    channel_.command(command, options_.commandTimeout, [this, command](const Reply& reply) {
        if (reply.lost) return;
        if (!reply.connect()) {
            data_ = Data::None;
            captureWanted_ = false;
            listening_ = false;
            log::warning("the modem would not record: " + command + " (" + reply.describe() + ")");
            if (reply.timedOut) recover("it did not answer " + command);
            else advance();
            return;
        }
        // From the next byte on, the modem sends sound.
        channel_.stream().setMode(ModemStream::Mode::Receive);
        const bool stop = data_ != Data::OpeningReceive;
        data_ = Data::Receive;
        if (stop) endReceive();
    });
}

void ModemLine::audio(std::span<const std::uint8_t> bytes)
{
    if (data_ != Data::Receive || !captureWanted_ || listening_ || !codec_) return;
    std::vector<std::uint8_t> joined;
    std::span<const std::uint8_t> input = bytes;
    if (halfSample_) {
        joined.push_back(*halfSample_);
        joined.insert(joined.end(), bytes.begin(), bytes.end());
        halfSample_.reset();
        input = joined;
    }
    if (bytesPerSample(codec_->format) == 2 && input.size() % 2 == 1) {
        halfSample_ = input.back();
        input = input.first(input.size() - 1);
    }
    const std::vector<std::int16_t> decoded = decode(input, codec_->format);
    const auto limit = static_cast<std::size_t>(options_.longestRecording.count() * codec_->rate / 1000);
    const std::size_t room = limit > samples_.size() ? limit - samples_.size() : 0;
    samples_.insert(samples_.end(), decoded.begin(), decoded.begin() + static_cast<std::ptrdiff_t>(std::min(room, decoded.size())));
    if (samples_.size() >= limit && !limitLogged_) {
        limitLogged_ = true;
        log::info("the recording reached its longest, " + std::to_string(options_.longestRecording.count() / 1000) + " s");
        captureWanted_ = false;
        endReceive();
    }
}

// Asks the modem to end its recording; the sound it still sends is thrown away.
void ModemLine::endReceive()
{
    if (data_ == Data::OpeningReceive) {
        data_ = Data::Ending;
        return;
    }
    if (data_ != Data::Receive) return;
    data_ = Data::Ending;
    stoppingReceive_ = true;
    stopTries_ = 0;
    const VoiceModem* modem = chosen();
    if (modem && modem->dialect == Dialect::Hash) {
        channel_.send(modem->usRobotics ? bytes({DLE}) : bytes({'!'}));
    } else {
        channel_.send(bytes({DLE, '!'}));
    }
    stopTimer_->setInterval(options_.stopWait);
    stopTimer_->setEnabled(true);
}

void ModemLine::endOfData()
{
    // The stream is back in command state; the modem's OK (or VCON) follows.
    if (data_ != Data::Receive && data_ != Data::Ending) return;
    channel_.awaitFinal(options_.commandTimeout, [this](const Reply& reply) { receiveEnded(reply); });
}

void ModemLine::receiveEnded(const Reply& reply)
{
    stopTimer_->setEnabled(false);
    if (reply.lost) return;
    if (!reply.ok()) {
        recover("it did not end the recording (" + reply.describe() + ")");
        return;
    }
    data_ = Data::None;
    listening_ = false;
    advance();
}

void ModemLine::writeRecording()
{
    const int rate = codec_ ? codec_->rate : lineSampleRate;
    const std::vector<std::int16_t> line = convertRate(samples_, rate, lineSampleRate);
    samples_.clear();
    samples_.shrink_to_fit();
    writeLineWave(recordFile(), line); // logs a failure; the call goes on regardless
}

} // namespace corvel::modem
