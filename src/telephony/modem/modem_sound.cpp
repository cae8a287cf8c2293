// Sound to and from the caller on a voice modem: prompts played into the voice stream and
// messages recorded from it.

#include "telephony/modem/modem_line.h"

#include <algorithm>
#include <utility>

#include "base/log.h"
#include "telephony/line_audio.h"
#include "telephony/modem/voice_codec.h"

namespace corvel::modem {
namespace {

constexpr Milliseconds endCodeAhead{100}; // the end of a play is sent this long before its sound ends

} // namespace

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
        joined.resize(bytes.size() + 1);
        joined.front() = *halfSample_;
        std::copy(bytes.begin(), bytes.end(), joined.begin() + 1);
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
