#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <vector>

#include "telephony/modem/responses.h"

namespace corvel::modem {

// Line samples (16-bit) to and from the bytes a modem sends and takes in `format`.
std::vector<std::uint8_t> encode(std::span<const std::int16_t> samples, SampleFormat format);
std::vector<std::int16_t> decode(std::span<const std::uint8_t> bytes, SampleFormat format);
int bytesPerSample(SampleFormat format);
// The byte (pair) of silence.
std::vector<std::uint8_t> silence(SampleFormat format, std::size_t samples);

std::uint8_t muLawFromLinear(std::int16_t sample);
std::int16_t linearFromMuLaw(std::uint8_t code);
std::uint8_t aLawFromLinear(std::int16_t sample);
std::int16_t linearFromALaw(std::uint8_t code);

// Mono samples from one rate to another through libsamplerate; the same samples when the
// rates agree.
std::vector<std::int16_t> convertRate(std::span<const std::int16_t> samples, int from, int to);

// A sound file of any rate, 8 or 16 bits, mono or stereo, as the modem plays it: mixed down,
// brought to `rate` and encoded. Nothing (and a logged warning) when it cannot be read.
std::optional<std::vector<std::uint8_t>> loadForModem(const std::filesystem::path& path, SampleFormat format,
                                                      int rate);

} // namespace corvel::modem
