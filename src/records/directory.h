#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/data_folder.h"
#include "base/view.h"
#include "character/character_speech.h"

namespace corvel {

// The telephone directory "directory.ini": one "number,name" a line, in the order added. The
// name is what the character says when that number calls.
class Directory {
public:
    static constexpr std::string_view fileName = "directory.ini";
    static constexpr std::string_view scratchName = "tempdir.txt"; // there only while the file is rewritten

    Directory(const DataFolder& folder, View& view, CharacterSpeech& speech);

    // Refills the `contacts` list from the file.
    void loadcontacts();
    // Command28: asks for a number and a name and adds them as a further entry (a number may be
    // listed more than once; the first entry names it).
    void addContact();
    // Command29: deletes every entry that contains the selected entry's number.
    void deleteContact();

    // The number as an entry keeps it (without "-", " " and ","), or nothing when it is no number.
    static std::optional<std::string> entryNumber(std::string_view typed);
    // The name said when `number` calls: its entry takes the new name in its place, or one is
    // added. False, logged, when it is no number or the file cannot be written.
    bool set(std::string_view number, std::string_view name);
    // Deletes the entries for exactly this number; false when there were none.
    bool remove(std::string_view number);
    // The name of the first entry that contains `number` (without regard to case).
    std::optional<std::string> lookup(std::string_view number) const;
    // Whether an entry is for exactly this number (without regard to case), not merely one
    // that contains it.
    bool holds(std::string_view number) const;

private:
    // Rewrites the file without the lines `dropped` picks; false when it picks none or the file
    // cannot be written.
    bool drop(const std::function<bool(const std::string&)>& dropped) const;

    const DataFolder& folder_;
    View& view_;
    CharacterSpeech& speech_;
};

} // namespace corvel
