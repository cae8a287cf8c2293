#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/event_loop.h"
#include "base/settings_store.h"
#include "telephony/line.h"
#include "telephony/sip/sip_audio.h"
#include "telephony/sip/sip_headers.h"
#include "telephony/sip/sip_settings.h"

namespace linphone {
class Call;
class Core;
class Player;
class PlayerListener;
} // namespace linphone

namespace corvel {

struct SipLineOptions {
    // The SIP stack's own files (its databases), converted prompts and recordings in progress.
    std::filesystem::path stateFolder;
    // Overrides the "listen" setting: the --sip-listen option.
    std::optional<std::string> listen;
    // The stack runs whenever one of its sockets has something to read. Its own timers (the
    // retransmissions, the end of a transaction) it keeps to itself, so after any traffic it
    // also runs on a clock for as long as a transaction may live: often during a call, so that
    // a key stops a prompt at once, less often after it, and not at all on a quiet line.
    Milliseconds callIterate{20};
    Milliseconds afterTrafficIterate{100};
    Milliseconds transactionLife{32000}; // 64 times SIP's T1
    // A registered account is refreshed on the stack's clock, which then runs this often.
    Milliseconds registeredIterate{1000};
};

// A Line on SIP through liblinphone. Device 0, "SIP (direct)", takes calls sent straight to
// the listen address (UDP and TCP) without any account; each configured account is a further
// device that registers with its provider or PBX and takes the calls that come through it.
//
// The stack runs on the event loop's thread, its iterate() called when its sockets are ready
// and on the pace the options set; every callback it raises is posted back to the loop and
// handled there, never inside the stack (which calls back from within accept and terminate).
// One call at a time: a second caller hears busy.
class SipLine final : public Line {
public:
    static constexpr std::string_view directName = "SIP (direct)";

    SipLine(EventLoop& loop, const SettingsStore& settings, SipLineOptions options);
    ~SipLine() override;
    SipLine(const SipLine&) = delete;
    SipLine& operator=(const SipLine&) = delete;

    // Where the line takes direct calls while it is open; nothing while the stack is down.
    std::optional<sip::ListenAddress> listening() const;

    std::vector<LineDevice> devices() const override;
    bool lineOpen() const override { return open_; }
    void setLineOpen(bool open) override;
    bool callActive() const override;
    void setCallActive(bool active) override;
    void answer() override;
    void drop() override;
    bool decline() override;
    void handOver() override;
    bool desktopCall() const override;
    void hangUpDesktopCall() override;
    std::string ownerApplication() const override { return std::string(ownLineControl); }
    std::string callerNumber() const override { return identity_.number; }
    std::string callerName() const override { return identity_.name; }
    bool numberWithheld() const override { return identity_.withheld; }
    bool numberUnavailable() const override { return identity_.unavailable; }
    void setDeviceNumber(std::int32_t number) override;
    std::string deviceName() const override;
    std::int32_t lastError() const override { return lastError_; }
    std::string providerName() const override { return "Corvel SIP line"; }
    bool hasWaveOut() const override { return true; }
    std::int32_t waveOutNumber() const override { return 0; }
    bool hasWaveIn() const override { return true; }
    std::int32_t waveInNumber() const override { return 0; }
    bool hasPhone() const override { return false; }
    std::int32_t phoneNumber() const override { return 0; }
    bool startPlay() override;
    bool playing() const override { return playing_; }
    void setPlaying(bool playing) override;
    bool recording() const override { return recording_.has_value(); }
    void setRecording(bool recording) override;

private:
    class StackListener;
    class EofListener;
    struct CurrentCall {
        enum class Phase { Ringing, Answered, HandedOver, Ended };
        std::shared_ptr<linphone::Call> call;
        Phase phase = Phase::Ringing;
        int rings = 0;
        bool ringing = false;            // its rings are being reported
        bool connected = false;          // the connected event has been reported
        std::filesystem::path recordPath; // where the stack records this call
        std::string handedTo;
    };
    struct Recording {
        std::filesystem::path target;         // the message file asked for
        std::filesystem::path recorded;       // where the stack writes it
        std::shared_ptr<linphone::Call> call; // none when there was no call to record
    };
    struct Prompt {
        std::filesystem::path file;
        Milliseconds length;
    };

