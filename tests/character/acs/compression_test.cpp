#include "character/acs/compression.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "character/acs/character.h"

namespace corvel::acs {
namespace {

using Bytes = std::vector<std::uint8_t>;
using ::testing::HasSubstr;

// The two streams the format's description gives, with what they decode to.
const Bytes emptyRegionStream{0x00, 0x40, 0x00, 0x04, 0x10, 0xD0, 0x90, 0x80, 0x42, 0xED,
                              0x98, 0x01, 0xB7, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
const Bytes runStream{0x00, 0x14, 0x02, 0x3E, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

Bytes emptyRegionHeader()
{
    Bytes header(32, 0);
    header[0] = 0x20;
    header[4] = 0x01;
    header[12] = 0xA8;
    return header;
}

// Packs bits least-significant first after the leading 0 byte, as streams are read.
Bytes stream(const std::string& bits)
{
    Bytes out{0};
    for (std::size_t i = 0; i < bits.size(); ++i) {
        if (i % 8 == 0) out.push_back(0);
        if (bits[i] == '1') out.back() |= static_cast<std::uint8_t>(1 << (i % 8));
    }
    return out;
}

TEST(Compression, DecodesTheFormatsTestVectors)
{
    EXPECT_EQ(decompress(emptyRegionStream, 32), emptyRegionHeader());
    EXPECT_EQ(decompress(runStream, 64), Bytes(64, 0x0A));
}

TEST(Compression, EncodesTheTestVectorsAsTheOriginalTool)
{
    EXPECT_EQ(compress(Bytes(64, 0x0A)), runStream);
    EXPECT_EQ(compress(emptyRegionHeader()), emptyRegionStream);
}

TEST(Compression, RoundTripsEveryDistanceTierAndLongRuns)
{
    std::mt19937 random(7);
    Bytes data;
    const auto noise = [&](std::size_t n) {
        for (std::size_t i = 0; i < n; ++i) data.push_back(static_cast<std::uint8_t>(random()));
    };
    noise(5000);
    for (const std::size_t distance : {1, 2, 64, 65, 576, 577, 4672, 4673, 100000}) {
        if (distance > data.size()) noise(distance - data.size() + 10);
        const std::size_t from = data.size() - distance;
        for (std::size_t i = 0; i < 300; ++i) data.push_back(data[from + i]); // a copy at that distance
        noise(3);
    }
    data.insert(data.end(), 10000, 0x0A); // longer than one match can be
    for (const Bytes& input : {data, Bytes{}, Bytes{42}, Bytes{1, 2}}) {
        const Bytes packed = compress(input);
        EXPECT_EQ(decompress(packed, input.size()), input);
        // Some readers insist on the trailer of 0xFF bytes the original tool leaves.
        ASSERT_GE(packed.size(), 6u);
        EXPECT_TRUE(std::all_of(packed.end() - 6, packed.end(), [](std::uint8_t b) { return b == 0xFF; }));
    }
    EXPECT_LT(compress(Bytes(100000, 0x0A)).size(), 200u);
}

TEST(Compression, RejectsDamagedStreams)
{
    const auto error = [](const Bytes& s, std::size_t size) {
        try {
            decompress(s, size);
        } catch (const AcsError& e) {
            return std::string(e.what());
        }
        return std::string("no error");
    };
    EXPECT_THAT(error({0x01, 0xFF}, 1), HasSubstr("does not start with a 0 byte"));
    EXPECT_THAT(error({}, 0), HasSubstr("does not start with a 0 byte"));
    EXPECT_THAT(error(Bytes(runStream.begin(), runStream.end() - 6), 64), HasSubstr("ends early"));
    EXPECT_THAT(error(stream("1" "0" "000000" "0"), 2), HasSubstr("before its start"));
    EXPECT_THAT(error(stream("0" "10000010" "1" "0" "000000" "111111111111"), 9), HasSubstr("longer than allowed"));
    EXPECT_THAT(error(runStream, 63), HasSubstr("more than the expected 63 bytes"));
    EXPECT_THAT(error(runStream, 65), HasSubstr("yields 64 bytes, expected 65"));
}

} // namespace
} // namespace corvel::acs
