#include "telephony/line_audio.h"

#include <samplerate.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <system_error>

#include "base/data_folder.h"
#include "base/log.h"

namespace corvel {
namespace {

static_assert(sizeof(short) == sizeof(std::int16_t), "libsndfile's shorts are line samples");

struct CloseSoundFile {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SoundFile = std::unique_ptr<SNDFILE, CloseSoundFile>;

SoundFile openForReading(const std::filesystem::path& path, SF_INFO& info)
{
    info = {};
    SoundFile file(sf_open(path.c_str(), SFM_READ, &info));
    if (!file) {
        log::warning("cannot read \"" + path.string() + "\" as sound: " + sf_strerror(nullptr));
    }
    return file;
}

std::vector<std::int16_t> mixDown(const std::vector<short>& interleaved, int channels)
{
    std::vector<std::int16_t> mono(interleaved.size() / static_cast<std::size_t>(channels));
    for (std::size_t frame = 0; frame < mono.size(); ++frame) {
        std::int32_t sum = 0;
        for (int channel = 0; channel < channels; ++channel) {
            sum += interleaved[frame * static_cast<std::size_t>(channels) +
                               static_cast<std::size_t>(channel)];
        }
        mono[frame] = static_cast<std::int16_t>(sum / channels);
    }
    return mono;
}

// Linear interpolation between neighbouring source samples: plenty for a simulated caller.
std::vector<std::int16_t> resample(const std::vector<std::int16_t>& source, int rate)
{
    if (rate == lineSampleRate || source.empty()) return source;
    const auto sourceCount = static_cast<std::int64_t>(source.size());
    const std::int64_t count = sourceCount * lineSampleRate / rate;
    std::vector<std::int16_t> out(static_cast<std::size_t>(count));
    for (std::int64_t i = 0; i < count; ++i) {
        // Source position i * rate / 8000, kept in integers so whole positions are exact.
        const std::int64_t scaled = i * rate;
        const std::int64_t before = scaled / lineSampleRate;
        const double fraction = static_cast<double>(scaled % lineSampleRate) / lineSampleRate;
        const std::int64_t after = std::min(before + 1, sourceCount - 1);
        const double a = source[static_cast<std::size_t>(before)];
        const double b = source[static_cast<std::size_t>(after)];
        out[static_cast<std::size_t>(i)] = static_cast<std::int16_t>(std::lround(a + (b - a) * fraction));
    }
    return out;
}

} // namespace

std::optional<MonoSound> readMonoSound(const std::filesystem::path& path)
{
    SF_INFO info;
    SoundFile file = openForReading(path, info);
    if (!file) return std::nullopt;
    if (info.channels < 1 || info.samplerate < 1) {
        log::warning("cannot read \"" + path.string() + "\" as sound: it has no channels");
        return std::nullopt;
    }
    std::vector<short> interleaved(static_cast<std::size_t>(info.frames * info.channels));
    const int subtype = info.format & SF_FORMAT_SUBMASK;
    if (subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE) {
        // Floating-point sound keeps its level. Most programs write it with 1.0 as full scale;
        // some (libsndfile given 16-bit samples) write the 16-bit values themselves. The peak
        // tells which; anything louder still is brought down to full scale rather than clipped.
        // (libsndfile's own scaling would raise every quiet file to full scale.)
        std::vector<float> floats(interleaved.size());
        const sf_count_t read = sf_readf_float(file.get(), floats.data(), info.frames);
        floats.resize(static_cast<std::size_t>(read * info.channels));
        float peak = 0;
        for (const float f : floats) peak = std::max(peak, std::abs(f));
        float scale = 32767.0f;
        if (peak > 1.001f) scale = peak <= 32768.0f ? 1.0f : 32767.0f / peak;
        interleaved.resize(floats.size());
        for (std::size_t i = 0; i < floats.size(); ++i) {
            interleaved[i] = static_cast<short>(std::lround(std::clamp(floats[i] * scale, -32768.0f, 32767.0f)));
        }
    } else {
        const sf_count_t read = sf_readf_short(file.get(), interleaved.data(), info.frames);
        interleaved.resize(static_cast<std::size_t>(read * info.channels));
    }
    return MonoSound{mixDown(interleaved, info.channels), info.samplerate};
}

std::optional<std::vector<std::int16_t>> readLineAudio(const std::filesystem::path& path)
{
    auto sound = readMonoSound(path);
    if (!sound) return std::nullopt;
    return resample(sound->samples, sound->rate);
}

bool writeLineWave(const std::filesystem::path& path, std::span<const std::int16_t> samples)
{
    if (path.empty()) {
        log::warning("cannot record: no file was given to record into");
        return false;
    }
    std::filesystem::path part = path;
    part += DataFolder::scratchSuffix;
    const auto fail = [&](const std::string& cause) {
        log::warning("cannot write \"" + path.string() + "\": " + cause);
        std::error_code ignored;
        std::filesystem::remove(part, ignored);
        return false;
    };

    SF_INFO info{};
    info.samplerate = lineSampleRate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SoundFile file(sf_open(part.c_str(), SFM_WRITE, &info));
    if (!file) return fail(sf_strerror(nullptr));

    const auto count = static_cast<sf_count_t>(samples.size());
    if (sf_write_short(file.get(), samples.data(), count) != count) return fail(sf_strerror(file.get()));
    // On disk before the rename, so that a message file is never there without its sound.
    sf_write_sync(file.get());
    if (sf_close(file.release()) != 0) return fail("the file could not be completed");

    std::error_code error;
    std::filesystem::rename(part, path, error);
    if (error) return fail(error.message());
    return true;
}

std::optional<Milliseconds> playLength(const std::filesystem::path& path)
{
    SF_INFO info;
    if (!openForReading(path, info)) return std::nullopt;
    if (info.samplerate < 1) {
        log::warning("cannot read \"" + path.string() + "\" as sound: it has no sample rate");
        return std::nullopt;
    }
    const std::int64_t rate = info.samplerate;
    return Milliseconds((info.frames * 1000 + rate - 1) / rate);
}

std::optional<std::vector<std::int16_t>> convertSampleRate(std::span<const std::int16_t> samples, int from, int to)
{
    if (from == to || samples.empty() || from <= 0 || to <= 0) return std::vector<std::int16_t>(samples.begin(), samples.end());
    std::vector<float> in(samples.size());
    src_short_to_float_array(samples.data(), in.data(), static_cast<int>(samples.size()));
    const double ratio = static_cast<double>(to) / from;
    std::vector<float> out(static_cast<std::size_t>(std::ceil(static_cast<double>(samples.size()) * ratio)) + 16);
    SRC_DATA data{};
    data.data_in = in.data();
    data.input_frames = static_cast<long>(in.size());
    data.data_out = out.data();
    data.output_frames = static_cast<long>(out.size());
    data.src_ratio = ratio;
    if (const int error = src_simple(&data, SRC_SINC_MEDIUM_QUALITY, 1); error != 0) {
        log::warning(std::string("cannot convert the sampling rate: ") + src_strerror(error));
        return std::nullopt;
    }
    std::vector<std::int16_t> result(static_cast<std::size_t>(data.output_frames_gen));
    src_float_to_short_array(out.data(), result.data(), static_cast<int>(result.size()));
    return result;
}

} // namespace corvel
