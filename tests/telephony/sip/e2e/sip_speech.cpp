#include "sip_speech.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>

#include "sip_call_harness.h"

namespace corvel::e2e {
namespace fs = std::filesystem;
namespace {

const fs::path shippedVoice = "/usr/share/sip-tester/g711a.pcap";
constexpr std::size_t fileHeader = 24, recordHeader = 16;
constexpr char aLawSilence = static_cast<char>(0xD5);
constexpr int silentPackets = 10; // 300 ms of the voice's 30 ms packets

// A pcap's own fields are in the byte order of the machine that wrote it: the shipped one's
// are in this machine's, as its magic number shows.
std::uint32_t field(const std::string& bytes, std::size_t at)
{
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
}
void setField(std::string& bytes, std::size_t at, std::uint64_t value)
{
    const auto field = static_cast<std::uint32_t>(value);
    std::memcpy(bytes.data() + at, &field, sizeof field);
}

// The shipped pcap's records, each its header and its packet.
std::vector<std::string> records(const std::string& pcap)
{
    if (pcap.size() < fileHeader || field(pcap, 0) != 0xA1B2C3D4) {
        throw std::runtime_error("cannot read the voice in " + shippedVoice.string());
    }
    std::vector<std::string> found;
    for (std::size_t at = fileHeader; at + recordHeader <= pcap.size();) {
        const std::size_t length = recordHeader + field(pcap, at + 8);
        found.push_back(pcap.substr(at, length));
        at += length;
    }
    return found;
}

// Where a record's RTP header begins, past the Ethernet, IPv4 and UDP headers, and where its
// sound begins, past the RTP header and its list of sources.
std::size_t rtpAt(const std::string& record)
{
    return recordHeader + 14 + 4 * (static_cast<std::size_t>(record[recordHeader + 14]) & 0x0F) + 8;
}
std::size_t soundAt(const std::string& record)
{
    const std::size_t rtp = rtpAt(record);
    return rtp + 12 + 4 * (static_cast<std::size_t>(record[rtp]) & 0x0F);
}

// Adds `amount` to the big-endian counter of `size` bytes at `at`, wrapping as RTP's do.
void advance(std::string& bytes, std::size_t at, std::size_t size, std::uint64_t amount)
{
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
    value += amount;
    for (std::size_t i = size; i-- > 0; value >>= 8) bytes[at + i] = static_cast<char>(value & 0xFF);
}

} // namespace

void writeSpeechPcap(const fs::path& path)
{
    std::string pcap = readText(shippedVoice);
    std::string record = records(pcap).back();
    const std::size_t rtp = rtpAt(record), sound = soundAt(record);
    const std::size_t samples = record.size() - sound; // one a byte, 8000 a second
    std::fill(record.begin() + static_cast<long>(sound), record.end(), aLawSilence);
    for (int i = 0; i < silentPackets; ++i) {
        // One packet on: its sequence number, its timestamp and its time in the capture.
        advance(record, rtp + 2, 2, 1);
        advance(record, rtp + 4, 4, samples);
        const std::uint64_t micro = std::uint64_t{field(record, 0)} * 1000000 + field(record, 4) + samples * 125;
        setField(record, 0, micro / 1000000);
        setField(record, 4, micro % 1000000);
        pcap += record;
    }
    std::ofstream(path, std::ios::binary) << pcap;
}

std::vector<std::int16_t> speechSamples()
{
    std::vector<std::int16_t> samples;
    for (const std::string& record : records(readText(shippedVoice))) {
        for (std::size_t i = soundAt(record); i < record.size(); ++i)
            samples.push_back(fromALaw(static_cast<std::uint8_t>(record[i])));
    }
    return samples;
}

double voicedSeconds(const std::vector<std::int16_t>& samples, int rate)
{
    // A-law's quietest steps are ±8 and the stack's own silence is 0; a voice rises far past 64.
    const auto loud = [](std::int16_t sample) { return std::abs(sample) > 64; };
    const auto first = std::find_if(samples.begin(), samples.end(), loud);
    if (first == samples.end() || rate <= 0) return 0;
    const auto last = std::find_if(samples.rbegin(), samples.rend(), loud).base();
    return static_cast<double>(last - first) / rate;
}

std::int16_t fromALaw(std::uint8_t code)
{
    code ^= 0x55;
    int magnitude = (code & 0x0F) << 4;
    const int segment = (code & 0x70) >> 4;
    if (segment == 0) magnitude += 8;
    else magnitude = (magnitude + 0x108) << (segment - 1);
    return static_cast<std::int16_t>((code & 0x80) ? magnitude : -magnitude);
}

} // namespace corvel::e2e
