#pragma once

// A headless Corvel on a session bus of the harness's own, killed with SIGKILL at a random
// moment while it writes: options, directory entries, caller pictures, a message recorded over
// the test line and new messages filed as old. After each kill a fresh Corvel starts on the
// same folders, and what it finds there is checked against what was acknowledged.

#include <functional>
#include <string>
#include <vector>

namespace corvel::e2e {

struct CrashReport {
    int kills = 0;
    int lost = 0;               // an acknowledged change not there, or a removal undone
    int doubled = 0;            // a directory line or picture association there twice
    int tornFiles = 0;          // settings that do not read whole, a listed picture missing or cut short
    int messagesLost = 0;       // a message told as recorded is not there
    int messagesDoubled = 0;    // a message there twice, or one nobody left
    int messagesMiscounted = 0; // the counts or the slot runs disagree with the files
    int brokenMessages = 0;     // a message WAV libsndfile cannot open
    int scratchLeft = 0;        // scratch files still there once a fresh Corvel has started
    int failedStarts = 0;       // a fresh Corvel did not come onto the bus
    std::vector<std::string> failures;

    int faults() const
    {
        return lost + doubled + tornFiles + messagesLost + messagesDoubled + messagesMiscounted + brokenMessages +
               scratchLeft + failedStarts;
    }
};

// Runs `kills` rounds of start, check, burst of writes and kill, the choices drawn from `seed`;
// `progress` hears a line for each kill.
CrashReport crashSoak(int kills, unsigned seed, const std::function<void(int kill, const std::string& line)>& progress);

} // namespace corvel::e2e
