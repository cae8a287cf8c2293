#include "telephony/modem/voice_codec.h"


#include <algorithm>
#include <cmath>
#include <string>

#include "base/log.h"
#include "telephony/line_audio.h"

namespace corvel::modem {

// G.711 by the classic segment method: exact, and its silence (0xFF, 0xD5) decodes to 0 or
// +-8, quieter than any line.
std::uint8_t muLawFromLinear(std::int16_t sample)
{
    constexpr int bias = 0x84, clip = 32635;
    int value = sample;
    const int sign = value < 0 ? 0x80 : 0;
    if (sign) value = -value;
    value = std::min(value, clip) + bias;
    int exponent = 7;
    for (int mask = 0x4000; (value & mask) == 0 && exponent > 0; mask >>= 1) --exponent;
    const int mantissa = (value >> (exponent + 3)) & 0x0F;
    return static_cast<std::uint8_t>(~(sign | (exponent << 4) | mantissa));
}

std::int16_t linearFromMuLaw(std::uint8_t code)
{
    const int u = ~code & 0xFF;
    const int exponent = (u >> 4) & 0x07;
    const int magnitude = (((u & 0x0F) << 3) + 0x84) << exponent;
    return static_cast<std::int16_t>((u & 0x80) ? 0x84 - magnitude : magnitude - 0x84);
}

std::uint8_t aLawFromLinear(std::int16_t sample)
{
    static constexpr int segmentEnds[8] = {0x1F, 0x3F, 0x7F, 0xFF, 0x1FF, 0x3FF, 0x7FF, 0xFFF};
    int value = sample >> 3;
    int mask = 0xD5;
    if (value < 0) {
        mask = 0x55;
        value = -value - 1;
    }
    int segment = 0;
    while (segment < 8 && value > segmentEnds[segment]) ++segment;
    if (segment >= 8) return static_cast<std::uint8_t>(0x7F ^ mask);
    int code = segment << 4;
    code |= segment < 2 ? (value >> 1) & 0x0F : (value >> segment) & 0x0F;
    return static_cast<std::uint8_t>(code ^ mask);
}

std::int16_t linearFromALaw(std::uint8_t code)
{
    const int a = code ^ 0x55;
    int magnitude = (a & 0x0F) << 4;
    const int segment = (a & 0x70) >> 4;
    if (segment == 0) magnitude += 8;
    else magnitude = (magnitude + 0x108) << (segment - 1);
    return static_cast<std::int16_t>((a & 0x80) ? magnitude : -magnitude);
}

int bytesPerSample(SampleFormat format) { return format == SampleFormat::Linear16 ? 2 : 1; }

std::vector<std::uint8_t> encode(std::span<const std::int16_t> samples, SampleFormat format)
{
    std::vector<std::uint8_t> out;
    out.reserve(samples.size() * static_cast<std::size_t>(bytesPerSample(format)));
    for (const std::int16_t s : samples) {
        switch (format) {
        case SampleFormat::Unsigned8: out.push_back(static_cast<std::uint8_t>((s >> 8) + 128)); break;
        case SampleFormat::Signed8: out.push_back(static_cast<std::uint8_t>(s >> 8)); break;
        case SampleFormat::MuLaw: out.push_back(muLawFromLinear(s)); break;
        case SampleFormat::ALaw: out.push_back(aLawFromLinear(s)); break;
        case SampleFormat::Linear16:
            out.push_back(static_cast<std::uint8_t>(s & 0xFF)); // little-endian
            out.push_back(static_cast<std::uint8_t>((s >> 8) & 0xFF));
            break;
        }
    }
    return out;
}

std::vector<std::int16_t> decode(std::span<const std::uint8_t> bytes, SampleFormat format)
{
    std::vector<std::int16_t> out;
    out.reserve(bytes.size());
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const std::uint8_t b = bytes[i];
        switch (format) {
        case SampleFormat::Unsigned8: out.push_back(static_cast<std::int16_t>((b - 128) * 256)); break;
        case SampleFormat::Signed8: out.push_back(static_cast<std::int16_t>(static_cast<std::int8_t>(b) * 256)); break;
        case SampleFormat::MuLaw: out.push_back(linearFromMuLaw(b)); break;
        case SampleFormat::ALaw: out.push_back(linearFromALaw(b)); break;
        case SampleFormat::Linear16:
            if (i + 1 >= bytes.size()) return out; // half a sample: the caller keeps it for later
            out.push_back(static_cast<std::int16_t>(b | (bytes[i + 1] << 8)));
            ++i;
            break;
        }
    }
    return out;
}

std::vector<std::uint8_t> silence(SampleFormat format, std::size_t samples)
{
    const std::vector<std::int16_t> zeros(samples, 0);
    return encode(zeros, format);
}

std::vector<std::int16_t> convertRate(std::span<const std::int16_t> samples, int from, int to)
{
    return convertSampleRate(samples, from, to).value_or(std::vector<std::int16_t>{});
}

std::optional<std::vector<std::uint8_t>> loadForModem(const std::filesystem::path& path, SampleFormat format,
                                                      int rate)
{
    auto sound = readMonoSound(path); // logs why a file cannot be read
    if (!sound) return std::nullopt;
    return encode(convertRate(sound->samples, sound->rate, rate), format);
}

} // namespace corvel::modem
