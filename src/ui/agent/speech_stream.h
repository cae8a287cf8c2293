#pragma once

#include <atomic>
#include <chrono>
#include <optional>
#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

namespace corvel {

// One speech on its way from the synthesiser (its own thread) to the speaker (the audio
// thread) and the character (the user-interface thread): mono 16-bit samples, and marks that
// say when words come up and the mouth changes, by sample.
class SpeechStream {
public:
    struct Mark {
        enum class Kind { Word, Mouth };
        std::int64_t sample = 0;
        Kind kind = Kind::Word;
        int value = 0; // Word: bytes of the balloon text shown from then on; Mouth: the shape
    };

    explicit SpeechStream(int sampleRate) : rate_(sampleRate) {}

    int sampleRate() const { return rate_; }

    // The synthesiser's side.
    void append(const std::int16_t* samples, std::size_t count);
    void appendSilence(std::size_t count);
    void mark(Mark mark);
    void finish();
    std::int64_t produced() const;

    // Whoever drops the speech; the synthesiser stops at its next chunk.
    void cancel() { cancelled_ = true; }
    bool cancelled() const { return cancelled_; }

    // The speaker's side: takes up to `count` samples; 0 when there are none yet, or no more.
    std::size_t read(std::int16_t* out, std::size_t count);
    // With no speaker, time plays the samples: moves the played position on, as far as there are
    // samples.
    void skipTo(std::int64_t sample);

    std::int64_t played() const;
    // When the first sample was taken to be played, if it was.
    std::optional<std::chrono::steady_clock::time_point> firstPlayed() const;
    bool finished() const;
    // Every sample made has been played and no more will come.
    bool done() const;
    // The marks whose time has come, taken out.
    std::vector<Mark> dueMarks();

private:
    const int rate_;
    mutable std::mutex mutex_;
    std::deque<std::int16_t> samples_;
    std::deque<Mark> marks_;
    std::int64_t produced_ = 0;
    std::int64_t played_ = 0;
    std::optional<std::chrono::steady_clock::time_point> firstPlayed_;
    bool finished_ = false;
    std::atomic<bool> cancelled_{false};
};

} // namespace corvel
