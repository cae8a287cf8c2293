// Draws the pictures and writes the sound that Corvel copies into a new data folder:
//   make_assets OUTPUT_DIR
// writes OUTPUT_DIR/digits/0.gif ... 9.gif, default.gif, withheld.gif and space.wav.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <numbers>
#include <string>
#include <string_view>
#include <vector>

#include <sndfile.h>

#include "gif_writer.h"

namespace fs = std::filesystem;
using namespace corvel::assets;

namespace {

struct Vec {
    double x, y;
};
Vec operator-(Vec a, Vec b) { return {a.x - b.x, a.y - b.y}; }
double length(Vec v) { return std::hypot(v.x, v.y); }

// ---- LED digits: lit segments are hexagons with pointed ends, tested at pixel centres
// only, so each pixel is either lit or dark.

constexpr int digitWidth = 20, digitHeight = 32;
constexpr double thick = 4, gap = 1; // segment thickness; space cut from each segment end

bool inSegment(Vec p, Vec a, Vec b) // the segment runs along one axis from a to b
{
    const bool across = a.y == b.y;
    const double along = across ? p.x : p.y, side = std::abs(across ? p.y - a.y : p.x - a.x);
    const double from = (across ? a.x : a.y) + gap, to = (across ? b.x : b.y) - gap;
    return side < thick / 2 && along > from + side && along < to - side;
}

bool writeDigit(const fs::path& path, int digit)
{
    // Segments a..g: top, upper right, lower right, bottom, lower left, upper left, middle.
    constexpr double l = 2 + thick / 2, r = digitWidth - 2 - thick / 2;
    constexpr double t = 2 + thick / 2, m = digitHeight / 2.0, b = digitHeight - 2 - thick / 2;
    const std::array<std::array<Vec, 2>, 7> segments{{{{{l, t}, {r, t}}}, {{{r, t}, {r, m}}},
                                                      {{{r, m}, {r, b}}}, {{{l, b}, {r, b}}},
                                                      {{{l, m}, {l, b}}}, {{{l, t}, {l, m}}},
                                                      {{{l, m}, {r, m}}}}};
    // The segments each digit lights; 6 and 9 keep their tails (a and d).
    static constexpr std::array<std::string_view, 10> lit{
        "abcdef", "bc",  "abdeg", "abcdg",   "bcfg", // 0 1 2 3 4
        "acdfg",  "acdefg", "abc", "abcdefg", "abcdfg"}; // 5 6 7 8 9
    std::vector<std::uint8_t> pixels;
    for (int y = 0; y < digitHeight; ++y)
        for (int x = 0; x < digitWidth; ++x) {
            const Vec p{x + 0.5, y + 0.5};
            pixels.push_back(std::ranges::any_of(lit[digit], [&](char s) {
                const auto& seg = segments[s - 'a'];
                return inSegment(p, seg[0], seg[1]);
            }));
        }
    return writeGif(path, digitWidth, digitHeight, {{0x14, 0x16, 0x1a}, {0xff, 0x3b, 0x30}},
                    pixels);
}

// ---- Caller pictures: shapes are signed distances (negative inside), painted in layers,
// sampled 4 x 4 per pixel and then matched to a palette of ramps between the layer colours.

constexpr int pictureSize = 96;

double circle(Vec p, Vec c, double radius) { return length(p - c) - radius; }

double capsule(Vec p, Vec a, Vec b, double radius) // a stroke from a to b with round ends
{
    const Vec ab = b - a, ap = p - a;
    const double h = std::clamp((ap.x * ab.x + ap.y * ab.y) / (ab.x * ab.x + ab.y * ab.y), 0.0, 1.0);
    return length({ap.x - h * ab.x, ap.y - h * ab.y}) - radius;
}

double roundBox(Vec p, Vec centre, Vec half, double radius)
{
    const Vec q{std::abs(p.x - centre.x) - half.x + radius, std::abs(p.y - centre.y) - half.y + radius};
    return length({std::max(q.x, 0.0), std::max(q.y, 0.0)}) + std::min(std::max(q.x, q.y), 0.0) -
           radius;
}

// A stroke along the circle (centre, r) from angle a0 to a1 (radians, clockwise on screen).
double arc(Vec p, Vec c, double r, double a0, double a1, double radius)
{
    double a = std::atan2(p.y - c.y, p.x - c.x);
    while (a < a0) a += 2 * std::numbers::pi;
    if (a <= a1) return std::abs(length(p - c) - r) - radius;
    auto end = [&](double e) { return length(p - Vec{c.x + r * std::cos(e), c.y + r * std::sin(e)}); };
    return std::min(end(a0), end(a1)) - radius;
}

double shoulders(Vec p) { return roundBox(p, {48, 103}, {33, 40}, 26); }
double silhouette(Vec p) { return std::min(circle(p, {48, 37}, 18.5), shoulders(p)); }

// A bold question mark standing where the head would be, its dot just above the shoulders.
double questionMark(Vec p)
{
    constexpr double pi = std::numbers::pi, stroke = 6, r = 12.5;
    const Vec c{48, 23};
    const double hook = arc(p, c, r, pi * 0.9, pi * 2.3, stroke);
    const Vec bend{c.x + r * std::cos(pi * 2.3), c.y + r * std::sin(pi * 2.3)};
    return std::min({hook, capsule(p, bend, {48, 40}, stroke), circle(p, {48, 54.5}, stroke + 0.5)});
}

struct Colour {
    double r, g, b;
};
constexpr Colour hex(unsigned v) { return {double(v >> 16), double(v >> 8 & 0xff), double(v & 0xff)}; }

struct Layer {
    std::function<double(Vec)> shape;
    Colour colour;
};

bool writePicture(const fs::path& path, Colour background, const std::vector<Layer>& layers)
{
    // The palette: every layer colour, and seven steps between each pair of them.
    std::vector<Colour> colours{background};
    for (const auto& layer : layers) colours.push_back(layer.colour);
    std::vector<Colour> palette = colours;
    for (std::size_t i = 0; i < colours.size(); ++i)
        for (std::size_t j = i + 1; j < colours.size(); ++j)
            for (int k = 1; k < 8; ++k) {
                const double f = k / 8.0;
                const Colour &a = colours[i], &b = colours[j];
                palette.push_back({a.r + (b.r - a.r) * f, a.g + (b.g - a.g) * f, a.b + (b.b - a.b) * f});
            }

    std::vector<std::uint8_t> pixels;
    for (int y = 0; y < pictureSize; ++y)
        for (int x = 0; x < pictureSize; ++x) {
            Colour sum{0, 0, 0};
            for (int sy = 0; sy < 4; ++sy)
                for (int sx = 0; sx < 4; ++sx) {
                    const Vec p{x + (sx + 0.5) / 4, y + (sy + 0.5) / 4};
                    Colour c = background;
                    for (const auto& layer : layers)
                        if (layer.shape(p) < 0) c = layer.colour;
                    sum = {sum.r + c.r / 16, sum.g + c.g / 16, sum.b + c.b / 16};
                }
            auto distance = [&](const Colour& c) {
                return std::pow(c.r - sum.r, 2) + std::pow(c.g - sum.g, 2) + std::pow(c.b - sum.b, 2);
            };
            pixels.push_back(static_cast<std::uint8_t>(
                std::ranges::min_element(palette, {}, distance) - palette.begin()));
        }

    std::vector<Rgb> rgb;
    auto byte = [](double v) { return static_cast<std::uint8_t>(std::lround(v)); };
    for (const auto& c : palette) rgb.push_back({byte(c.r), byte(c.g), byte(c.b)});
    return writeGif(path, pictureSize, pictureSize, rgb, pixels);
}

// ---- The chime: two soft sine tones, a rising fourth, each with a smooth onset and an
// exponential decay; the whole fades to silence and peaks at -12 dBFS.

bool writeChime(const fs::path& path)
{
    constexpr int rate = 22050;
    constexpr double seconds = 0.45, peak = 0.25; // 0.25 is about -12 dBFS
    const int frames = static_cast<int>(rate * seconds);
    std::vector<double> wave(frames);
    auto note = [&](double start, double frequency, double level) {
        for (int i = static_cast<int>(start * rate); i < frames; ++i) {
            const double t = i / double(rate) - start, w = 2 * std::numbers::pi * frequency * t;
            const double onset = t < 0.008 ? 0.5 - 0.5 * std::cos(std::numbers::pi * t / 0.008) : 1.0;
            const double overtone = 0.2 * std::exp(-t / 0.04) * std::sin(2 * w); // a brief shimmer
            wave[i] += level * onset * std::exp(-t / 0.11) * (std::sin(w) + overtone);
        }
    };
    note(0.0, 784.0, 1.0);   // G5
    note(0.12, 1046.5, 0.9); // C6
    for (int i = 0; i < frames; ++i) { // fade out over the last 60 ms
        const double left = (frames - 1 - i) / (0.06 * rate);
        if (left < 1) wave[i] *= 0.5 - 0.5 * std::cos(std::numbers::pi * left);
    }
    const double top = std::ranges::max(wave, {}, [](double v) { return std::abs(v); });
    std::vector<short> samples;
    for (double v : wave) samples.push_back(static_cast<short>(std::lround(v / std::abs(top) * peak * 32767)));

    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) return false;
    const bool written = sf_write_short(file, samples.data(), frames) == frames;
    return sf_close(file) == 0 && written;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTPUT_DIR\n", argv[0]);
        return 2;
    }
    const fs::path out = argv[1];
    std::error_code error;
    fs::create_directories(out / "digits", error);

    bool ok = !error;
    for (int d = 0; d < 10; ++d) ok = ok && writeDigit(out / "digits" / (std::to_string(d) + ".gif"), d);
    ok = ok && writePicture(out / "default.gif", hex(0xe4e7eb), {{silhouette, hex(0xa3a9b1)}});
    // Withheld: a darker figure whose head is a question mark.
    ok = ok && writePicture(out / "withheld.gif", hex(0xd3d6db),
                            {{shoulders, hex(0x6b7179)}, {questionMark, hex(0x50565e)}});
    ok = ok && writeChime(out / "space.wav");
    if (!ok) {
        std::fprintf(stderr, "make_assets: cannot write the files into %s\n", out.c_str());
        return 1;
    }
    return 0;
}
