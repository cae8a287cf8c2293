// A voice modem behind the Line interface: finding and opening it, its set-up commands, running
// commands in sequence, and choosing what the line does next.

#include "telephony/modem/modem_line.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/log.h"
#include "telephony/modem/modem_probe.h"
#include "telephony/modem/voice_codec.h"

namespace corvel::modem {
namespace {

constexpr Milliseconds feedEvery{20};
constexpr Milliseconds recoverPause{1000};
constexpr Milliseconds retryStartAfter{30000};

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

} // namespace corvel::modem
