// Sound on a SIP call: prompts played to the caller and the caller recorded into a message.

#include "telephony/sip/sip_line.h"

#include <linphone++/linphone.hh>

#include <algorithm>

#include "base/log.h"
#include "telephony/line_audio.h"

namespace corvel {
namespace lp = linphone;

namespace {

// An end of file later than this past a prompt's length is taken as lost.
constexpr Milliseconds promptSlack{3000};

} // namespace

// --- Playing ---

bool SipLine::startPlay()
{
    stopPlay();
    ++playRun_;
    std::vector<Prompt> prompts;
    for (const std::string& entry : playListEntries(playList())) {
        const auto file = prompts_.playable(entry); // logs why a file cannot be played
        if (!file) return false;
        const auto length = playLength(*file);
        if (!length) return false;
        prompts.push_back({*file, *length});
    }
    if (prompts.empty()) {
        log::warning("cannot play an empty play list");
        return false;
    }
    if (recording_) {
        // The stack records what is played too: a recording only ever holds the caller.
        log::info("a prompt starts: the recording into \"" + recording_->target.string() + "\" ends");
        setRecording(false);
    }
    queue_ = std::move(prompts);
    prompt_ = 0;
    playing_ = true;
    log::info("the SIP line plays " + playList());
    startPrompt();
    return true;
}

void SipLine::startPrompt()
{
    const Prompt& prompt = queue_[prompt_];
    // The call's player exists only once its streams run: taken then, not at the answer.
    if (streamsRunning()) {
        const auto player = call_->call->getPlayer();
        if (player != player_) {
            if (player_) player_->removeListener(eofListener_);
            player_ = player;
            playerOpen_ = false;
            if (player_) player_->addListener(eofListener_);
        }
    }
    if (!streamsRunning() || !player_) {
        // Nobody is on the line to hear it: the list plays to nobody, at once.
        const bool silent = std::all_of(queue_.begin(), queue_.end(), [](const Prompt& p) {
            return p.length == Milliseconds{0};
        });
        if (playRepeat() && (silent || !call_)) return; // goes on "playing" until stopped
        loop_.post([this, alive = std::weak_ptr<bool>(alive_), run = playRun_] {
            if (!alive.expired() && run == playRun_ && playing_) promptEnded();
        });
        return;
    }
    try {
        if (playerOpen_) player_->close();
        playerOpen_ = player_->open(prompt.file.string()) == 0;
        if (!playerOpen_ || player_->start() != 0) {
            log::warning("the SIP stack cannot play \"" + prompt.file.string() + "\"; skipping it");
            loop_.post([this, alive = std::weak_ptr<bool>(alive_), run = playRun_] {
                if (!alive.expired() && run == playRun_ && playing_) promptEnded();
            });
            return;
        }
    } catch (const std::exception& failure) {
        log::warning(std::string("the SIP stack cannot play a prompt: ") + failure.what());
    }
    promptGuard_->setInterval(prompt.length + promptSlack);
    promptGuard_->setEnabled(true);
}

void SipLine::endOfFile(const std::shared_ptr<lp::Player>& player)
{
    if (!playing_ || player != player_) return;
    promptEnded();
}

void SipLine::promptEnded()
{
    promptGuard_->setEnabled(false);
    if (!playing_) return;
    if (++prompt_ < queue_.size()) {
        startPrompt();
        return;
    }
    if (playRepeat()) {
        prompt_ = 0;
        const bool silent = std::all_of(queue_.begin(), queue_.end(), [](const Prompt& p) {
            return p.length == Milliseconds{0};
        });
        // A list that takes no time would go round for ever within one instant.
        if (!silent) startPrompt();
        return;
    }
    playing_ = false;
    log::info("the SIP line has played its list");
    if (player_ && playerOpen_) player_->close();
    playerOpen_ = false;
    report([this, run = playRun_](LineEvents& e) {
        if (run == playRun_) e.playDone(); // not once another list has been started
    });
}

void SipLine::stopPlay()
{
    if (!playing_) return;
    playing_ = false;
    promptGuard_->setEnabled(false);
    if (!player_ || !playerOpen_) return;
    playerOpen_ = false;
    try {
        player_->pause();
        player_->close();
    } catch (const std::exception& failure) {
        log::warning(std::string("the SIP stack would not stop a prompt: ") + failure.what());
    }
}

void SipLine::setPlaying(bool playing)
{
    if (!playing) stopPlay();
    else if (!playing_) startPlay();
}

// --- Recording ---

void SipLine::setRecording(bool recording)
{
    if (!recording) {
        if (!recording_) return;
        Recording finished = std::move(*recording_);
        recording_.reset();
        finishRecording(std::move(finished));
        return;
    }
    if (recording_) return;
    if (recordFile().empty()) {
        log::warning("cannot record: no file was given to record into");
        return;
    }
    if (playing_) {
        log::info("a recording starts: the prompt stops, so that the message holds only the caller");
        stopPlay();
    }
    Recording started{recordFile(), {}, nullptr};
    if (streamsRunning()) {
        started.call = call_->call;
        started.recorded = call_->recordPath;
        call_->call->startRecording();
    } else {
        log::warning("there is no caller on the SIP line to record into \"" + recordFile() + "\"");
    }
    recording_ = std::move(started);
}

void SipLine::finishRecording(Recording recording)
{
    if (!recording.call) {
        if (recording.recorded.empty()) writeLineWave(recording.target, {});
        else sip::finishRecording(recording.recorded, recording.target);
        return;
    }
    const auto state = recording.call->getState();
    if (state == lp::Call::State::End || state == lp::Call::State::Error) {
        unfinished_.push_back(std::move(recording)); // the stack is still closing the file
        return;
    }
    if (state != lp::Call::State::Released) recording.call->stopRecording();
    sip::finishRecording(recording.recorded, recording.target);
}

} // namespace corvel
