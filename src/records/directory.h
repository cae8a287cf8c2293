#pragma once

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

    Directory(const DataFolder& folder, View& view, CharacterSpeech& speech);

    // Refills the `contacts` list from the file.
    void loadcontacts();
    // Command28: asks for a number and a name and adds them.
    void addContact();
    // Command29: deletes every entry that contains the selected entry's number.
    void deleteContact();
    // The name of the first entry that contains `number` (without regard to case).
    std::optional<std::string> lookup(std::string_view number) const;
    // Whether an entry is for exactly this number (without regard to case), not merely one
    // that contains it.
    bool holds(std::string_view number) const;

private:
    const DataFolder& folder_;
    View& view_;
    CharacterSpeech& speech_;
};

} // namespace corvel
