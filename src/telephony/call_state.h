#pragma once

#include <cstdint>
#include <string>

namespace corvel {

enum class CallPhase : std::int16_t {
    Idle = 0,
    Interrogating = 1, // asking the caller for their number
    PuttingThrough = 2,
    TakingMessage = 3,
};

// What screening made of the caller: an ordinary call, one turned away, one left to ring for
// the user, or one taken quietly during quiet hours.
enum class CallScreen : std::int8_t { Ordinary, Blocked, Trusted, Quiet };

// The state of the one call on the line, shared by every step of the call dialogue. It
// starts as `standby` leaves it.
struct CallState {
    CallPhase callphase = CallPhase::Idle;
    bool callInProgress = false; // an answered call is being handled
    bool callover = true;        // no call, or the call is being abandoned: every step stops
    bool playdone = false;
    std::int16_t countdown = 0;  // seconds left in the current wait; 0 ends it
    bool callerIdReceived = false;
    bool noCallerNumber = true;  // withheld or unavailable
    std::string currentCaller;   // "Withheld", "Unavailable", the number, or the keyed digits
    bool entrydone = false;
    int idleCountdown = 0;       // seconds an answered call may still last
    bool lineflag = false;
    bool inmessage = false;      // guards the end of digit entry; set while taking a message
    bool wantsmessage = false;   // the caller pressed 1 for a message
    CallScreen screen = CallScreen::Ordinary; // decided afresh for every call
};

} // namespace corvel
