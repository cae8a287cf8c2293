#include "character/acs/animation_player.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <map>

#include "sample_character.h"

namespace corvel::acs {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::timedFrame;
using Time = AnimationPlayer::Time;

Animation animation(std::string name, Transition transition, std::vector<Frame> frames, std::string back = "")
{
    return {std::move(name), transition, std::move(back), std::move(frames)};
}

// Frames 0-3 go out, each leaving to the one before; 4 is the closing empty frame.
Animation gesture(std::string name)
{
    return animation(std::move(name), Transition::ExitBranches,
                     {timedFrame(10, 4), timedFrame(10, 0), timedFrame(10, 1), timedFrame(10, 2), timedFrame(0, -2)});
}

// Plays the character on a clock moved in 10 ms steps, noting each frame as "Name:frame".
struct Playback {
    Character character;
    std::deque<int> draws; // scripted random draws; seeded once these run out
    RandomSource seeded = seededRandom(1);
    AnimationPlayer player{character, [this](int bound) {
                               if (draws.empty()) return seeded(bound);
                               const int next = draws.front();
                               draws.pop_front();
                               return next;
                           },
                           IdleTimes{1s, 5s, 20s, 500ms}};
    Time now{0};
    std::vector<std::string> shown;
    std::vector<Time> rests;
    std::vector<std::int16_t> sounds;

    explicit Playback(std::vector<Animation> animations, std::vector<State> states = {})
        : character([&] {
              Character c;
              c.animations = std::move(animations);
              c.states = std::move(states);
              return c;
          }())
    {
    }

