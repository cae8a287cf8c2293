#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

namespace corvel::assets {

struct Rgb {
    std::uint8_t r = 0, g = 0, b = 0;
    friend bool operator==(const Rgb&, const Rgb&) = default;
};

// Writes one still, non-interlaced GIF89a picture. `pixels` holds width * height palette
// indices, row by row from the top left. The palette has 1 to 256 colours and every index
// must name one of them; false when the arguments do not fit or the file cannot be written.
bool writeGif(const std::filesystem::path& path, int width, int height,
              const std::vector<Rgb>& palette, const std::vector<std::uint8_t>& pixels);

} // namespace corvel::assets
