#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/event_loop.h"
#include "telephony/modem/responses.h"
#include "telephony/testline/caller_audio.h"
#include "telephony/testline/test_line.h"

namespace corvel::testing {

// A voice modem on a pseudo-terminal, and the telephone line behind it: a client opens
// port() as it would /dev/ttyACM0 and talks AT commands to it. The line brings scripted
// callers (the test line's ScriptedCall) with North American or UK ringing and caller ID.
// Everything runs from the event loop it is given: on the virtual loop a whole call takes no
// time; on a real loop it keeps real time, for clients in other processes.
class ModemEmulator {
public:
    enum class Persona {
        Conexant, // CX93001: ATI 56000, seven-field +VSM list, -STE, spaces in caller ID
        Agere,    // Agere/Lucent and USR5637: three-field list, DATE= without spaces, DRON/DROF
    };
    enum class Region {
        NorthAmerica, // RING every cadence, caller ID half a cadence after the first
        UnitedKingdom // caller ID half a second before the first RING
    };
    // Each switch turns on one misbehaviour of a real modem.
    struct Faults {
        bool echoAfterReset = false;      // ATZ turns echo back on
        bool splitDlePairs = false;       // every <DLE> code arrives in two reads
        bool dropEveryOtherEvent = false; // half the <DLE> events are lost
        bool shieldedKeys = false;        // keys as <DLE>/ <DLE>k (repeated) <DLE>~
        bool maskedNumber = false;        // the number, then "NMBR = O" to mask it
        bool dialledNumber = false;       // a DDN_NMBR line too
        bool numberAsMesg = false;        // the number only as MESG = 03...
        bool junkBeforeCallerId = false;  // <DLE>X ... <DLE>. before the caller-ID lines
        bool refuseFlowControl = false;   // AT+IFC -> ERROR
        bool strictSilenceSettings = false; // AT+VSD with a level outside 0,127,128,129 -> ERROR
        bool refuseAnswerInVoice = false; // ATA in class 8 -> ERROR
        bool okBeforeDrain = false;       // OK as soon as <DLE><ETX> comes, before the sound has played
        bool tripleDleToStop = false;     // only <DLE><DLE><DLE><ETX> (or ...!) ends a play or recording
        bool noKeysInCommandState = false;
        bool ringPerBurst = false;        // a UK double ring as two RINGs
        bool voiceClassAs80 = false;      // AT+FCLASS=? answers 0,1,1.0,80
        bool deaf = false;                // answers nothing at all
    };
    struct Options {
        Persona persona = Persona::Conexant;
        Region region = Region::NorthAmerica;
        Faults faults;
    };

    // One line of the conversation, with the loop's time.
    struct Entry {
        Milliseconds at;
        bool fromHost;
        std::string text; // commands and lines as they are; <DLE> codes as "<DLE>x"; sound as a count
    };
    // The sound of one play (+VTX), as the caller heard it: the bytes the modem played, in
    // the modem's format, from when it started.
    struct Play {
        Milliseconds startedAt;
        modem::SampleFormat format;
        int rate;
        std::vector<std::uint8_t> sound;
    };

    ModemEmulator(EventLoop& loop, Options options);
    ~ModemEmulator();
    ModemEmulator(const ModemEmulator&) = delete;
    ModemEmulator& operator=(const ModemEmulator&) = delete;

    const std::string& port() const { return port_; }
    Faults& faults() { return options_.faults; }
    void setRegion(Region region) { options_.region = region; }

    // The caller starts ringing now.
    void placeCall(ScriptedCall call);
    // The caller acts now, outside the script.
    void pressKey(char key);
    void hangUp();
    // Someone lifts a handset on the same line (the user taking a call handed over to them).
    void liftExtension();
    // Bytes to the host as they are, whatever state the modem is in.
    void sendRaw(const std::string& bytes);
    // The modem goes away, as a USB modem pulled out: the client's next read or write fails.
    void unplug();

