#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "base/view.h"
#include "character/character_speech.h"
#include "records/block_list.h"
#include "records/call_log.h"

namespace corvel {

// The user's side of the block list: blocking and unblocking a number, the last caller or the
// caller of a line of the recent calls, and the list page with its add, remove, import and
// export buttons. Every change refills the list `lst_blocked`.
class Blocking {
public:
    Blocking(View& view, CharacterSpeech& speech, BlockList& list, const DataFolder& folder)
        : view_(view), speech_(speech), list_(list), folder_(folder)
    {
    }

    // A number or a prefix ending in "*", as typed; false when it is no number.
    bool block(std::string_view number, std::string_view note = {});
    bool unblock(std::string_view number);
    // The caller of the newest caller-ID line of the call log; false when that caller's number
    // is unknown (withheld, unavailable) or there is no call yet.
    bool blockLastCaller();
    // The caller of a line of the recent calls, as `txt_reccalls` shows it; nothing for a line
    // that names no number.
    static std::optional<std::string> callerOf(std::string_view logLine);

    void loadList();
    // The recent-calls page: block or unblock the caller of the selected line.
    void blockSelectedCall();
    void unblockSelectedCall();
    // The block-list page.
    void addClicked();
    void removeClicked();
    void importClicked();
    void exportClicked();

private:
    void cannotBlock();

    View& view_;
    CharacterSpeech& speech_;
    BlockList& list_;
    const DataFolder& folder_;
};

} // namespace corvel
