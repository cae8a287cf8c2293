#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/event_loop.h"
#include "telephony/line.h"
#include "telephony/modem/caller_id_parser.h"
#include "telephony/modem/modem_channel.h"
#include "telephony/modem/responses.h"

namespace corvel::modem {

class ModemProbe;

// The two command sets voice modems speak.
enum class Dialect {
    V253, // AT+FCLASS=8, AT+VLS, AT+VTX ...: Conexant, Agere/Lucent, USR5637 and most since
    Hash, // AT#CLS=8, AT#VLS, AT#VTX ...: Rockwell and US Robotics of the 1990s
};

// A voice modem found on a serial port.
struct VoiceModem {
    std::filesystem::path port;
    std::string identity; // what the modem calls itself (ATI3, else ATI)
    std::string family;   // its chipset family, for ProviderName
    Dialect dialect = Dialect::V253;
    bool usRobotics = false; // US Robotics' own forms of the # commands and stops
};

struct ModemOptions {
    // The ports to look for voice modems on; empty: every /dev/ttyACM*, /dev/ttyUSB* and /dev/ttyS*.
    std::vector<std::filesystem::path> ports;
    std::filesystem::path lockFolder = "/var/lock";
    int baud = 115200;
    // The country for caller-ID decoding, as the T.35 code AT+GCI takes: "B4" for the UK, "B5"
    // for North America. Empty leaves the modem's own setting.
    std::string country;
    Milliseconds commandGap{100};
    Milliseconds commandTimeout{3000};
    Milliseconds resetTimeout{5000};
    Milliseconds playAhead{500};             // sound queued ahead of what the caller hears
    Milliseconds longestRecording{std::chrono::minutes(5)};
    int silenceTenths = 50;                  // AT+VSD: this much silence while recording ends the call
    Milliseconds ringingStopsAfter{8000};    // the caller has given up after this long without a ring
    Milliseconds handOverWait{30000};        // how long the user's handset may take to pick up
    Milliseconds stopWait{1500};             // for each try at ending a play or a recording
    Milliseconds reopenEvery{5000};          // a port that is busy or missing is tried again
    // Listen for keys by recording (and throwing the sound away) whenever nothing plays: for
    // modems that report keys only while they record.
    bool keysOnlyWhileRecording = false;
};

// A Line on an analogue voice modem over a serial port. Everything the modem says is read
// as it comes, and everything said to it written, from the event loop; no operation waits
// for the modem. The call logic's requests (answer, play, record, hang up) are carried out
// in order, each once the modem has finished the one before.
class ModemLine : public Line, private ModemChannel::Listener {
public:
    ModemLine(EventLoop& loop, ModemOptions options);
    ~ModemLine() override;

    // Looks for voice modems on the option's ports, without blocking the loop, and calls
    // `done` when every port has answered or given up. devices() lists what it found.
    void probe(std::function<void()> done);
    bool probing() const { return probe_ != nullptr; }
    // The voice modems to offer, when they are known without a probe.
    void setModems(std::vector<VoiceModem> modems) { modems_ = std::move(modems); }
    const std::vector<VoiceModem>& modems() const { return modems_; }
    // The codec in use once the modem has been set up.
    const std::optional<CodecChoice>& codec() const { return codec_; }

    std::vector<LineDevice> devices() const override;
    bool lineOpen() const override;
    void setLineOpen(bool open) override;
    bool callActive() const override { return callActive_; }
    void setCallActive(bool active) override;
    void answer() override;
    void drop() override;
    void handOver() override;
    std::string ownerApplication() const override;
    std::string callerNumber() const override { return callerNumber_; }
    std::string callerName() const override { return callerName_; }
    bool numberWithheld() const override { return numberWithheld_; }
    bool numberUnavailable() const override { return numberUnavailable_; }
    void setDeviceNumber(std::int32_t number) override { deviceNumber_ = number; }
    std::string deviceName() const override;
    std::int32_t lastError() const override { return lastError_; }
    std::string providerName() const override;
    bool hasWaveOut() const override { return chosen() != nullptr; }
    std::int32_t waveOutNumber() const override { return deviceNumber_; }
    bool hasWaveIn() const override { return chosen() != nullptr; }
    std::int32_t waveInNumber() const override { return deviceNumber_; }
    bool hasPhone() const override { return false; }
    std::int32_t phoneNumber() const override { return 0; }
    void setDigitMonitoring(bool on) override;
    bool startPlay() override;
    bool playing() const override { return playing_; }
    void setPlaying(bool playing) override;
    bool recording() const override { return recording_; }
    void setRecording(bool recording) override;

private:
    enum class State {
        Closed,     // no port
        Starting,   // the set-up commands run
        Idle,       // on-hook, listening for rings and caller ID
        Answering,
        OffHook,    // the call is up; plays and recordings run from here
        HandingOver,
        HangingUp,
        Recovering, // finding its feet after the modem went astray
    };
    enum class Data { None, OpeningTransmit, Transmit, OpeningReceive, Receive, Ending };
    struct Prompt {
        std::string file;
        std::vector<std::uint8_t> sound; // in the modem's format, not yet shielded
    };

