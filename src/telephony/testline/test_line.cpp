#include "telephony/testline/test_line.h"

#include <algorithm>
#include <utility>

#include "base/log.h"
#include "telephony/testline/caller_audio.h"

namespace corvel {

// A single-shot timer that also goes off after no delay at all, on the next turn of the
// loop: the loop's timers only tick for intervals above zero, and a zero-length prompt or a
// key scripted for the moment of connection must still happen.
class TestLine::Alarm {
public:
    Alarm(EventLoop& loop, std::function<void()> handler)
        : loop_(loop), handler_(std::move(handler)),
          timer_(loop.createTimer([this] { handler_(); }, TimerKind::SingleShot))
    {
    }

    void start(Milliseconds delay)
    {
        stop();
        if (delay > Milliseconds{0}) {
            timer_->setInterval(delay);
            timer_->setEnabled(true);
            return;
        }
        loop_.post([this, token = std::weak_ptr<std::uint64_t>(generation_), armed = *generation_] {
            const auto generation = token.lock();
            if (!generation || *generation != armed) return; // stopped, restarted or gone
            ++*generation;
            handler_();
        });
    }

    void stop()
    {
        timer_->setEnabled(false);
        ++*generation_;
    }

private:
    EventLoop& loop_;
    std::function<void()> handler_;
    std::unique_ptr<Timer> timer_;
    std::shared_ptr<std::uint64_t> generation_ = std::make_shared<std::uint64_t>(0);
};

struct TestLine::Call {
    ScriptedCall script;
    CallerAudio audio;
    std::optional<Milliseconds> connectedAt; // loop time
    std::optional<Milliseconds> leftAt;      // loop time the caller stopped being heard
};

struct TestLine::Recording {
    std::filesystem::path path;
    Milliseconds startedAt; // loop time
    std::shared_ptr<const Call> call; // the call on the line when it started, if any
};

TestLine::TestLine(EventLoop& loop)
    : loop_(loop), origin_(loop.now()),
      ringAlarm_(std::make_unique<Alarm>(loop, [this] { ringCadenceEnded(); })),
      callerIdAlarm_(std::make_unique<Alarm>(loop, [this] { deliverCallerId(); })),
      keyAlarm_(std::make_unique<Alarm>(loop, [this] {
          pressKey(keys_[nextKey_++].key);
          scheduleNextKey();
      })),
      hangUpAlarm_(std::make_unique<Alarm>(loop, [this] { hangUp(); })),
      playAlarm_(std::make_unique<Alarm>(loop, [this] { promptEnded(); }))
{
}

// A recording in progress is kept, as a sound card driver closes its file on the way out.
TestLine::~TestLine() { stopRecording(); }

// The loop's own clock, so that prompts and recordings keep the loop's time on any loop. Not
// local time: that jumps an hour when the clocks change.
Milliseconds TestLine::loopTime() const
{
    return std::chrono::duration_cast<Milliseconds>(loop_.now() - origin_);
}

void TestLine::report(std::function<void(LineEvents&)> event)
{
    if (!lineOpen_) return; // nobody is listening to a closed line
    loop_.post([this, alive = std::weak_ptr<bool>(alive_), event = std::move(event)] {
        if (alive.expired() || !lineOpen_ || !listener()) return;
        event(*listener());
    });
}

// --- The call ---

ScriptedCall ScriptedCall::played(Identity identity, std::string number, std::string name)
{
    ScriptedCall call;
    call.identity = identity;
    call.number = std::move(number);
    call.name = std::move(name);
    call.ringsBeforeGivingUp = 20;
    return call;
}

std::optional<ScriptedCall::Identity> ScriptedCall::identityNamed(std::string_view name)
{
    if (name == "number") return Identity::Number;
    if (name == "withheld") return Identity::Withheld;
    if (name == "unavailable") return Identity::Unavailable;
    if (name == "none") return Identity::None;
    return std::nullopt;
}

void TestLine::placeCall(ScriptedCall call)
{
    if (phase_ != Phase::Idle) {
        log::warning("the test line is busy: the new caller gets the engaged tone");
        return;
    }
    handedOver_ = false;
    transcript_.clear(); // each caller hears their own call
    call_ = std::make_shared<Call>();
    call_->audio = CallerAudio(call.speech, call.speechAt);
    call_->script = std::move(call);
    ownerApplication_ = call_->script.ownerApplication;
    callerNumber_.clear();
    callerName_.clear();
    numberWithheld_ = false;
    numberUnavailable_ = false;
    phase_ = Phase::Ringing;
    ringCount_ = 0;

    ring();
    if (ownerApplication_ != ownLineControl) report([](LineEvents& e) { e.callOwnerChanged(); });
    if (call_->script.identity != ScriptedCall::Identity::None) {
        callerIdAlarm_->start(call_->script.ringCadence / 2);
    }
}

void TestLine::ring()
{
    ++ringCount_;
    report([count = ringCount_](LineEvents& e) { e.ring(count); });
    ringAlarm_->start(call_->script.ringCadence);
}

void TestLine::ringCadenceEnded()
{
    if (ringCount_ < call_->script.ringsBeforeGivingUp) {
        ring();
        return;
    }
    // Nobody answered: the caller puts the phone down and the network says nothing about it.
    callerIdAlarm_->stop();
    phase_ = Phase::Idle;
}

bool TestLine::ringing() const { return phase_ == Phase::Ringing; }

void TestLine::deliverCallerId()
{
    const ScriptedCall& script = call_->script;
    switch (script.identity) {
    case ScriptedCall::Identity::None: return;
    case ScriptedCall::Identity::Number:
        callerNumber_ = script.number;
        callerName_ = script.name;
        break;
    case ScriptedCall::Identity::Withheld: numberWithheld_ = true; break;
    case ScriptedCall::Identity::Unavailable: numberUnavailable_ = true; break;
    }
    report([](LineEvents& e) { e.callerId(); });
}

void TestLine::answer()
{
    if (phase_ != Phase::Ringing) {
        log::info("the test line was answered with no call ringing");
        return;
    }
    // Caller ID comes between the rings; a call answered before it never gets it.
    ringAlarm_->stop();
    callerIdAlarm_->stop();
    phase_ = Phase::Connected;
    connectedAt_ = loopTime();
    call_->connectedAt = connectedAt_;
    report([](LineEvents& e) { e.connected(); });

    keys_ = call_->script.keys;
    std::stable_sort(keys_.begin(), keys_.end(),
                     [](const ScriptedCall::Key& a, const ScriptedCall::Key& b) { return a.at < b.at; });
    nextKey_ = 0;
    scheduleNextKey();
    if (call_->script.hangUpAt) hangUpAlarm_->start(*call_->script.hangUpAt);
}

void TestLine::scheduleNextKey()
{
    if (nextKey_ < keys_.size()) keyAlarm_->start(keys_[nextKey_].at - (loopTime() - connectedAt_));
}

void TestLine::stopScript()
{
    ringAlarm_->stop();
    callerIdAlarm_->stop();
    keyAlarm_->stop();
    hangUpAlarm_->stop();
}

void TestLine::pressKey(char key)
{
    if (phase_ != Phase::Connected || !digitMonitoring()) return;
    report([digit = static_cast<char16_t>(static_cast<unsigned char>(key))](LineEvents& e) {
        e.digitReceived(digit);
    });
}

void TestLine::hangUp()
{
    if (phase_ == Phase::Idle) return;
    const bool wasConnected = phase_ == Phase::Connected;
    stopScript();
    phase_ = Phase::Idle;
    if (!wasConnected) return; // a caller giving up while it rings is not reported
    call_->leftAt = loopTime();
    stopPlay();
    // Recording goes on, hearing silence, until the call logic stops it.
    report([](LineEvents& e) { e.callerHungUp(); });
}

void TestLine::drop()
{
    stopScript();
    if (phase_ == Phase::Connected) call_->leftAt = loopTime();
    phase_ = Phase::Idle;
    stopPlay();
    stopRecording();
}

void TestLine::handOver()
{
    if (phase_ != Phase::Connected) return;
    stopScript();
    stopPlay();
    stopRecording();
    phase_ = Phase::Idle; // the caller talks to the user now, not to this line
    handedOver_ = true;
}

bool TestLine::callActive() const { return phase_ == Phase::Connected; }

void TestLine::setCallActive(bool active)
{
    if (!active) {
        drop();
    } else if (phase_ == Phase::Ringing) {
        answer();
    }
}

// --- The line device ---

std::vector<LineDevice> TestLine::devices() const { return {{0, std::string(name)}}; }
bool TestLine::lineOpen() const { return lineOpen_; }
void TestLine::setLineOpen(bool open)
{
    lastError_ = 0;
    if (!open && lineOpen_ && closeError_ != 0) {
        lastError_ = std::exchange(closeError_, 0);
        return; // a device that fails to close stays open
    }
    lineOpen_ = open;
}
std::string TestLine::ownerApplication() const { return ownerApplication_; }
std::string TestLine::callerNumber() const { return callerNumber_; }
std::string TestLine::callerName() const { return callerName_; }
bool TestLine::numberWithheld() const { return numberWithheld_; }
bool TestLine::numberUnavailable() const { return numberUnavailable_; }

// --- Playing ---

bool TestLine::startPlay()
{
    stopPlay();
    ++playRun_;
    std::vector<Prompt> prompts;
    for (std::string& file : playListEntries(playList())) {
        const auto length = playLength(file); // logs why a file cannot be played
        if (!length) return false;
        prompts.push_back({std::move(file), *length});
    }
    if (prompts.empty()) {
        log::warning("cannot play an empty play list");
        return false;
    }
    prompts_ = std::move(prompts);
    currentPrompt_ = 0;
    playing_ = true;
    startPrompt();
    return true;
}

void TestLine::startPrompt()
{
    const Prompt& prompt = prompts_[currentPrompt_];
    promptStartedAt_ = loopTime();
    transcript_.push_back({prompt.file, promptStartedAt_ - connectedAt_, Milliseconds{0}, false});
    playAlarm_->start(prompt.length);
    if (ear_) ear_->playfile(prompt.file);
}

void TestLine::promptEnded()
{
    transcript_.back().heard = prompts_[currentPrompt_].length;
    transcript_.back().complete = true;
    if (++currentPrompt_ < prompts_.size()) {
        startPrompt();
        return;
    }
    if (playRepeat()) {
        currentPrompt_ = 0;
        const bool silent = std::all_of(prompts_.begin(), prompts_.end(),
                                        [](const Prompt& p) { return p.length == Milliseconds{0}; });
        // A list that takes no time would go round for ever within one instant: it goes on
        // "playing" its silence until it is stopped instead.
        if (!silent) startPrompt();
        return;
    }
    playing_ = false;
    report([this, run = playRun_](LineEvents& e) {
        if (run == playRun_) e.playDone(); // not once another list has been started
    });
}

void TestLine::stopPlay()
{
    if (!playing_) return;
    playing_ = false;
    playAlarm_->stop();
    if (ear_) ear_->stop();
    HeardPrompt& current = transcript_.back();
    if (!current.complete) {
        current.heard = std::clamp(loopTime() - promptStartedAt_, Milliseconds{0},
                                   prompts_[currentPrompt_].length);
    }
}

bool TestLine::playing() const { return playing_; }

void TestLine::setPlaying(bool playing)
{
    if (!playing) {
        stopPlay();
    } else if (!playing_) {
        startPlay();
    }
}

// --- Recording ---

bool TestLine::recording() const { return recording_ != nullptr; }

void TestLine::setRecording(bool recording)
{
    if (!recording) {
        stopRecording();
    } else if (!recording_) {
        recording_ = std::make_unique<Recording>(Recording{recordFile(), loopTime(), call_});
        if (mouth_) mouth_->start();
    }
}

void TestLine::stopRecording()
{
    if (!recording_) return;
    const std::unique_ptr<Recording> finished = std::move(recording_);
    const Milliseconds stoppedAt = loopTime();
    const Call* call = finished->call.get();
    std::vector<std::int16_t> samples;
    if (mouth_) {
        // What the person said, fitted to the time the line recorded.
        samples = mouth_->stop();
        samples.resize(static_cast<std::size_t>(
                           std::max<Milliseconds::rep>(0, (stoppedAt - finished->startedAt).count()) *
                           lineSamplesPerMillisecond),
                       0);
    } else if (call && call->connectedAt) {
        samples = call->audio.samples(finished->startedAt - *call->connectedAt,
                                      stoppedAt - *call->connectedAt);
        if (call->leftAt && *call->leftAt < stoppedAt) {
            // The line is silent once the caller has gone.
            const Milliseconds silentFrom = std::max(*call->leftAt, finished->startedAt);
            const auto offset = (silentFrom - finished->startedAt).count() * lineSamplesPerMillisecond;
            std::fill(samples.begin() + offset, samples.end(), std::int16_t{0});
        }
    } else {
        samples.assign(static_cast<std::size_t>(
                           std::max<Milliseconds::rep>(0, (stoppedAt - finished->startedAt).count()) *
                           lineSamplesPerMillisecond),
                       0);
    }
    writeLineWave(finished->path, samples); // logs a failure; the call goes on regardless
}

} // namespace corvel
