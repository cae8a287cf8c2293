#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "character/acs/character.h"

namespace corvel::acs {

struct WriteOptions {
    bool compressImages = true; // images and regions; raw otherwise
};

// Lays out a character file that readCharacter reads back equal: header, animation records,
// images, sounds, the three directories, the character info block and the localized table.
// The voice and balloon style bits follow Character::voice and Character::balloon.
// Throws AcsError when the character cannot be stored or would not read back: an index to
// nothing, an animation without frames, a count too large for its field, pixels that do not
// match an image's size.
std::vector<std::uint8_t> writeCharacter(const Character& character, const WriteOptions& options = {});

// The same, written to `path` (through a scratch file renamed into place). Throws AcsError.
void writeCharacterFile(const Character& character, const std::filesystem::path& path,
                        const WriteOptions& options = {});

// The region of an image: its non-transparent pixels as rectangles, one band of equal rows at
// a time, as the character format stores it.
std::vector<RegionRect> regionOf(const Image& image, std::uint8_t transparentIndex);

} // namespace corvel::acs
