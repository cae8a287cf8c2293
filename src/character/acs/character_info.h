#pragma once

#include <filesystem>
#include <iosfwd>

#include "character/acs/character.h"

namespace corvel::acs {

// `corvel --acs-info FILE`: prints the character's name, description, frame size, every
// animation with its frame count, and the states with their animations. For a file it cannot
// read it prints one line to `err` saying why, and returns 1; 0 otherwise.
int printCharacterInfo(const std::filesystem::path& file, std::ostream& out, std::ostream& err);

// The same listing for a character already read.
void describeCharacter(const Character& character, std::ostream& out);

} // namespace corvel::acs
