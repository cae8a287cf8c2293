#pragma once

#include <filesystem>
#include <string>
#include <string_view>

#include "base/call_events.h"
#include "base/event_loop.h"
#include "base/settings_store.h"
#include "base/shell.h"

namespace corvel {

// The user's command for each recorded message (setting "messagecommand"): mail, chat or home
// automation. It is split as a desktop entry's Exec is and started directly, never through a
// shell, with the message file, the caller text and the time appended as three arguments and
// also set as CORVEL_MESSAGE, CORVEL_CALLER and CORVEL_TIME. It follows the calls' events.
class MessageHook final : public CallEvents {
public:
    MessageHook(const SettingsStore& settings, Shell& shell, const Clock& clock)
        : settings_(settings), shell_(shell), clock_(clock)
    {
    }

    void messageRecorded(const std::filesystem::path& message, std::string_view caller) override;

    // The caller text as the command gets it: one line, and never starting with "-", so that a
    // caller cannot pass the command an option of their choosing.
    static std::string callerArgument(std::string_view caller);

private:
    std::string timeText() const;

    const SettingsStore& settings_;
    Shell& shell_;
    const Clock& clock_;
};

} // namespace corvel
