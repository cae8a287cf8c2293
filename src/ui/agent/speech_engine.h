#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "character/speech_tags.h"
#include "character/voice_hints.h"
#include "ui/agent/speech_stream.h"

namespace corvel {

// espeak-ng on a thread of its own: speeches are made there, one after another, into
// SpeechStreams that the caller plays. espeak-ng keeps its state in the process, so there is
// one engine for the whole process, started in the background the first time it is asked
// for; nothing here waits for it but waitReady(). It lasts as long as the process.
class SpeechEngine {
public:
    static SpeechEngine& instance();
    SpeechEngine(const SpeechEngine&) = delete;
    SpeechEngine& operator=(const SpeechEngine&) = delete;

    // Blocks until the engine has started (or failed to); true when it can speak.
    bool waitReady();
    // The rate of every stream, once ready; espeak-ng's own 22050 before.
    int sampleRate() const { return rate_; }

    // Starts making the speech: `voice` is the character's, and tags in the parts change it.
    // The stream fills as the engine goes; a speech the engine cannot make finishes empty.
    std::shared_ptr<SpeechStream> speak(std::vector<SpeechPart> parts, EngineVoice voice, int gender);

    // espeak-ng's English phonemes of a word, blank-separated ("'0 m b r @L"); empty when the
    // engine cannot say.
    std::future<std::string> phonemes(std::string word);

private:
    SpeechEngine();
    ~SpeechEngine() = delete;
    void post(std::function<void()> job);
    void run();
    void start();
    void make(const std::vector<SpeechPart>& parts, const EngineVoice& voice, int gender, SpeechStream& stream);

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<std::function<void()>> jobs_;
    std::promise<bool> readyPromise_;
    std::shared_future<bool> ready_;
    int rate_ = 22050;
    std::thread thread_;
};

} // namespace corvel
