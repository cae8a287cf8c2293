#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include <QAudioFormat>
#include <QElapsedTimer>
#include <QObject>

#include "ui/agent/speech_stream.h"

class QAudioSink;
class QIODevice;

namespace corvel {

// Whether there is a speaker to play on; the first time there is none, says so in the log.
bool audioOutputPresent();

// Plays speech streams on the default audio output, one at a time. Where there is no audio
// output (or it fails), the speech plays silently on the clock, so the character still talks
// for as long as it would be heard.
class SpeechPlayer final : public QObject {
public:
    explicit SpeechPlayer(QObject* parent = nullptr);
    ~SpeechPlayer() override;

    void play(std::shared_ptr<SpeechStream> stream);
    void stop();
    // Moves the silent clock on; call it often while a speech plays.
    void tick();
    bool playing() const { return stream_ != nullptr; }
    const std::shared_ptr<SpeechStream>& stream() const { return stream_; }

private:
    void startSink();

    std::shared_ptr<SpeechStream> stream_;
    std::unique_ptr<QAudioSink> sink_;
    std::unique_ptr<QIODevice> source_;
    QElapsedTimer clock_;
    bool silent_ = true;
};

// A character's sound effects, decoded once from their wave files (PCM or MS ADPCM) and played
// on the default audio output; without one they are skipped, though their length still counts.
class SoundEffects final : public QObject {
public:
    explicit SoundEffects(QObject* parent = nullptr);
    ~SoundEffects() override;

    // Decodes every sound; one that cannot be decoded stays silent.
    void load(const std::vector<std::vector<std::uint8_t>>& waves);
    void clear();
    void setEnabled(bool on) { enabled_ = on; }
    bool enabled() const { return enabled_; }

    void play(int index);
    void stop();
    // Until when the last effect started goes on playing.
    std::chrono::steady_clock::time_point busyUntil() const { return busyUntil_; }

    struct Sound {
        QAudioFormat format;
        std::vector<std::int16_t> samples; // interleaved
    };
    const std::vector<Sound>& sounds() const { return sounds_; }

private:
    std::vector<Sound> sounds_;
    std::vector<std::unique_ptr<QAudioSink>> playing_;
    bool enabled_ = true;
    std::chrono::steady_clock::time_point busyUntil_{};
};

// Decodes a RIFF WAVE file held in memory to 16-bit samples; none when libsndfile cannot.
std::optional<SoundEffects::Sound> decodeWave(const std::vector<std::uint8_t>& wave);

} // namespace corvel
