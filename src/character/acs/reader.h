#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>

#include "character/acs/character.h"

namespace corvel::acs {

// What a file may make the reader spend. A file only gets to claim sizes within these; images
// are decoded as they load, so the totals bound the memory a character takes.
struct ReadLimits {
    std::size_t maxFileBytes = std::size_t{512} << 20;
    std::uint16_t maxFrameSide = 2048;                   // frame width and height, pixels
    std::size_t maxImageBytes = std::size_t{16} << 20;   // one decoded image or region
    std::size_t maxDecodedBytes = std::size_t{256} << 20; // all images and regions together
};

// Reads a whole character file: header, character info (voice, balloon, palette, tray icon,
// states, localized names), animations with their frames, images (decompressed) and sounds.
// Throws AcsError with a plain account of the problem for anything damaged or unsupported: a
// wrong signature, a web-format (.acf) or version 1.5 character, a structure cut short, a count
// or offset past the end, an absurd size, an index to nothing.
Character readCharacter(std::span<const std::uint8_t> file, const ReadLimits& limits = {});

// The same for a file on disk; also throws AcsError when the file cannot be read.
Character readCharacterFile(const std::filesystem::path& path, const ReadLimits& limits = {});

} // namespace corvel::acs
