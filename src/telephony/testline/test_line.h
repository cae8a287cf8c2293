#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/event_loop.h"
#include "base/microphone.h"
#include "base/sound_output.h"
#include "telephony/line.h"

namespace corvel {

// A caller that the test line plays out: how they ring, what caller ID the network delivers,
// and what they do once the call is answered. Times in `keys`, `speechAt` and `hangUpAt`
// count from the moment the call is connected.
struct ScriptedCall {
    enum class Identity { None, Number, Withheld, Unavailable };
    struct Key {
        Milliseconds at;
        char key;
    };

    Identity identity = Identity::None;
    std::string number; // delivered with Identity::Number, as the network spells it
    std::string name;   // the name the network delivers beside the number, if any
    Milliseconds ringCadence{6000};
    int ringsBeforeGivingUp = 10; // an unanswered caller hangs up after this many rings
    std::vector<Key> keys;
    std::filesystem::path speech; // a wave file the caller speaks; none means silence
    Milliseconds speechAt{0};
    std::optional<Milliseconds> hangUpAt;
    std::string ownerApplication{ownLineControl};

    // A caller whom a person plays, key by key, rather than a script: they ring on for longer.
    static ScriptedCall played(Identity identity, std::string number, std::string name);
    // The identity by its lower-case name: "number", "withheld", "unavailable" or "none".
    static std::optional<Identity> identityNamed(std::string_view name);
};

// What the caller heard of one file of a play list.
struct HeardPrompt {
    std::string file;
    Milliseconds startedAt; // since the call was connected
    Milliseconds heard;     // how much of it played before it ended or was stopped
    bool complete = false;  // played to its end
};

// A simulated line in this process. A scripted caller rings, delivers caller ID between the
// first and the second ring, keys digits, speaks and hangs up; prompts play for their real
// lengths in the loop's time and recordings are real wave files of the caller's audio. It
// behaves the same on the virtual loop of the tests and on the desktop's loop.
class TestLine final : public Line {
public:
    static constexpr std::string_view name = "Test line";

    explicit TestLine(EventLoop& loop);
    ~TestLine() override;

    // The caller starts ringing now: the first ring is reported at once.
    void placeCall(ScriptedCall call);
    // The caller acts now, outside the script (the desktop's test-line panel does this).
    void pressKey(char key);
    void hangUp();

    // A person playing the caller: they hear the prompts on `ear` and speak into `mouth`,
    // instead of the script's speech.
    void setLiveCaller(SoundOutput* ear, Microphone* mouth)
    {
        ear_ = ear;
        mouth_ = mouth;
    }

    // The next closing of the line fails with this error, as a broken modem's would.
    void failNextClose(std::int32_t error) { closeError_ = error; }

    // What the caller of the last call heard.
    const std::vector<HeardPrompt>& transcript() const { return transcript_; }
    int ringCount() const { return ringCount_; }
    bool ringing() const;
    // Whether the last call was handed over to the user's own telephone.
    bool handedOver() const { return handedOver_; }

    std::vector<LineDevice> devices() const override;
    bool lineOpen() const override;
    void setLineOpen(bool open) override;
    bool callActive() const override;
    void setCallActive(bool active) override;
    void answer() override;
    void drop() override;
    void handOver() override;
    std::string ownerApplication() const override;
    std::string callerNumber() const override;
    std::string callerName() const override;
    bool numberWithheld() const override;
    bool numberUnavailable() const override;
    void setDeviceNumber(std::int32_t number) override { deviceNumber_ = number; }
    std::string deviceName() const override { return std::string(name); }
    std::int32_t lastError() const override { return lastError_; }
    std::string providerName() const override { return "Corvel test line"; }
    bool hasWaveOut() const override { return true; }
    std::int32_t waveOutNumber() const override { return 0; }
    bool hasWaveIn() const override { return true; }
    std::int32_t waveInNumber() const override { return 0; }
    bool hasPhone() const override { return false; }
    std::int32_t phoneNumber() const override { return 0; }
    bool startPlay() override;
    bool playing() const override;
    void setPlaying(bool playing) override;
    bool recording() const override;
    void setRecording(bool recording) override;

private:
    class Alarm;
    struct Call;
    struct Recording;
    struct Prompt {
        std::string file;
        Milliseconds length;
    };
    enum class Phase { Idle, Ringing, Connected };

    Milliseconds loopTime() const;
    void report(std::function<void(LineEvents&)> event);
    void ring();
    void ringCadenceEnded();
    void deliverCallerId();
    void scheduleNextKey();
    void stopScript();
    void startPrompt();
    void promptEnded();
    void stopPlay();
    void stopRecording();

    EventLoop& loop_;
    std::chrono::system_clock::time_point origin_; // loop time counts from here
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true); // posted events check it
    SoundOutput* ear_ = nullptr;
    Microphone* mouth_ = nullptr;
    bool lineOpen_ = false;
    std::int32_t lastError_ = 0;
    std::int32_t closeError_ = 0;
    bool handedOver_ = false;
    Phase phase_ = Phase::Idle;
    std::shared_ptr<Call> call_;       // the last call placed
    int ringCount_ = 0;
    Milliseconds connectedAt_{0};      // loop time of the last connection
    std::string ownerApplication_;
    std::string callerNumber_;
    std::string callerName_;
    bool numberWithheld_ = false;
    bool numberUnavailable_ = false;
    std::vector<ScriptedCall::Key> keys_; // the script's keys in time order
    std::size_t nextKey_ = 0;

    std::vector<Prompt> prompts_;
    std::size_t currentPrompt_ = 0;
    bool playing_ = false;
    Milliseconds promptStartedAt_{0};
    std::uint64_t playRun_ = 0;        // a play-done from an earlier run is not delivered
    std::vector<HeardPrompt> transcript_;

    std::unique_ptr<Recording> recording_;

    // Last, so that they go first: their handlers use everything above.
    std::unique_ptr<Alarm> ringAlarm_;
    std::unique_ptr<Alarm> callerIdAlarm_;
    std::unique_ptr<Alarm> keyAlarm_;
    std::unique_ptr<Alarm> hangUpAlarm_;
    std::unique_ptr<Alarm> playAlarm_;
};

} // namespace corvel
