#pragma once

#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <vector>

#include <sndfile.h>

namespace corvel::testing {

// Writes `seconds` of a quiet 440 Hz tone as 8 kHz 16-bit mono, the line's own format.
inline void writeTone(const std::filesystem::path& path, double seconds, int rate = 8000)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) throw std::runtime_error("cannot write " + path.string());
    std::vector<short> samples(static_cast<std::size_t>(std::lround(seconds * rate)));
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<short>(8000 * std::sin(2 * M_PI * 440 * static_cast<double>(i) / rate));
    sf_write_short(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
}

} // namespace corvel::testing
