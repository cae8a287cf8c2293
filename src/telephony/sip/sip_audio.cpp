#include "telephony/sip/sip_audio.h"

#include <sndfile.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>

#include "base/data_folder.h"
#include "base/log.h"
#include "telephony/line_audio.h"

namespace corvel::sip {
namespace fs = std::filesystem;
namespace {

struct CloseSoundFile {
    void operator()(SNDFILE* file) const { sf_close(file); }
};
using SoundFile = std::unique_ptr<SNDFILE, CloseSoundFile>;

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// FNV-1a over the file's bytes: enough to tell one prompt from another, not a defence.
std::optional<std::uint64_t> contentDigest(const fs::path& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::uint64_t digest = 14695981039346656037ull;
    std::array<char, 65536> buffer;
    while (in) {
        in.read(buffer.data(), buffer.size());
        for (std::streamsize i = 0; i < in.gcount(); ++i) {
            digest ^= static_cast<unsigned char>(buffer[static_cast<std::size_t>(i)]);
            digest *= 1099511628211ull;
        }
    }
    return in.bad() ? std::nullopt : std::optional(digest);
}

std::string hex(std::uint64_t value)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text(16, '0');
    for (int i = 15; i >= 0; --i, value >>= 4) text[static_cast<std::size_t>(i)] = digits[value & 0xF];
    return text;
}

bool playsAsItIs(const fs::path& path, const SF_INFO& info)
{
    return path.extension() == ".wav" && (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV &&
           (info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16 && info.samplerate >= 8000 &&
           info.samplerate <= 48000 && (info.channels == 1 || info.channels == 2);
}

bool isLineWave(const SF_INFO& info)
{
    return (info.format & SF_FORMAT_TYPEMASK) == SF_FORMAT_WAV && (info.format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16 &&
           info.samplerate == lineSampleRate && info.channels == 1;
}

std::uint32_t readLittle32(const unsigned char* bytes)
{
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

bool writeLittle32(std::FILE* file, long offset, std::uint32_t value)
{
    const std::array<unsigned char, 4> bytes{static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
                                             static_cast<unsigned char>(value >> 16),
                                             static_cast<unsigned char>(value >> 24)};
    return std::fseek(file, offset, SEEK_SET) == 0 && std::fwrite(bytes.data(), 1, 4, file) == 4;
}

// Moves `from` to `to` in one rename; across file systems through a copy beside `to`.
bool moveInPlace(const fs::path& from, const fs::path& to)
{
    std::error_code error;
    fs::rename(from, to, error);
    if (!error) return true;
    if (error != std::errc::cross_device_link) {
        log::warning("cannot move the recording to \"" + to.string() + "\": " + error.message());
        return false;
    }
    fs::path part = to;
    part += DataFolder::scratchSuffix;
    error.clear();
    fs::copy_file(from, part, fs::copy_options::overwrite_existing, error);
    if (!error) fs::rename(part, to, error);
    if (error) {
        log::warning("cannot copy the recording to \"" + to.string() + "\": " + error.message());
        fs::remove(part, error);
        return false;
    }
    fs::remove(from, error);
    return true;
}

} // namespace

PromptCache::PromptCache(fs::path folder) : folder_(std::move(folder)) {}

std::optional<fs::path> PromptCache::playable(const fs::path& file) const
{
    SF_INFO info{};
    {
        SoundFile sound(sf_open(file.c_str(), SFM_READ, &info));
        if (!sound) {
            log::warning("cannot play \"" + file.string() + "\" on the SIP line: " + sf_strerror(nullptr));
            return std::nullopt;
        }
    }
    if (playsAsItIs(file, info)) return file;

    const auto digest = contentDigest(file);
    if (!digest) {
        log::warning("cannot read \"" + file.string() + "\"");
        return std::nullopt;
    }
    const fs::path converted = folder_ / (hex(*digest) + ".wav");
    std::error_code error;
    if (fs::exists(converted, error)) return converted;

    auto sound = readMonoSound(file);
    if (!sound) return std::nullopt;
    fs::create_directories(folder_, error);
    const auto samples = resampled(sound->samples, sound->rate, lineSampleRate);
    if (!writeLineWave(converted, samples)) return std::nullopt;
    log::info("converted \"" + file.string() + "\" to 16-bit PCM for the SIP line");
    return converted;
}

std::vector<std::int16_t> resampled(std::span<const std::int16_t> samples, int from, int to)
{
    // A sound the converter cannot take is played at its own rate rather than not at all.
    return convertSampleRate(samples, from, to).value_or(std::vector<std::int16_t>(samples.begin(), samples.end()));
}

bool fixWaveSizes(const fs::path& file)
{
    std::error_code error;
    const auto size = fs::file_size(file, error);
    const auto fail = [&](const std::string& cause) {
        log::warning("cannot fix the header of \"" + file.string() + "\": " + cause);
        return false;
    };
    if (error) return fail(error.message());
    if (size < 12 || size > 0xFFFFFFFFull) return fail("it has no wave header");
    File stream(std::fopen(file.c_str(), "r+b"));
    if (!stream) return fail("it cannot be opened");
    std::array<unsigned char, 12> riff{};
    if (std::fread(riff.data(), 1, riff.size(), stream.get()) != riff.size() ||
        std::string(riff.begin(), riff.begin() + 4) != "RIFF" || std::string(riff.begin() + 8, riff.end()) != "WAVE") {
        return fail("it is no RIFF wave file");
    }
    // Chunk by chunk to "data": its sound runs to the end of the file.
    std::uintmax_t offset = 12;
    while (offset + 8 <= size) {
        std::array<unsigned char, 8> chunk{};
        if (std::fseek(stream.get(), static_cast<long>(offset), SEEK_SET) != 0 ||
            std::fread(chunk.data(), 1, chunk.size(), stream.get()) != chunk.size()) {
            return fail("it cannot be read");
        }
        if (std::string(chunk.begin(), chunk.begin() + 4) == "data") {
            const auto dataSize = static_cast<std::uint32_t>(size - offset - 8);
            if (!writeLittle32(stream.get(), 4, static_cast<std::uint32_t>(size - 8)) ||
                !writeLittle32(stream.get(), static_cast<long>(offset + 4), dataSize) ||
                std::fflush(stream.get()) != 0) {
                return fail("it cannot be written");
            }
            return true;
        }
        const std::uint32_t chunkSize = readLittle32(chunk.data() + 4);
        offset += 8 + static_cast<std::uintmax_t>(chunkSize) + (chunkSize & 1);
    }
    return fail("it has no data chunk");
}

bool finishRecording(const fs::path& recorded, const fs::path& target)
{
    std::error_code error;
    if (!fs::exists(recorded, error)) {
        log::warning("the SIP line recorded nothing for \"" + target.string() + "\" (no sound came from the caller)");
        return writeLineWave(target, {});
    }
    if (!fixWaveSizes(recorded)) {
        fs::remove(recorded, error);
        return writeLineWave(target, {});
    }
    SF_INFO info{};
    {
        SoundFile sound(sf_open(recorded.c_str(), SFM_READ, &info));
        if (!sound) {
            log::warning("the SIP line's recording for \"" + target.string() + "\" cannot be read: " +
                         sf_strerror(nullptr));
            fs::remove(recorded, error);
            return writeLineWave(target, {});
        }
    }
    if (isLineWave(info)) return moveInPlace(recorded, target);

    // A call on a wide-band codec records at its own rate: brought to the line's.
    auto sound = readMonoSound(recorded);
    fs::remove(recorded, error);
    if (!sound) return writeLineWave(target, {});
    return writeLineWave(target, resampled(sound->samples, sound->rate, lineSampleRate));
}

} // namespace corvel::sip