    // ModemChannel::Listener
    void unsolicited(std::string_view line, LineKind kind, bool duringCommand) override;
    void event(char code) override;
    void audio(std::span<const std::uint8_t> bytes) override;
    void endOfData() override;
    void lost(int error) override;

    static std::vector<std::uint8_t> bytes(std::initializer_list<std::uint8_t> list) { return list; }
    const VoiceModem* chosen() const;
    void report(std::function<void(LineEvents&)> event);
    Milliseconds now() const;
    void setState(State state);
    void tryOpen();
    void closePort(const char* why);
    void start();
    void startFailed(const std::string& step, const Reply& reply);
    void advance();
    using SequenceDone = std::function<void(bool ok, const std::string& failed, const Reply&)>;
    // Commands sent one after another; "?" before a command lets the modem refuse it.
    struct Sequence {
        std::vector<std::string> rest; // last command first
        SequenceDone done;
    };
    void run(std::vector<std::string> commands, SequenceDone done);
    void runNext(const std::shared_ptr<Sequence>& sequence);

    // Calls
    void ring();
    void callerIdLine();
    void reportCallerId();
    void newCall();
    void ringingStopped();
    void answered();
    void hangUp();
    // The call is no longer this line's: play and recording end, the data state closes.
    void leaveCall();
    void onHook();
    void callerLeft(const std::string& sign);

    // Plays and recordings
    void openTransmit();
    void feed();
    void endTransmit(bool abort);
    void transmitEnded(const Reply& reply);
    void playEnded();
    void openReceive();
    void endReceive();
    void receiveEnded(const Reply& reply);
    void stopTry();
    void writeRecording();
    void recover(const std::string& why);

    EventLoop& loop_;
    ModemOptions options_;
    ModemChannel channel_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
    std::vector<VoiceModem> modems_;
    std::unique_ptr<ModemProbe> probe_;
    std::function<void()> probeDone_;

    State state_ = State::Closed;
    Data data_ = Data::None;
    bool wantOpen_ = false;      // the call logic has the line open
    bool closeWhenIdle_ = false; // closed by the call logic while the modem still had work
    std::int32_t lastError_ = 0;
    int lostError_ = 0;          // the port failed with this; the next close reports it
    bool unresponsive_ = false;  // the modem stopped answering and no recovery brought it back
    std::optional<LockHolder> busyWith_;
    std::optional<CodecChoice> codec_;
    bool extensionEvents_ = false;
    std::string startStep_;      // the set-up step in progress, for the log
    int recoveries_ = 0;

    // The call
    bool ringing_ = false;
    int ringCount_ = 0;
    Milliseconds lastRingAt_{0};
    Milliseconds ringInterval_{0};
    CallerIdParser callerId_;
    bool callerIdReported_ = false;
    std::string callerNumber_;
    std::string callerName_;
    bool numberWithheld_ = false;
    bool numberUnavailable_ = false;
    bool callActive_ = false;
    bool answerWhenReady_ = false;
    bool hangUpWanted_ = false;
    bool handOverWanted_ = false;
    bool callerGone_ = false;
    bool mediaReported_ = false;

    // Playing
    std::vector<Prompt> prompts_;
    std::size_t promptAt_ = 0;
    std::size_t offset_ = 0;
    bool playing_ = false;
    bool playWanted_ = false;  // the list is to be sent to the modem
    std::uint64_t playRun_ = 0;
    std::uint64_t streamRun_ = 0; // the run whose sound is in the modem now
    bool listEnded_ = false;      // the whole list has gone to the modem
    Milliseconds streamStart_{0};
    std::uint64_t streamBytes_ = 0;

    // Recording
    bool recording_ = false;
    bool captureWanted_ = false;
    bool listening_ = false; // recording only to hear keys
    std::vector<std::int16_t> samples_;
    std::optional<std::uint8_t> halfSample_;
    bool limitLogged_ = false;

    // Stopping a data state
    int stopTries_ = 0;
    bool stoppingReceive_ = false;

    std::unique_ptr<Timer> ringTimer_;
    std::unique_ptr<Timer> callerIdTimer_;
    std::unique_ptr<Timer> feedTimer_;
    std::unique_ptr<Timer> playEndTimer_;
    std::unique_ptr<Timer> stopTimer_;
    std::unique_ptr<Timer> reopenTimer_;
    std::unique_ptr<Timer> handOverTimer_;
    std::unique_ptr<Timer> recoverTimer_;
};

} // namespace corvel::modem
