#include "gif_writer.h"

#include <algorithm>
#include <fstream>
#include <string>
#include <unordered_map>

namespace corvel::assets {
namespace {

constexpr int maxCodes = 4096; // codes are at most 12 bits wide

// Packs variable-width codes least significant bit first, then cuts the bytes into the
// sub-blocks of at most 255 bytes that image data travels in.
class CodeStream {
public:
    void put(int code, int width)
    {
        bits_ |= static_cast<std::uint32_t>(code) << count_;
        for (count_ += width; count_ >= 8; count_ -= 8, bits_ >>= 8)
            bytes_.push_back(static_cast<char>(bits_ & 0xff));
    }

    std::string blocks()
    {
        if (count_ > 0) bytes_.push_back(static_cast<char>(bits_ & 0xff));
        std::string out;
        for (std::size_t at = 0; at < bytes_.size(); at += 255) {
            const std::size_t n = std::min<std::size_t>(255, bytes_.size() - at);
            out += static_cast<char>(n);
            out.append(bytes_, at, n);
        }
        return out + '\0'; // the empty block that ends the data
    }

private:
    std::string bytes_;
    std::uint32_t bits_ = 0;
    int count_ = 0;
};

// LZW as GIF has it. The decoder adds a table entry for every code it reads except the
// first after a clear, so it runs one entry behind the encoder: a code is written as wide
// as the decoder's table then needs, and the table restarts once the last 12-bit code is used.
std::string compress(const std::vector<std::uint8_t>& pixels, int minCodeSize)
{
    const int clear = 1 << minCodeSize;
    const int end = clear + 1;
    CodeStream out;
    std::unordered_map<std::uint32_t, int> table; // (prefix code << 8 | pixel) -> code
    int next = 0;
    int width = 0;
    auto restart = [&] {
        out.put(clear, width ? width : minCodeSize + 1);
        table.clear();
        next = clear + 2;
        width = minCodeSize + 1;
    };
    // After each code written the decoder gains an entry (from the second code on); the
    // width must cover the largest code it may then read, which is its newest entry.
    auto written = [&] {
        if (++next > (1 << width) && width < 12) ++width;
    };

    restart();
    int prefix = pixels[0];
    for (std::size_t i = 1; i < pixels.size(); ++i) {
        const std::uint32_t key = static_cast<std::uint32_t>(prefix) << 8 | pixels[i];
        if (const auto found = table.find(key); found != table.end()) {
            prefix = found->second;
            continue;
        }
        out.put(prefix, width);
        table.emplace(key, next);
        written();
        if (next == maxCodes) restart();
        prefix = pixels[i];
    }
    out.put(prefix, width);
    if (next != clear + 2) written(); // the decoder's entry for the last code (none if first)
    out.put(end, width);
    return out.blocks();
}

void put16(std::string& s, int v)
{
    s += static_cast<char>(v & 0xff);
    s += static_cast<char>((v >> 8) & 0xff);
}

} // namespace

bool writeGif(const std::filesystem::path& path, int width, int height,
              const std::vector<Rgb>& palette, const std::vector<std::uint8_t>& pixels)
{
    if (width < 1 || height < 1 || width > 0xffff || height > 0xffff || palette.empty() ||
        palette.size() > 256 || pixels.size() != static_cast<std::size_t>(width) * height)
        return false;
    if (std::any_of(pixels.begin(), pixels.end(), [&](std::uint8_t p) { return std::size_t{p} >= palette.size(); }))
        return false;

    int depth = 1; // the colour table holds 2^depth entries
    while ((1u << depth) < palette.size()) ++depth;

    std::string gif = "GIF89a";
    put16(gif, width);
    put16(gif, height);
    gif += static_cast<char>(0x80 | (depth - 1) << 4 | (depth - 1)); // global table, its size
    gif += '\0';                                                       // background index
    gif += '\0';                                                       // square pixels
    for (int i = 0; i < (1 << depth); ++i) {
        const Rgb c = i < static_cast<int>(palette.size()) ? palette[i] : Rgb{};
        gif += {static_cast<char>(c.r), static_cast<char>(c.g), static_cast<char>(c.b)};
    }
    gif += ',';
    put16(gif, 0);
    put16(gif, 0);
    put16(gif, width);
    put16(gif, height);
    gif += '\0'; // no local table, not interlaced
    const int minCodeSize = std::max(2, depth);
    gif += static_cast<char>(minCodeSize);
    gif += compress(pixels, minCodeSize);
    gif += ';';

    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(gif.data(), static_cast<std::streamsize>(gif.size()));
    return static_cast<bool>(file.flush());
}

} // namespace corvel::assets