    void note(const AnimationPlayer::Update& u)
    {
        if (u.frameChanged) {
            const auto at = *player.currentFrame();
            shown.push_back(character.animations[at.animation].name + ":" + std::to_string(at.frame));
        }
        if (u.cameToRest) rests.push_back(now);
        sounds.insert(sounds.end(), u.sounds.begin(), u.sounds.end());
    }
    void runFor(std::chrono::milliseconds span)
    {
        for (const Time end = now + span; now < end;) {
            note(player.advance(now));
            now += 10ms;
        }
        note(player.advance(now));
    }
};

TEST(AnimationPlayer, FrameTimesAddUpWithoutDriftWhenAdvancedLate)
{
    Playback run({animation("A", Transition::None, {timedFrame(10), timedFrame(20), timedFrame(30)})});
    run.character.animations[0].frames[1].sound = 4;
    run.player.play("a", 0ms);
    run.note(run.player.advance(0ms));
    EXPECT_EQ(run.player.nextChange(), Time{100});
    run.note(run.player.advance(Time{330})); // late: frame 1 came up at 100 and frame 2 at 300
    EXPECT_THAT(run.shown, ElementsAre("A:0", "A:2"));
    EXPECT_THAT(run.sounds, ElementsAre(4)); // frame 1 was passed, not skipped
    EXPECT_EQ(run.player.nextChange(), Time{600});
    run.note(run.player.advance(Time{599}));
    EXPECT_TRUE(run.rests.empty());
    run.now = Time{600};
    run.note(run.player.advance(run.now));
    EXPECT_THAT(run.rests, ElementsAre(Time{600}));
    EXPECT_EQ(run.player.phase(), AnimationPlayer::Phase::Resting);
    EXPECT_EQ(run.player.currentFrame(), (FramePosition{0, 2})); // the last frame stays
    EXPECT_FALSE(run.player.nextChange());
}

TEST(AnimationPlayer, FramesOfNoDurationAreNeverShown)
{
    Playback run({animation("A", Transition::None, {timedFrame(10), timedFrame(0, -2, {{3, 100}}), timedFrame(10), timedFrame(10), timedFrame(0)})});
    run.character.animations[0].frames[1].sound = 2; // not shown, not heard
    run.player.play("A", 0ms);
    run.runFor(1s);
    EXPECT_THAT(run.shown, ElementsAre("A:0", "A:3"));
    EXPECT_TRUE(run.sounds.empty());
    EXPECT_THAT(run.rests, ElementsAre(Time{200}));
}

TEST(AnimationPlayer, BranchesAreTakenByTheDrawAgainstTheirProbabilities)
{
    // From frame 0: 30% to frame 2, 50% to frame 3, otherwise on to frame 1.
    const Animation a = animation("A", Transition::None,
                                  {timedFrame(10, -2, {{2, 30}, {3, 50}}), timedFrame(10, -1), timedFrame(10, -1), timedFrame(10, -1)});
    std::map<int, std::string> after;
    for (const int draw : {0, 29, 30, 79, 80, 99}) { // draws 1-100 are these plus one
        Playback run({a});
        run.draws = {draw};
        run.player.play("A", 0ms);
        run.runFor(150ms);
        after[draw + 1] = run.shown.at(1);
    }
    EXPECT_THAT(after, ElementsAre(std::pair{1, "A:2"}, std::pair{30, "A:2"}, std::pair{31, "A:3"}, std::pair{80, "A:3"},
                                   std::pair{81, "A:1"}, std::pair{100, "A:1"}));

    std::map<std::string, int> counts;
    Playback run({a});
    for (int i = 0; i < 4000; ++i) {
        run.shown.clear();
        run.player.play("A", run.now);
        run.runFor(150ms);
        ++counts[run.shown.at(1)];
    }
    EXPECT_NEAR(counts["A:2"], 1200, 120);
    EXPECT_NEAR(counts["A:3"], 2000, 140);
    EXPECT_NEAR(counts["A:1"], 800, 100);
}

TEST(AnimationPlayer, ExitBranchesWalkAGestureBackBeforeTheNextAnimation)
{
    Playback run({gesture("Point"), animation("Nod", Transition::None, {timedFrame(10)})});
    run.player.play("Point", 0ms);
    run.runFor(1s);
    EXPECT_THAT(run.shown, ElementsAre("Point:0", "Point:1", "Point:2", "Point:3"));
    EXPECT_THAT(run.rests, ElementsAre(Time{400})); // held on its last frame
    run.shown.clear();
    run.player.play("Nod", run.now);
    run.runFor(1s);
    EXPECT_THAT(run.shown, ElementsAre("Point:2", "Point:1", "Point:0", "Nod:0"));

    // Left halfway through, it walks back from where it stands; exit() then rests.
    run.shown.clear();
    run.player.play("Point", run.now);
    run.runFor(250ms);
    run.player.exit(run.now);
    run.runFor(1s);
    EXPECT_THAT(run.shown, ElementsAre("Point:0", "Point:1", "Point:2", "Point:1", "Point:0"));
    EXPECT_EQ(run.player.currentFrame(), (FramePosition{0, 0}));
    EXPECT_FALSE(run.player.nextChange());
}

TEST(AnimationPlayer, TheReturnAnimationPlaysWhenAnAnimationIsLeft)
{
    Playback run({animation("Wave", Transition::ReturnAnimation, {timedFrame(10)}, "WaveReturn"),
             animation("WaveReturn", Transition::None, {timedFrame(10), timedFrame(10)}),
             animation("Rest", Transition::None, {timedFrame(10)})});
    run.player.play("Wave", 0ms);
    run.runFor(200ms);
    run.player.play("Rest", run.now);
    run.runFor(1s);
    EXPECT_THAT(run.shown, ElementsAre("Wave:0", "WaveReturn:0", "WaveReturn:1", "Rest:0"));
}

TEST(AnimationPlayer, ALoopEndsOnlyThroughItsExitBranchesOrStop)
{
    Playback run({animation("Spin", Transition::ExitBranches,
                       {timedFrame(10, -1), timedFrame(10, 3), timedFrame(10, 3, {{1, 100}}), timedFrame(10, -1)})});
    run.player.play("Spin", 0ms);
    run.runFor(10s);
    EXPECT_TRUE(run.rests.empty());
    EXPECT_EQ(run.shown.size(), 101u);
    run.shown.clear();
    run.player.exit(run.now);
    run.runFor(1s);
    EXPECT_THAT(run.shown, ElementsAre("Spin:3"));
    EXPECT_EQ(run.rests.size(), 1u);

    run.player.play("Spin", run.now);
    run.runFor(1s);
    run.player.stop();
    const auto stoppedAt = run.player.currentFrame();
    run.shown.clear();
    run.runFor(1s);
    EXPECT_TRUE(run.shown.empty());
    EXPECT_EQ(run.player.currentFrame(), stoppedAt);
    EXPECT_FALSE(run.player.nextChange());
}

TEST(AnimationPlayer, DamagedSequencesStillEnd)
{
    Playback run({animation("Instant", Transition::None, {timedFrame(0, -2, {{1, 100}}), timedFrame(0, -2, {{0, 100}})}),
             animation("Circle", Transition::ExitBranches, {timedFrame(10, 1), timedFrame(10, 0)}),
             animation("Gone", Transition::ReturnAnimation, {timedFrame(10)}, "Gone")});
    for (const char* name : {"Instant", "Circle", "Gone"}) {
        run.rests.clear();
        ASSERT_TRUE(run.player.play(name, run.now));
        run.runFor(500ms);
        run.player.exit(run.now);
        run.runFor(2s);
        EXPECT_FALSE(run.rests.empty()) << name;
        EXPECT_FALSE(run.player.nextChange()) << name;
    }
    EXPECT_FALSE(run.player.play("Missing", run.now));
}

// Found by fuzzing: the frame last shown belonged to the animation before, and leaving this
// one through its exit branches read that frame's number in a list of fewer frames.
TEST(AnimationPlayer, LeavingAnAnimationThatShowedNoFrameOfItsOwnEndsIt)
{
    Playback run({animation("Long", Transition::None, {timedFrame(10), timedFrame(10), timedFrame(10)}),
                  animation("Blank", Transition::ExitBranches, {timedFrame(0, 0)})});
    run.player.play("Long", 0ms);
    run.runFor(200ms);
    run.player.play("Blank", run.now);
    run.runFor(100ms);
    run.player.exit(run.now);
    run.runFor(1s);
    EXPECT_FALSE(run.player.nextChange());
}

TEST(AnimationPlayer, StatesPickTheirAnimationsButNotReturnAnimations)
{
    Playback run({animation("Wave", Transition::ReturnAnimation, {timedFrame(10)}, "WaveReturn"),
             animation("WaveReturn", Transition::None, {timedFrame(10)})},
            {{"GESTURINGLEFT", {"WaveReturn", "Wave", "Nowhere"}}, {"EMPTY", {"Nowhere"}}});
    run.draws = {0}; // would choose WaveReturn, were it not Wave's return
    ASSERT_TRUE(run.player.playState("GesturingLeft", run.now));
    run.note(run.player.advance(run.now));
    EXPECT_THAT(run.shown, ElementsAre("Wave:0"));
    EXPECT_FALSE(run.player.playState("Empty", run.now));
    EXPECT_FALSE(run.player.playState("Hearing", run.now));
}

TEST(AnimationPlayer, IdleLevelsFollowOneAnotherWhileIdle)
{
    // Levels begin at 1 s, 5 s and 20 s; idle animations rest 0.5 s apart. Fidget loops.
    Playback run({animation("Blink", Transition::None, {timedFrame(20)}),
             animation("Fidget", Transition::ExitBranches, {timedFrame(50, -1, {{0, 100}})}),
             animation("Sleep", Transition::None, {timedFrame(100, -2, {{0, 100}})}),
             animation("Greet", Transition::None, {timedFrame(10)})},
            {{"IDLINGLEVEL1", {"Blink"}}, {"IDLINGLEVEL2", {"Fidget"}}, {"IDLINGLEVEL3", {"Sleep"}}});
    run.player.setIdle(true, 0ms);
    std::vector<std::pair<std::string, Time>> starts;
    std::string last;
    for (; run.now < 30s; run.now += 10ms) {
        run.note(run.player.advance(run.now));
        const std::string playing = run.player.animation() ? run.player.animation()->name : "";
        if (playing != last) starts.emplace_back(playing, run.now);
        last = playing;
    }
    ASSERT_EQ(starts.size(), 3u);
    EXPECT_EQ(starts[0], (std::pair<std::string, Time>{"Blink", 1s}));
    EXPECT_EQ(starts[1], (std::pair<std::string, Time>{"Fidget", 5200ms})); // after the blink under way
    EXPECT_EQ(starts[2], (std::pair<std::string, Time>{"Sleep", 20s})); // the loop left when level 3 begins
    // Each blink before level 2: 200 ms of blink, 500 ms of rest.
    EXPECT_EQ(std::count(run.rests.begin(), run.rests.end(), Time{1200}), 1);
    EXPECT_EQ(std::count(run.rests.begin(), run.rests.end(), Time{1900}), 1);

    ASSERT_TRUE(run.player.play("Greet", run.now));
    EXPECT_FALSE(run.player.idle());
    run.shown.clear();
    run.runFor(1min);
    EXPECT_THAT(run.shown, ElementsAre("Greet:0"));
}

} // namespace
} // namespace corvel::acs
