// Phony, drawn by tools/make_phony, as Corvel ships it.
#include "phony.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

#include "character/acs/animation_player.h"
#include "character/acs/reader.h"
#include "character/acs/writer.h"

namespace corvel::acs {
namespace {

using namespace std::chrono_literals;

std::vector<std::uint8_t> shippedFile()
{
    std::ifstream in(CORVEL_PHONY_FILE, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// As the build ships it.
const Character& phony()
{
    static const Character character = readCharacter(shippedFile());
    return character;
}

TEST(Phony, HasEverythingCorvelPlaysAndSays)
{
    const Character& c = phony();
    EXPECT_EQ(c.name(), "Phony");
    EXPECT_FALSE(c.description().empty());
    for (const char* name : {"Show", "Hide", "RestPose", "Alert", "Acknowledge", "Announce", "Congratulate",
                             "GestureDown", "GestureUp", "Idle1_1", "Idle1_2"})
        EXPECT_TRUE(c.findAnimation(name)) << name;
    for (const char* name : {"Showing", "Hiding", "Speaking", "IdlingLevel1", "IdlingLevel2", "IdlingLevel3",
                             "GesturingUp", "GesturingDown", "GesturingLeft", "GesturingRight", "MovingUp",
                             "MovingDown", "MovingLeft", "MovingRight", "Listening", "Hearing"}) {
        const State* state = c.findState(name);
        ASSERT_TRUE(state) << name;
        for (const std::string& animation : state->animations) EXPECT_TRUE(c.findAnimation(animation)) << animation;
    }
    std::vector<MouthShape> shapes;
    for (const MouthOverlay& m : c.findAnimation("RestPose")->frames.back().mouths) shapes.push_back(m.shape);
    EXPECT_EQ(shapes.size(), static_cast<std::size_t>(mouthShapeCount));
    ASSERT_TRUE(c.voice && c.voice->details && c.balloon);
    EXPECT_GE(c.balloon->lines, 1);
    EXPECT_EQ(c.sounds.size(), 1u);
}

TEST(Phony, ImagesStayInsideTheFrame)
{
    const Character& c = phony();
    for (const Animation& a : c.animations)
        for (const Frame& f : a.frames) {
            for (const FrameImage& placed : f.images) {
                const Image& image = c.images[placed.image];
                EXPECT_TRUE(placed.x >= 0 && placed.y >= 0 && placed.x + image.width <= c.width &&
                            placed.y + image.height <= c.height)
                    << a.name;
            }
            for (const MouthOverlay& m : f.mouths) EXPECT_TRUE(m.x >= 0 && m.y >= 0) << a.name;
        }
}

TEST(Phony, TheShippedFileIsWhatTheDrawingMakesAndReadsBackTheSame)
{
    const Character drawn = phony::makePhony();
    const std::vector<std::uint8_t> file = writeCharacter(drawn);
    EXPECT_EQ(file, shippedFile());
    const Character back = readCharacter(file);
    EXPECT_EQ(back, drawn);
    EXPECT_EQ(writeCharacter(back), file);
}

// Each animation comes to rest by itself or, looping, once left; the gestures walk back to
// their first frame, the rest pose.
TEST(Phony, EveryAnimationComesToRest)
{
    const Character& c = phony();
    for (const Animation& a : c.animations) {
        AnimationPlayer player(c, seededRandom(3));
        AnimationPlayer::Time now{0};
        bool rested = false;
        player.play(a.name, now);
        for (; now < 60s && !rested; now += 10ms) rested = player.advance(now).cameToRest;
        player.exit(now);
        rested = false;
        for (const auto until = now + 10s; now < until && !rested; now += 10ms) rested = player.advance(now).cameToRest;
        EXPECT_TRUE(rested || a.transition != Transition::ExitBranches) << a.name;
        EXPECT_FALSE(player.nextChange()) << a.name;
        if (a.transition == Transition::ExitBranches && a.frames.back().images.empty()) {
            EXPECT_EQ(player.currentFrame()->frame, 0u) << a.name;
        }
    }
}

} // namespace
} // namespace corvel::acs
