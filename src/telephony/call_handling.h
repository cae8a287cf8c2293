#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "base/call_events.h"
#include "base/data_folder.h"
#include "base/event_loop.h"
#include "base/settings_store.h"
#include "base/view.h"
#include "character/agent.h"
#include "character/character_speech.h"
#include "messages/message_hook.h"
#include "messages/message_store.h"
#include "records/blocked_calls.h"
#include "records/call_log.h"
#include "records/caller_display.h"
#include "records/caller_id.h"
#include "records/directory.h"
#include "records/new_calls.h"
#include "telephony/call_control.h"
#include "telephony/call_screening.h"
#include "telephony/line.h"

namespace corvel {

// What happens on the line: choosing the modem, counting rings and answering, the dialogue
// with an answered caller, the keys they press, putting them through to the user and taking
// a message. Every wait yields to the event loop and ends as soon as `standby` runs.
class CallHandling {
public:
    // What the routines work with, each by name.
    struct Collaborators {
        EventLoop& loop;
        SettingsStore& settings;
        Line& line;
        View& view;
        Agent& agent;
        const DataFolder& folder;
        CallControl& calls;
        CharacterSpeech& speech;
        CallerDisplay& display;
        const Directory& directory;
        CallLog& callLog;
        NewCalls& newCalls;
        MessageStore& messages;
        CallEvents& events;
        CallerId& callerIdentity;
        const CallScreening& screening;
        BlockedCalls& blockedCalls;
        std::function<void()> endProgram; // the closing path, when a chosen line proves unusable
    };

    explicit CallHandling(Collaborators with);

    // --- Choosing the line device (ComboDevice) and opening it (Command1, START) ---
    void chooseDevice(int index);
    void start();

    // --- Events of the line ---
    void ring(std::int32_t count);
    // Caller ID: screens the caller, then announces and logs them unless they are blocked.
    void callerId();
    // The answered call is through: checks that the call is ours, then greets the caller.
    void connected();
    void digitpressed(std::string_view digit);

    // Shakes the main window to draw the eye to a ringing telephone.
    void shake();

    // --- frm_pickup: the user takes the caller on their own telephone ---
    void pickupClicked();
    // The same, asked for from outside the window (the command line); only while a caller waits.
    void takeCall();
    // The waiting caller is asked for a message at once, as their own "1" does.
    void takeMessage();
    // Ends the call the user took on the computer's microphone and speaker.
    void hangUpDesktopCall();
    // Ends Corvel's call, whichever it is: the one on the computer's microphone and speaker,
    // else the answered call on the line.
    void hangUp();

private:
    // The one place where a call is found blocked: it is kept in "blocked.txt", counted, and
    // turned away (declined where the line can, else answered for `turnAway`).
    void callBlocked(const std::string& callerText);
    // Plays the "blocked" prompt to an answered blocked caller and hangs up.
    void turnAway();
    bool callIsOurs();
    void interrogate();
    void readBackDeliveredNumber();
    void endNumber();
    // Plays `lead` (if any), "from" and the number's digits to the caller and waits for the
    // end; false when the call ended meanwhile or the read-back took too long.
    bool readBack(std::string lead, const std::string& number);
    void transfer();
    void leavemessage();
    void unloadme();

    // The prompt file a setting of section "audio" names, or the shipped one.
    std::string prompt(std::string_view key, std::string_view shippedName) const;
    std::string dataFile(std::string_view name) const;

    Collaborators with_;
};

} // namespace corvel
