#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "base/call_events.h"
#include "base/event_loop.h"
#include "base/line_lamps.h"
#include "base/view.h"
#include "telephony/call_state.h"
#include "telephony/line.h"

namespace corvel {

// The routines that react to the line beyond the shared call state: ring counting and
// answering, the caller-ID announcement, the dialogue, digit entry and the message count.
class CallRoutines {
public:
    virtual void ring(std::int32_t count) = 0;
    virtual void callerId() = 0;
    virtual void connected() = 0;
    virtual void digitpressed(std::string_view digit) = 0;
    virtual void checkmessages() = 0;

protected:
    ~CallRoutines() = default;
};

// Owns the state of the call on the line and the housekeeping around it: returning to idle
// (`standby`), the one-second call timer (`Timer1`), the activity lamps (`Timer2`), the "*"
// hang-up, and playing prompts to the caller.
class CallControl final : private LineEvents {
public:
    CallControl(EventLoop& loop, Line& line, View& view, CallEvents& events);
    ~CallControl();
    CallControl(const CallControl&) = delete;
    CallControl& operator=(const CallControl&) = delete;

    // Line events other than those handled here are passed to `routines`.
    void setRoutines(CallRoutines* routines) { routines_ = routines; }

    CallState& state() { return state_; }
    const CallState& state() const { return state_; }
    const LineLamps& lamps() const { return lamps_; }

    // Ends whatever the line is doing and returns to idle: stops play and record, hangs up,
    // resets the call state, reopens the line after a second and recounts the messages.
    void standby();

    // Yields to the event loop for `seconds` of the seconds-since-midnight clock.
    void pause(std::uint8_t seconds);

    // Yields to the event loop until `done` holds.
    void waitUntil(const std::function<bool()>& done);

    // Lights the keypress lamp and its legend; the next tick of `Timer2` puts the lamp out.
    void lightKeypressLamp();
    // Starts the one-second timers again after they went to sleep: every line event, wait and
    // opening of the line does, since each may give them something to do.
    void wake();

    // --- Playing a prompt to the caller ---
    // The message shown when the prompt with this default file name cannot be played.
    static std::string cantPlay(std::string_view fileName);
    // Starts the play list; when it cannot be played, ends the call and shows `failureText`.
    bool startPlay(std::string_view failureText);
    void stopPlaying();
    // Replaces the play list with `list` and starts it, or ends the call (see startPlay).
    bool playPrompt(std::string list, std::string_view failureText);
    // As playPrompt, then waits until the prompt ends, `seconds` pass or `until` holds, and
    // stops it. Returns false when the call was ended because the prompt could not start.
    bool playPromptAndWait(std::string list, std::string_view failureText, std::int16_t seconds,
                           const std::function<bool()>& until = {});

private:
    void ring(std::int32_t count) override;
    void callerId() override;
    void connected() override;
    void digitReceived(char16_t digit) override;
    void callOwnerChanged() override;
    void callStateChanged() override;
    void mediaModeChanged() override;
    void callerHungUp() override;
    void playDone() override;
    void desktopCallEnded() override;

    void timer1Tick();
    void timer2Tick();
    // No call, no wait and every lamp as the line stands: an idle line costs no wake-ups.
    bool nothingToDo() const;
    void sleepIfIdle();
    void showLamps();

    EventLoop& loop_;
    Line& line_;
    View& view_;
    CallEvents& events_;
    CallRoutines* routines_ = nullptr;
    bool callKnown_ = false; // a call rang or announced itself and has not ended yet
    CallState state_;
    LineLamps lamps_;
    std::unique_ptr<Timer> timer1_;
    std::unique_ptr<Timer> timer2_;
    std::unique_ptr<Timer> ringsOver_;
};

} // namespace corvel
