#pragma once

// Internal to the reader and the writer: the fixed numbers of the file layout.

#include <cstddef>
#include <cstdint>

namespace corvel::acs::detail::layout {

inline constexpr std::uint32_t signature = 0xABCDABC3;
inline constexpr std::uint32_t webSignature = 0xABCDABC4; // .acf with separate .aca files
inline constexpr std::uint8_t compoundFileSignature[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
inline constexpr std::size_t headerSize = 36;

// Character info versions, major << 16 | minor; anything else is a damaged file.
inline constexpr std::uint32_t knownVersions[] = {0x1001C, 0x1001E, 0x1001F, 0x20001};
inline constexpr std::uint16_t versionMinor = 1, versionMajor = 2;

inline constexpr std::size_t mouthOverlaySize = 14;
inline constexpr std::uint32_t regionHeaderSize = 32;
inline constexpr std::uint32_t regionKindRectangles = 1;

// Rows of a stored raster are padded to four bytes.
constexpr std::size_t stride(std::size_t width) { return (width + 3) & ~std::size_t{3}; }

} // namespace corvel::acs::detail::layout
