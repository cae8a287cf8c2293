#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "character/acs/character.h"

namespace corvel::acs {

// 8-bit RGBA, rows top to bottom, four bytes a pixel in the order R, G, B, A. Character pixels
// are either opaque (A = 255) or fully transparent (all four 0).
struct RgbaImage {
    int width = 0, height = 0;
    std::vector<std::uint8_t> pixels;

    // 0xRRGGBBAA
    std::uint32_t at(int x, int y) const
    {
        const std::uint8_t* p = &pixels[(static_cast<std::size_t>(y) * width + x) * 4];
        return std::uint32_t{p[0]} << 24 | std::uint32_t{p[1]} << 16 | std::uint32_t{p[2]} << 8 | p[3];
    }
    bool operator==(const RgbaImage&) const = default;
};

// Draws a frame at the character's frame size: its images from last to first (the first on
// top) at their offsets, clipped to the frame, the transparent palette index left clear. With a
// mouth shape for which the frame has an overlay, the overlay is drawn on top, in place of the
// first image when it says so. Images or overlays that do not exist are skipped.
RgbaImage composeFrame(const Character& character, const Frame& frame,
                       std::optional<MouthShape> mouth = std::nullopt);

// The frame's overlay for `shape`, or null.
const MouthOverlay* findMouthOverlay(const Frame& frame, MouthShape shape);

// The mouth shape for a speech viseme (0-21, the usual numbering of speech engines); silence
// and anything unknown close the mouth.
MouthShape mouthShapeForViseme(int viseme);

} // namespace corvel::acs
