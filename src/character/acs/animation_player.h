#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

#include "character/acs/character.h"

namespace corvel::acs {

// Draws a whole number uniformly from [0, bound).
using RandomSource = std::function<int(int bound)>;
RandomSource seededRandom(std::uint32_t seed);

struct FramePosition {
    std::size_t animation = 0; // index in Character::animations
    std::size_t frame = 0;
    bool operator==(const FramePosition&) const = default;
};

// How long the character has been idle before each idle level begins, and the rest between two
// idle animations.
struct IdleTimes {
    std::chrono::milliseconds level1{10'000}, level2{60'000}, level3{300'000};
    std::chrono::milliseconds pause{3'000};
};

// Runs a character's animations on a clock the caller passes in. Nothing happens between
// calls: a request (play, exit) takes effect in the next advance(), which then walks the
// schedule up to `now` and says what changed. Frame times add up from the start of an
// animation, so a late advance() does not shift the frames after it.
//
// Playing: each frame shows for its duration (frames of duration 0 never show: their branches
// apply at once); after it a branch is drawn from the random source (1-100 against the
// probabilities in order), else the next frame follows. Past the last frame the animation is
// done and its last frame stays. Leaving an animation, for another or through exit(), first
// walks its exit branches back or plays its return animation, as the animation says.
//
// When idle (setIdle), the player plays the IdlingLevel1 state's animations after
// IdleTimes::level1, level 2 and 3 later on. The character must outlive the player.
class AnimationPlayer {
public:
    using Time = std::chrono::milliseconds; // on the caller's clock

    enum class Phase {
        Empty,   // nothing shown yet
        Playing, // an animation runs
        Leaving, // exit branches or a return animation, before the next animation or rest
        Resting, // the last frame stays; nothing runs
    };

    struct Update {
        bool frameChanged = false;
        std::vector<std::int16_t> sounds; // sounds of the frames that came up, in order
        bool cameToRest = false;          // the animation (and any leaving) is over
    };

    AnimationPlayer(const Character& character, RandomSource random, IdleTimes idleTimes = {});

    // Plays an animation by name (any case), leaving the current one first. Ends idling.
    // False, and nothing changes, when there is no such animation.
    bool play(std::string_view animation, Time now);
    // Plays one of a state's animations, chosen at random, skipping return animations where it
    // can. False when the state has no playable animation.
    bool playState(std::string_view state, Time now);
    // Leaves the current animation gracefully, then rests. Drops a request not yet started.
    void exit(Time now);
    // Stops at once: the frame shown stays, nothing pending, idling ends. The next animation
    // still leaves this one first, from the frame where it stopped.
    void stop();
    // While idle, idle animations play; the idle time counts from `now`.
    void setIdle(bool idle, Time now);

    Update advance(Time now);

    Phase phase() const { return phase_; }
    bool idle() const { return idle_; }
    std::optional<FramePosition> currentFrame() const { return shown_; }
    const Frame* frame() const; // the frame shown, or null
    const Animation* animation() const; // the animation of the frame shown, or null
    // When advance() next has something to do; none while nothing will change.
    std::optional<Time> nextChange() const;

private:
    enum class Work { FrameEnds, Start, Leave };

    const Animation& current() const { return character_.animations[animation_]; }
    int draw(int bound);
    std::optional<std::size_t> pick(const State& state);
    void request(std::size_t animation, Time now);
    void start(std::size_t animation, Time t, Update& u);
    void enterFrame(long frame, Time t, Update& u);
    void frameEnds(Time t, Update& u);
    void beginLeave(Time t, Update& u);
    void leaveDone(Time t, Update& u);
    void animationEnds(Time t, Update& u);
    long branchNext(std::size_t frame);
    long exitNext(std::size_t frame) const;
    int idleLevelAt(Time t) const;
    Time idleLevelStart(int level) const;
    std::optional<std::pair<std::size_t, int>> pickIdle(int level);
    std::optional<Time> idleEventTime() const;
    void fireIdle(Time at);

    const Character& character_;
    RandomSource random_;
    IdleTimes idleTimes_;

    Phase phase_ = Phase::Empty;
    std::optional<FramePosition> shown_;
    std::size_t animation_ = 0; // the animation playing, being left, or rested on
    std::size_t frame_ = 0;     // its frame shown
    bool exiting_ = false;      // leaving through exit branches
    bool needsLeave_ = false;   // the animation has not been left yet
    int leaveSteps_ = 0;
    std::optional<std::size_t> pending_;
    std::optional<Time> due_;
    Work work_ = Work::Start;

    bool idle_ = false;
    Time idleSince_{};
    std::optional<Time> idleNext_; // when idling next acts
    int idleLevelPlaying_ = 0;     // level of the idle animation playing, 0 for none
};

} // namespace corvel::acs
