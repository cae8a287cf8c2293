#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/data_folder.h"
#include "base/view.h"
#include "character/character_speech.h"
#include "records/caller_display.h"

namespace corvel {

// Pictures associated with telephone numbers: "piclist.txt" lists the numbers, one a line,
// and the picture of number N is the file "N.gif". A number matches a line when it occurs
// anywhere in it, without regard to case.
class CallerPictures {
public:
    static constexpr std::string_view listName = "piclist.txt";
    static constexpr std::string_view scratchName = "templist.txt"; // there only while the list is rewritten

    CallerPictures(const DataFolder& folder, View& view, CharacterSpeech& speech, CallerDisplay& display);

    void add();      // Command7: a picture for the number in txt_phone
    void remove();   // Command8: the number's association and picture
    void previous(); // Command9
    void next();     // Command10

    // The number as the list keeps it (without "-"), or nothing when it is no number or could
    // not name its picture file.
    static std::optional<std::string> listedNumber(std::string_view typed);
    // The picture of `number` becomes a copy of `picture`, and the number is listed once. False,
    // logged, when it is no number or the picture cannot be copied in.
    bool set(std::string_view number, const std::filesystem::path& picture);
    // The lines that are exactly this number go, and its picture; false when there were none.
    bool remove(std::string_view number);

private:
    // Rewrites the list without the lines `unlisted` picks, after what a stale scratch file holds
    // when `keepStaleScratch`; false when the file cannot be written.
    bool unlist(const std::function<bool(const std::string&)>& unlisted, bool keepStaleScratch);
    // txt_phone without its "-", written back.
    std::string typedNumber();
    void showEntry(std::string_view line);

    const DataFolder& folder_;
    View& view_;
    CharacterSpeech& speech_;
    CallerDisplay& display_;
};

} // namespace corvel
