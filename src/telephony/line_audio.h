#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <vector>

#include "base/event_loop.h"

namespace corvel {

// Telephone audio: 8000 samples a second, 16-bit, one channel.
inline constexpr int lineSampleRate = 8000;
inline constexpr std::int64_t lineSamplesPerMillisecond = lineSampleRate / 1000;

// A sound file's samples with its channels mixed down to one, at the file's own rate.
struct MonoSound {
    std::vector<std::int16_t> samples;
    int rate = lineSampleRate;
};

// Any file libsndfile reads, mixed down to one channel; floating-point files keep their level
// in the 16-bit range. Nothing (and a logged warning) when the file cannot be read as sound.
std::optional<MonoSound> readMonoSound(const std::filesystem::path& path);

// The sound of a wave file as the line carries it: channels mixed down to one and the rate
// brought to 8 kHz. Nothing (and a logged warning) when the file cannot be read as sound.
std::optional<std::vector<std::int16_t>> readLineAudio(const std::filesystem::path& path);

// `samples` taken from `from` to `to` samples a second with libsamplerate's good converter.
// Nothing (and a logged warning) when the converter fails; the samples as they are when the
// rates agree or make no sense.
std::optional<std::vector<std::int16_t>> convertSampleRate(std::span<const std::int16_t> samples, int from, int to);

// Writes line samples to `path` as a wave file. The samples go to "<path>.part" first and
// are renamed into place only when complete, so no half-written file is ever left under
// `path`. A failure is logged, leaves nothing behind and returns false.
bool writeLineWave(const std::filesystem::path& path, std::span<const std::int16_t> samples);

// How long a sound file plays, rounded up to the whole millisecond so that every sample is
// heard; nothing (and a logged warning) when the file cannot be opened as sound.
std::optional<Milliseconds> playLength(const std::filesystem::path& path);

} // namespace corvel
