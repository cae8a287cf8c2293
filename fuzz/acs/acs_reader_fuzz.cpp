// Any bytes: the reader refuses them with an AcsError or returns a character that the
// compositor can draw, the player can play and the writer writes back to the same character.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "character/acs/animation_player.h"
#include "character/acs/compositor.h"
#include "character/acs/reader.h"
#include "character/acs/writer.h"

namespace {

using namespace corvel::acs;
using namespace std::chrono_literals;

void exercise(const Character& c, std::uint32_t seed)
{
    int frames = 0;
    for (const Animation& a : c.animations)
        for (const Frame& f : a.frames) {
            if (++frames > 32) break;
            const std::optional<MouthShape> mouth =
                f.mouths.empty() ? std::nullopt : std::optional(f.mouths[seed % f.mouths.size()].shape);
            composeFrame(c, f, mouth);
        }

    AnimationPlayer player(c, seededRandom(seed), IdleTimes{100ms, 200ms, 300ms, 50ms});
    AnimationPlayer::Time now{0};
    player.setIdle(true, now);
    int played = 0;
    for (const Animation& a : c.animations) {
        if (++played > 8) break;
        player.play(a.name, now);
        for (int step = 0; step < 60; ++step, now += 37ms) player.advance(now);
        player.exit(now);
        for (int step = 0; step < 60; ++step, now += 37ms) player.advance(now);
    }
    for (const State& s : c.states) player.playState(s.name, now);
    player.setIdle(true, now);
    for (int step = 0; step < 50; ++step, now += 50ms) player.advance(now);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    ReadLimits limits;
    limits.maxDecodedBytes = std::size_t{32} << 20; // keeps each run quick
    Character c;
    try {
        c = readCharacter({data, size}, limits);
    } catch (const AcsError&) {
        return 0;
    }
    exercise(c, static_cast<std::uint32_t>(size));
    const std::vector<std::uint8_t> written = writeCharacter(c); // throws, and so fails, if it cannot
    if (!(readCharacter(written) == c)) __builtin_trap();
    return 0;
}