    // The stack.
    bool startStack();
    void stopStack();
    std::string wantedConfiguration() const;
    const sip::Account* chosenAccount(const std::vector<sip::Account>& accounts) const;
    void iterate();
    // Runs the stack on the pace timer for at least `span` from now.
    void keepPace(Milliseconds span);
    void paceTick();
    void setCallPace(bool inCall);
    void stackReadable(int fd);
    // Watches the stack's sockets: again after traffic, since a connection comes or goes.
    void watchStackSockets();

    // Events from the stack, on the loop.
    void callStateChanged(const std::shared_ptr<linphone::Call>& call, int state, const std::string& message);
    void incomingCall(const std::shared_ptr<linphone::Call>& call);
    void callEnded(const std::shared_ptr<linphone::Call>& call, const std::string& message);
    void callReleased(const std::shared_ptr<linphone::Call>& call);
    void keyReceived(const std::shared_ptr<linphone::Call>& call, char key);
    void transferStateChanged(const std::shared_ptr<linphone::Call>& call, int state);
    void endOfFile(const std::shared_ptr<linphone::Player>& player);

    void startRinging();
    void ring();
    void report(std::function<void(LineEvents&)> event);
    void reportEvenWhenClosed(std::function<void(LineEvents&)> event);
    bool isCurrent(const std::shared_ptr<linphone::Call>& call) const;
    bool streamsRunning() const;

    void startPrompt();
    void promptEnded();
    void stopPlay();
    void finishRecording(Recording recording);
    void bridgeToDesktop();
    // Puts the desktop call on the computer's microphone and speaker as the stack finds them
    // now; false (logged) when it has none.
    bool useDesktopSound();
    void checkDesktopSound();

    EventLoop& loop_;
    const SettingsStore& settings_;
    SipLineOptions options_;
    sip::PromptCache prompts_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true); // posted tasks check it

    bool open_ = false;
    std::int32_t lastError_ = 0;
    std::shared_ptr<linphone::Core> core_;
    std::shared_ptr<StackListener> stackListener_;
    std::shared_ptr<linphone::PlayerListener> eofListener_; // an EofListener
    std::string configuration_; // what the running stack was started with
    std::optional<sip::ListenAddress> listening_;
    std::vector<std::string> trustedHosts_;
    bool registering_ = false; // an account is in use
    bool inCall_ = false;
    bool socketsUnseen_ = false; // the stack runs on the clock alone
    std::chrono::system_clock::time_point paceUntil_;
    std::map<int, std::unique_ptr<Watch>> stackWatches_;
    bool bridged_ = false; // a call handed over to the desktop's own microphone and speaker
    bool desktopSoundLost_ = false; // the desktop call has been sending the caller nothing
    std::uint64_t recordings_ = 0;

    std::shared_ptr<CurrentCall> call_;
    sip::CallerIdentity identity_; // of the last caller, until the next one rings

    std::vector<Prompt> queue_;
    std::size_t prompt_ = 0;
    bool playing_ = false;
    std::uint64_t playRun_ = 0; // a play-done or end of file from an earlier run is dropped
    std::shared_ptr<linphone::Player> player_;
    bool playerOpen_ = false;

    std::optional<Recording> recording_;
    std::vector<Recording> unfinished_; // stopped while their call was still closing its file

    // Last, so that they go first: their handlers use everything above.
    std::unique_ptr<Timer> iterateTimer_;
    std::unique_ptr<Timer> ringTimer_;
    std::unique_ptr<Timer> closedTimer_;
    std::unique_ptr<Timer> promptGuard_;
    std::unique_ptr<Timer> desktopSoundCheck_;
};

} // namespace corvel
