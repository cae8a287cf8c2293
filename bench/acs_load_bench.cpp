// Loading a character file of about 2 MB made by Corvel's writer (target: 100 ms or less),
// and drawing one of its frames. The character is built like a drawn one: layered round
// shapes in a few colours, with some grain so that it compresses about as well as real
// characters do.

#include <benchmark/benchmark.h>

#include <random>

#include "character/acs/compositor.h"
#include "character/acs/reader.h"
#include "character/acs/writer.h"

namespace {

using namespace corvel::acs;

constexpr int side = 128;
constexpr std::size_t targetBytes = 2'000'000;

Image drawnImage(std::mt19937& random)
{
    Image image{side, side - 8, std::vector<std::uint8_t>(side * (side - 8), 0), {}};
    for (int shape = 0; shape < 6; ++shape) {
        const int cx = 20 + static_cast<int>(random() % 88), cy = 20 + static_cast<int>(random() % 80);
        const int r = 10 + static_cast<int>(random() % 30);
        const auto colour = static_cast<std::uint8_t>(11 + random() % 200);
        for (int y = 0; y < image.height; ++y)
            for (int x = 0; x < image.width; ++x)
                if ((x - cx) * (x - cx) + (y - cy) * (y - cy) < r * r)
                    image.pixels[static_cast<std::size_t>(y) * image.width + x] =
                        random() % 8 == 0 ? static_cast<std::uint8_t>(colour + 1 + random() % 3) : colour;
    }
    image.region = regionOf(image, 0);
    return image;
}

const std::vector<std::uint8_t>& characterFile()
{
    static const std::vector<std::uint8_t> file = [] {
        std::mt19937 random(42);
        Character c;
        c.width = c.height = side;
        c.palette.resize(256);
        for (std::size_t i = 0; i < 256; ++i)
            c.palette[i] = {static_cast<std::uint8_t>(i), static_cast<std::uint8_t>(255 - i), static_cast<std::uint8_t>(i * 7)};
        c.voice = Voice{};
        c.balloon = Balloon{};
        c.localizedInfo = {{Character::english, "Bench", "A character of about 2 MB", ""}};
        std::vector<std::uint8_t> written;
        while (written.size() < targetBytes) {
            for (int i = 0; i < 50; ++i) c.images.push_back(drawnImage(random));
            Animation a{"Animation" + std::to_string(c.animations.size()), Transition::ExitBranches, "", {}};
            for (std::size_t i = c.images.size() - 50; i < c.images.size(); ++i) {
                Frame f;
                f.images = {{static_cast<std::uint32_t>(i), 0, 4}};
                f.exitFrame = static_cast<std::int16_t>(a.frames.size()) - 1;
                a.frames.push_back(f);
            }
            c.animations.push_back(a);
            c.states.push_back({"STATE" + std::to_string(c.states.size()), {a.name}});
            written = writeCharacter(c);
        }
        return written;
    }();
    return file;
}

void LoadCharacter(benchmark::State& state)
{
    const auto& file = characterFile();
    std::size_t images = 0;
    for (auto _ : state) {
        const Character c = readCharacter(file);
        images = c.images.size();
        benchmark::DoNotOptimize(c.images.data());
    }
    state.counters["file_MB"] = static_cast<double>(file.size()) / 1e6;
    state.counters["images"] = static_cast<double>(images);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * file.size()));
}
BENCHMARK(LoadCharacter)->Unit(benchmark::kMillisecond);

void ComposeFrame(benchmark::State& state)
{
    const Character c = readCharacter(characterFile());
    const Frame& frame = c.animations.front().frames.front();
    for (auto _ : state) benchmark::DoNotOptimize(composeFrame(c, frame).pixels.data());
}
BENCHMARK(ComposeFrame)->Unit(benchmark::kMicrosecond);

} // namespace
