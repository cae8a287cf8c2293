#pragma once

#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include <sndfile.h>

namespace corvel::testing {

struct Wave {
    int rate = 8000;
    int channels = 1;
    std::vector<short> samples; // interleaved
    int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
};

inline void writeWave(const std::filesystem::path& path, const Wave& wave)
{
    SF_INFO info{};
    info.samplerate = wave.rate;
    info.channels = wave.channels;
    info.format = wave.format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) throw std::runtime_error("cannot write " + path.string() + ": " + sf_strerror(nullptr));
    sf_write_short(file, wave.samples.data(), static_cast<sf_count_t>(wave.samples.size()));
    sf_close(file);
}

// The file's samples and format; an empty wave when it cannot be read as sound.
inline Wave readWave(const std::filesystem::path& path)
{
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) return {0, 0, {}, 0};
    Wave wave{info.samplerate, info.channels,
              std::vector<short>(static_cast<std::size_t>(info.frames * info.channels)), info.format};
    sf_read_short(file, wave.samples.data(), static_cast<sf_count_t>(wave.samples.size()));
    sf_close(file);
    return wave;
}

// `seconds` of a quiet tone (440 Hz unless told) as 8 kHz 16-bit mono, the line's own format.
inline void writeTone(const std::filesystem::path& path, double seconds, double hertz = 440)
{
    Wave tone;
    tone.samples.resize(static_cast<std::size_t>(std::lround(seconds * tone.rate)));
    for (std::size_t i = 0; i < tone.samples.size(); ++i)
        tone.samples[i] = static_cast<short>(8000 * std::sin(2 * M_PI * hertz * static_cast<double>(i) / tone.rate));
    writeWave(path, tone);
}

} // namespace corvel::testing
