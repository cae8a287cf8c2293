#include "character/acs/animation_player.h"

#include <algorithm>
#include <random>
#include <string>

namespace corvel::acs {

namespace {

using namespace std::chrono_literals;

constexpr auto tick = 10ms; // frame durations are in hundredths of a second
constexpr int maxStepsPerAdvance = 10'000;
constexpr int maxIdleLevel = 3;

// Frames of duration 0 and exit walks may loop in a damaged file; past these many steps the
// animation counts as ended.
std::size_t stepCap(const Animation& a) { return 2 * a.frames.size() + 2; }

} // namespace

RandomSource seededRandom(std::uint32_t seed)
{
    return [engine = std::mt19937(seed)](int bound) mutable {
        return std::uniform_int_distribution<int>(0, bound - 1)(engine);
    };
}

AnimationPlayer::AnimationPlayer(const Character& character, RandomSource random, IdleTimes idleTimes)
    : character_(character), random_(std::move(random)), idleTimes_(idleTimes)
{
    idleTimes_.level2 = std::max(idleTimes_.level2, idleTimes_.level1);
    idleTimes_.level3 = std::max(idleTimes_.level3, idleTimes_.level2);
}

const Frame* AnimationPlayer::frame() const
{
    return shown_ ? &character_.animations[shown_->animation].frames[shown_->frame] : nullptr;
}

const Animation* AnimationPlayer::animation() const
{
    return shown_ ? &character_.animations[shown_->animation] : nullptr;
}

int AnimationPlayer::draw(int bound) { return std::clamp(random_ ? random_(bound) : 0, 0, bound - 1); }

bool AnimationPlayer::play(std::string_view animation, Time now)
{
    const auto index = character_.animationIndex(animation);
    if (!index) return false;
    idle_ = false;
    idleLevelPlaying_ = 0;
    request(*index, now);
    return true;
}

bool AnimationPlayer::playState(std::string_view state, Time now)
{
    const State* s = character_.findState(state);
    const auto index = s ? pick(*s) : std::nullopt;
    if (!index) return false;
    idle_ = false;
    idleLevelPlaying_ = 0;
    request(*index, now);
    return true;
}

std::optional<std::size_t> AnimationPlayer::pick(const State& state)
{
    std::vector<std::size_t> found, notReturns;
    for (const std::string& name : state.animations) {
        const auto index = character_.animationIndex(name);
        if (!index) continue;
        found.push_back(*index);
        const bool isReturn = std::ranges::any_of(character_.animations, [&](const Animation& a) {
            return a.transition == Transition::ReturnAnimation && sameName(a.returnAnimation, name);
        });
        if (!isReturn) notReturns.push_back(*index);
    }
    const auto& choices = notReturns.empty() ? found : notReturns;
    if (choices.empty()) return std::nullopt;
    return choices[static_cast<std::size_t>(draw(static_cast<int>(choices.size())))];
}

void AnimationPlayer::request(std::size_t animation, Time now)
{
    pending_ = animation;
    if (phase_ == Phase::Leaving) return; // the new animation follows the leaving under way
    work_ = needsLeave_ ? Work::Leave : Work::Start;
    due_ = now;
}

void AnimationPlayer::exit(Time now)
{
    pending_.reset();
    if (phase_ == Phase::Leaving) return;
    if (!needsLeave_) { // already left: rest where it is
        due_.reset();
        return;
    }
    work_ = Work::Leave;
    due_ = now;
}

void AnimationPlayer::stop()
{
    pending_.reset();
    due_.reset();
    idle_ = false;
    idleLevelPlaying_ = 0;
    if (phase_ == Phase::Leaving) needsLeave_ = false;
    if (phase_ != Phase::Empty) phase_ = Phase::Resting;
    exiting_ = false;
}

void AnimationPlayer::setIdle(bool idle, Time now)
{
    if (idle == idle_) return;
    idle_ = idle;
    idleLevelPlaying_ = 0;
    if (idle) {
        idleSince_ = now;
        idleNext_ = idleLevelStart(1);
    }
}

AnimationPlayer::Update AnimationPlayer::advance(Time now)
{
    Update u;
    for (int steps = 0;; ++steps) {
        const auto idleAt = idleEventTime();
        const bool idleFirst = idleAt && *idleAt <= now && (!due_ || *idleAt < *due_);
        if (!idleFirst && (!due_ || *due_ > now)) break;
        if (steps == maxStepsPerAdvance) { // far behind: go on from now rather than replay it all
            if (due_) due_ = now;
            break;
        }
        if (idleFirst) {
            fireIdle(*idleAt);
            continue;
        }
        const Time t = *due_;
        switch (work_) {
        case Work::Start: {
            const std::size_t next = *pending_;
            pending_.reset();
            start(next, t, u);
            break;
        }
        case Work::Leave: beginLeave(t, u); break;
        case Work::FrameEnds: frameEnds(t, u); break;
        }
    }
    return u;
}

std::optional<AnimationPlayer::Time> AnimationPlayer::nextChange() const
{
    const auto idleAt = idleEventTime();
    if (due_ && idleAt) return std::min(*due_, *idleAt);
    return due_ ? due_ : idleAt;
}

void AnimationPlayer::start(std::size_t animation, Time t, Update& u)
{
    animation_ = animation;
    phase_ = Phase::Playing;
    exiting_ = false;
    needsLeave_ = true;
    enterFrame(0, t, u);
}

// Shows `frame` at time t, or, for a frame of duration 0, moves on from it at once.
void AnimationPlayer::enterFrame(long frame, Time t, Update& u)
{
    const Animation& a = current();
    for (std::size_t zeroSteps = 0;; ++zeroSteps) {
        if (frame < 0 || static_cast<std::size_t>(frame) >= a.frames.size() || zeroSteps > stepCap(a)) {
            animationEnds(t, u);
            return;
        }
        const Frame& f = a.frames[static_cast<std::size_t>(frame)];
        if (f.duration != 0) {
            frame_ = static_cast<std::size_t>(frame);
            shown_ = FramePosition{animation_, frame_};
            u.frameChanged = true;
            if (f.sound >= 0) u.sounds.push_back(f.sound);
            due_ = t + f.duration * tick;
            work_ = Work::FrameEnds;
            return;
        }
        frame = exiting_ ? exitNext(static_cast<std::size_t>(frame)) : branchNext(static_cast<std::size_t>(frame));
    }
}

void AnimationPlayer::frameEnds(Time t, Update& u)
{
    if (phase_ == Phase::Leaving && static_cast<std::size_t>(++leaveSteps_) > stepCap(current())) {
        animationEnds(t, u);
        return;
    }
    enterFrame(exiting_ ? exitNext(frame_) : branchNext(frame_), t, u);
}

long AnimationPlayer::branchNext(std::size_t frame)
{
    const Frame& f = current().frames[frame];
    if (!f.branches.empty()) {
        int r = draw(100) + 1;
        for (const Branch& b : f.branches) {
            if (r <= b.probability) return b.frame;
            r -= b.probability;
        }
    }
    return static_cast<long>(frame) + 1;
}

// Where leaving goes from `frame`: its exit frame, the end (-1), or on as in play without
// chance (a sure forward branch, else the next frame).
long AnimationPlayer::exitNext(std::size_t frame) const
{
    // An animation that never showed a frame of its own is left with the last frame of
    // another: out of its range, it ends.
    if (frame >= current().frames.size()) return -1;
    const Frame& f = current().frames[frame];
    if (f.exitFrame >= 0) return f.exitFrame;
    if (f.exitFrame != Frame::exitContinues) return -1;
    for (const Branch& b : f.branches)
        if (b.probability >= 100 && b.frame > frame) return b.frame;
    return static_cast<long>(frame) + 1;
}

void AnimationPlayer::beginLeave(Time t, Update& u)
{
    due_.reset();
    if (!needsLeave_) {
        leaveDone(t, u);
        return;
    }
    needsLeave_ = false;
    leaveSteps_ = 0;
    const Animation& a = current();
    switch (a.transition) {
    case Transition::ExitBranches:
        phase_ = Phase::Leaving;
        exiting_ = true;
        enterFrame(exitNext(frame_), t, u);
        return;
    case Transition::ReturnAnimation:
        if (const auto back = character_.animationIndex(a.returnAnimation); back && *back != animation_) {
            phase_ = Phase::Leaving;
            exiting_ = false;
            animation_ = *back;
            enterFrame(0, t, u);
            return;
        }
        break;
    case Transition::None: break;
    }
    leaveDone(t, u);
}

void AnimationPlayer::leaveDone(Time t, Update& u)
{
    exiting_ = false;
    needsLeave_ = false;
    due_.reset();
    if (phase_ != Phase::Empty) phase_ = Phase::Resting;
    if (pending_) {
        const std::size_t next = *pending_;
        pending_.reset();
        start(next, t, u);
        return;
    }
    u.cameToRest = true;
    if (idle_) {
        idleLevelPlaying_ = 0;
        idleNext_ = t + idleTimes_.pause;
    }
}

void AnimationPlayer::animationEnds(Time t, Update& u)
{
    if (phase_ == Phase::Leaving) {
        leaveDone(t, u);
        return;
    }
    due_.reset();
    phase_ = shown_ ? Phase::Resting : Phase::Empty;
    u.cameToRest = true;
    if (idle_) {
        idleLevelPlaying_ = 0;
        idleNext_ = t + idleTimes_.pause;
    }
}

int AnimationPlayer::idleLevelAt(Time t) const
{
    int level = 0;
    for (int l = 1; l <= maxIdleLevel; ++l)
        if (t >= idleLevelStart(l)) level = l;
    return level;
}

AnimationPlayer::Time AnimationPlayer::idleLevelStart(int level) const
{
    const auto after = level == 1 ? idleTimes_.level1 : level == 2 ? idleTimes_.level2 : idleTimes_.level3;
    return idleSince_ + std::chrono::duration_cast<Time>(after);
}

// An animation of the highest idle level up to `level` that has one, and that level.
std::optional<std::pair<std::size_t, int>> AnimationPlayer::pickIdle(int level)
{
    for (int l = level; l >= 1; --l)
        if (const State* s = character_.findState("IdlingLevel" + std::to_string(l)))
            if (const auto index = pick(*s)) return std::pair{*index, l};
    return std::nullopt;
}

// When idling wants to act next: start an idle animation while at rest, or look for a higher
// level while an idle animation plays (it may loop).
std::optional<AnimationPlayer::Time> AnimationPlayer::idleEventTime() const
{
    if (!idle_ || !idleNext_) return std::nullopt;
    const bool resting = !due_ && (phase_ == Phase::Resting || phase_ == Phase::Empty);
    const bool playingIdle = phase_ == Phase::Playing && idleLevelPlaying_ > 0;
    return resting || playingIdle ? idleNext_ : std::nullopt;
}

void AnimationPlayer::fireIdle(Time at)
{
    const int level = idleLevelAt(at);
    idleNext_ = level < maxIdleLevel ? std::optional(std::max(idleLevelStart(level + 1), at + tick)) : std::nullopt;
    const auto chosen = pickIdle(level);
    if (!chosen || (phase_ == Phase::Playing && chosen->second <= idleLevelPlaying_)) return;
    idleLevelPlaying_ = chosen->second;
    request(chosen->first, at);
}

} // namespace corvel::acs
