#pragma once

#include <optional>
#include <string_view>

#include "base/event_loop.h"
#include "base/settings_store.h"
#include "records/block_list.h"
#include "records/directory.h"
#include "telephony/call_state.h"

namespace corvel {

// Screening beyond the answering options, each switched on by its own key of section "data"
// (all off by default, when every call is ordinary): blocked numbers and prefixes, withheld
// and unavailable callers blocked as a whole, callers in the directory left to ring for the
// user, and quiet hours.
class CallScreening {
public:
    struct Collaborators {
        const SettingsStore& settings;
        const Clock& clock;
        const BlockList& blockList;
        const Directory& directory;
    };

    explicit CallScreening(Collaborators with) : with_(with) {}

    // What to make of a caller once the line has told who it is; `number` as the line delivers it.
    CallScreen judge(std::string_view number, bool withheld, bool unavailable) const;
    // Whether the clock stands in the quiet hours, when they are switched on.
    bool quietHours() const;

    // "hh:mm" as minutes since midnight; nothing for anything else.
    static std::optional<int> minuteOfDay(std::string_view text);
    // Whether `minute` lies in the daily period from `from` up to `to`, which crosses midnight
    // when `to` comes before `from`; a period that ends where it starts is empty.
    static bool within(int minute, int from, int to);

private:
    Collaborators with_;
};

} // namespace corvel
