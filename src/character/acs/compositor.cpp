#include "character/acs/compositor.h"

#include <algorithm>
#include <array>

namespace corvel::acs {

namespace {

// Copies the image's opaque pixels into the index canvas, clipped.
void drawImage(std::vector<std::uint8_t>& canvas, int width, int height, const Image& image, int left,
               int top, std::uint8_t transparent)
{
    if (image.empty() || image.pixels.size() != std::size_t{image.width} * image.height) return;
    const int x0 = std::max(0, left), x1 = std::min(width, left + image.width);
    const int y0 = std::max(0, top), y1 = std::min(height, top + image.height);
    if (x0 >= x1) return;
    for (int y = y0; y < y1; ++y) {
        const std::uint8_t* from = &image.pixels[static_cast<std::size_t>(y - top) * image.width];
        std::uint8_t* to = &canvas[static_cast<std::size_t>(y) * width];
        for (int x = x0; x < x1; ++x) {
            const std::uint8_t index = from[x - left];
            if (index != transparent) to[x] = index;
        }
    }
}

} // namespace

const MouthOverlay* findMouthOverlay(const Frame& frame, MouthShape shape)
{
    const auto found = std::ranges::find(frame.mouths, shape, &MouthOverlay::shape);
    return found == frame.mouths.end() ? nullptr : &*found;
}

RgbaImage composeFrame(const Character& character, const Frame& frame, std::optional<MouthShape> mouth)
{
    const int width = character.width, height = character.height;
    const std::uint8_t transparent = character.transparentIndex;
    std::vector<std::uint8_t> canvas(static_cast<std::size_t>(width) * height, transparent);

    const MouthOverlay* overlay = mouth ? findMouthOverlay(frame, *mouth) : nullptr;
    if (overlay && overlay->image >= character.images.size()) overlay = nullptr;
    for (std::size_t i = frame.images.size(); i-- > 0;) {
        if (i == 0 && overlay && overlay->replacesFirstImage) continue;
        const FrameImage& placed = frame.images[i];
        if (placed.image < character.images.size())
            drawImage(canvas, width, height, character.images[placed.image], placed.x, placed.y, transparent);
    }
    if (overlay) drawImage(canvas, width, height, character.images[overlay->image], overlay->x, overlay->y, transparent);

    RgbaImage out{width, height, std::vector<std::uint8_t>(canvas.size() * 4, 0)};
    for (std::size_t p = 0; p < canvas.size(); ++p) {
        const std::uint8_t index = canvas[p];
        if (index == transparent || index >= character.palette.size()) continue;
        const Rgb& c = character.palette[index];
        out.pixels[p * 4] = c.r;
        out.pixels[p * 4 + 1] = c.g;
        out.pixels[p * 4 + 2] = c.b;
        out.pixels[p * 4 + 3] = 0xFF;
    }
    return out;
}

MouthShape mouthShapeForViseme(int viseme)
{
    using enum MouthShape;
    static constexpr std::array<MouthShape, 22> shapes{
        Closed, Wide2, Wide4, Medium, Wide3, Wide2, Medium, Narrow, Narrow, Medium, Narrow, // 0-10
        Wide3,  Wide1, Wide1, Wide1,  Wide1, Wide1, Wide1,  Wide1,  Wide1,  Wide1,  Closed, // 11-21
    };
    return viseme >= 0 && viseme < static_cast<int>(shapes.size()) ? shapes[static_cast<std::size_t>(viseme)] : Closed;
}

} // namespace corvel::acs
