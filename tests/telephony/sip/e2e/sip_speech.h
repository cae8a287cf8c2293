#pragma once

// What a SIPp caller says: the voice SIPp ships as A-law RTP in a pcap, played by a speech()
// step, and how long a sound holds a voice.

#include <cstdint>
#include <filesystem>
#include <vector>

namespace corvel::e2e {

// The voice, then 300 ms of silence sent on as a telephone does (7.4 s in all), written as a
// pcap for SIPp to play. Without the silence the stream would stop on the last word and the
// stack would carry that word on into the gap, lengthening it.
void writeSpeechPcap(const std::filesystem::path& path);

// The voice's samples, as the caller sends them, at G.711's rate.
constexpr int speechRate = 8000;
std::vector<std::int16_t> speechSamples();

// Seconds from the first to the last sample louder than the line's silence: how long a caller
// spoke, in what they sent or in the message they left.
double voicedSeconds(const std::vector<std::int16_t>& samples, int rate);

// A G.711 A-law byte as a 16-bit sample.
std::int16_t fromALaw(std::uint8_t code);

} // namespace corvel::e2e