    int ringCount() const { return ringCount_; }
    bool ringing() const { return phase_ == Phase::Ringing; }
    bool offHook() const { return offHook_; }
    // The last call was left to a handset on the line, with the caller still on it.
    bool handedOver() const { return handedOver_; }
    bool inCommandState() const { return mode_ == Mode::Command; }
    modem::SampleFormat format() const;
    int sampleRate() const { return rate_; }
    // What the caller of the last call heard.
    const std::vector<Play>& plays() const { return plays_; }
    const std::vector<Entry>& transcript() const { return transcript_; }
    std::string transcriptText() const;
    // The commands the host sent, in order.
    std::vector<std::string> commands() const;
    // When the host's line `text` (a command, or a code such as "<DLE>!") first came at or after `from`.
    std::optional<Milliseconds> heardFromHost(const std::string& text, Milliseconds from = Milliseconds{0}) const;
    std::optional<Milliseconds> sentToHost(const std::string& text, Milliseconds from = Milliseconds{0}) const;
    // Sound bytes sent to the host while recording, all calls together.
    std::uint64_t recordedBytes() const { return recordedBytes_; }
    Milliseconds now() const;
    // Every byte the host writes and the modem reads, time-stamped, for a benchmark.
    std::function<void(std::uint8_t byte)> onHostByte;
    std::function<void(char code)> onEventSent;

private:
    enum class Mode { Command, Transmit, Receive };
    enum class Phase { Idle, Ringing, Connected };

    void readable();
    void commandBytes(const std::uint8_t* bytes, std::size_t count);
    void transmitBytes(const std::uint8_t* bytes, std::size_t count);
    void receiveBytes(const std::uint8_t* bytes, std::size_t count);
    void execute(std::string line);
    bool basic(char letter, const std::string& argument, std::vector<std::string>& info, std::string& final);
    bool extended(const std::string& command, std::vector<std::string>& info, std::string& final);
    void respond(const std::vector<std::string>& info, const std::string& final);
    void write(const std::string& bytes);
    void writeRaw(const std::vector<std::uint8_t>& bytes);
    void say(const std::string& line);
    void sendEvent(char code);
    void sendKey(char key);
    void record(bool fromHost, std::string text);
    void reset();

    void ring();
    void sendCallerId();
    void connect();
    void goOnHook();
    void scheduleKeys();
    void transmitTick();
    void receiveTick();
    void leaveData(const std::string& result);
    void busyTick();
    bool voiceClass() const { return fclass_ == "8" || fclass_ == "8.0" || fclass_ == "80"; }

    EventLoop& loop_;
    Options options_;
    int master_ = -1;
    int slave_ = -1; // kept open so that the master never sees a hang-up between clients
    std::string port_;
    std::unique_ptr<Watch> watch_;
    std::vector<Entry> transcript_;

    // Command state
    Mode mode_ = Mode::Command;
    std::string line_;
    bool afterDle_ = false;
    bool echo_ = true;
    bool verbose_ = true;
    bool quiet_ = false;
    std::string fclass_ = "0";
    int vcid_ = 0;
    int vsm_ = 0;
    int rate_ = 8000;
    int silenceTenths_ = 50;
    int ste_ = 0;
    bool offHook_ = false;

    // The call
    Phase phase_ = Phase::Idle;
    ScriptedCall call_;
    CallerAudio callerAudio_;
    int ringCount_ = 0;
    Milliseconds connectedAt_{0};
    bool callerGone_ = false;
    bool handedOver_ = false;
    bool extensionUp_ = false;
    std::vector<ScriptedCall::Key> keys_;
    std::size_t nextKey_ = 0;
    std::string lastCallerId_;

    // Playing
    std::deque<std::uint8_t> buffer_;
    std::vector<Play> plays_;
    bool draining_ = false;
    int dlesInARow_ = 0;
    // Recording
    Milliseconds receiveFrom_{0};  // call time of the next sound to send
    bool heardSpeech_ = false;
    Milliseconds quietSince_{0};
    bool silenceSent_ = false;
    std::uint64_t recordedBytes_ = 0;
    int eventsSent_ = 0;

    std::unique_ptr<Timer> ringTimer_;
    std::unique_ptr<Timer> callerIdTimer_;
    std::unique_ptr<Timer> keyTimer_;
    std::unique_ptr<Timer> hangUpTimer_;
    std::unique_ptr<Timer> dataTimer_;
    std::unique_ptr<Timer> busyTimer_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

} // namespace corvel::testing
