// What the driver reads from a modem and what it makes of it: the byte stream, the result
// lines, the codec lists, caller ID in all its forms, and the sound formats.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "telephony/modem/caller_id_parser.h"
#include "telephony/modem/modem_stream.h"
#include "telephony/modem/responses.h"
#include "telephony/modem/voice_codec.h"

namespace corvel::modem {
namespace {

using ::testing::ElementsAre;

// Keeps what the stream hands on, in order, as text.
class Collected : public ModemStream::Handler {
public:
    std::vector<std::string> items;
    std::vector<std::uint8_t> sound;
    ModemStream* stream = nullptr;
    bool receiveOnConnect = false;

    void line(std::string_view text) override
    {
        items.push_back("line " + std::string(text));
        if (receiveOnConnect && text == "CONNECT") stream->setMode(ModemStream::Mode::Receive);
    }
    void event(char code) override { items.push_back(std::string("event ") + code); }
    void audio(std::span<const std::uint8_t> bytes) override { sound.insert(sound.end(), bytes.begin(), bytes.end()); }
    void endOfData() override { items.push_back("end"); }
};

void feed(ModemStream& stream, std::string_view bytes)
{
    stream.feed(std::span<const std::uint8_t>(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

TEST(ModemStream, LinesAndCodesComeWholeHoweverTheReadsCutThem)
{
    Collected got;
    ModemStream stream(got);
    // Echo, blank lines, a code in the middle of a line, and a pair split between reads.
    const std::string bytes = "ATZ\r\r\nOK\r\n\r\nNM\x10" "5BR = 1\r\n\x10";
    feed(stream, bytes);
    feed(stream, "b\r\nRING\r\n");
    EXPECT_THAT(got.items, ElementsAre("line ATZ", "line OK", "event 5", "line NMBR = 1", "event b", "line RING"));
}

TEST(ModemStream, ReceivedSoundIsUnshieldedUpToItsEndAndTheOkAfterIsALine)
{
    Collected got;
    ModemStream stream(got);
    got.stream = &stream;
    got.receiveOnConnect = true;
    // CONNECT and the first sound in one read: the LF of CONNECT's CR LF is not sound.
    feed(stream, "\r\nCONNECT\r\n\x80\x10\x10\x81\x10");
    feed(stream, "\x1A\x10" "1\x82\x10\x03\r\nOK\r\n");
    EXPECT_THAT(got.sound, ElementsAre(0x80, 0x10, 0x81, 0x10, 0x10, 0x82));
    EXPECT_THAT(got.items, ElementsAre("line CONNECT", "event 1", "end", "line OK"));
    EXPECT_EQ(stream.mode(), ModemStream::Mode::Command);
}

TEST(ModemStream, AShieldedKeyCountsOncePerToneAndPlainRepeatsCountEach)
{
    Collected got;
    ModemStream stream(got);
    feed(stream, "\x10/\x10" "4\x10" "4\x10" "4\x10~");  // one press, repeated while it sounds
    feed(stream, "\x10/\x10" "7\x10\x7F");               // the other tone-end code
    feed(stream, "\x10" "9\x10" "9");                     // two presses, no brackets
    feed(stream, "\x10/\x10" "1\x10/\x10" "2");           // an end that was lost: the next start ends it
    EXPECT_THAT(got.items, ElementsAre("event 4", "event 7", "event 9", "event 9", "event 1", "event 2"));
}

TEST(ModemStream, ShieldingDoublesEveryDle)
{
    std::vector<std::uint8_t> out;
    const std::uint8_t sound[] = {1, DLE, 2, DLE, DLE};
    appendShielded(out, sound);
    EXPECT_THAT(out, ElementsAre(1, DLE, DLE, 2, DLE, DLE, DLE, DLE));
}

TEST(ModemStream, AnEndlessLineIsCut)
{
    Collected got;
    ModemStream stream(got);
    feed(stream, std::string(100000, 'x') + "\r\n");
    ASSERT_EQ(got.items.size(), 1u);
    EXPECT_EQ(got.items[0].size(), std::string("line ").size() + ModemStream::maxLine);
}

TEST(Responses, ResultsRingsAndTheLinesThatAreNeither)
{
    for (const char* ring : {"RING", "RING 1", "RING A", "RING;1234", "RING: 5551234", "RING 0123456", "CID RING", "2"})
        EXPECT_EQ(classify(ring), LineKind::Ring) << ring;
    for (const char* other : {"RINGING", "RINGBACK", "NMBR = RING", "DATE = 0321"})
        EXPECT_NE(classify(other), LineKind::Ring) << other;
    EXPECT_EQ(classify(" ok "), LineKind::Ok);
    EXPECT_EQ(classify("CONNECT 115200"), LineKind::Connect);
    EXPECT_EQ(classify("VCON"), LineKind::Vcon);
    EXPECT_EQ(classify("+CME ERROR: 3"), LineKind::Error);
    EXPECT_EQ(classify("DRON = 5"), LineKind::Cadence);
    EXPECT_EQ(classify("at+vls=1"), LineKind::Echo);
}

TEST(Responses, TheCodecIsChosenByNameWhateverItsNumber)
{
    const auto choose = [](std::vector<std::string> lines) {
        std::vector<VoiceCompression> offered;
        for (const auto& line : lines)
            if (auto c = parseCompression(line)) offered.push_back(*c);
        return chooseCodec(offered);
    };
    // Conexant: 130 is unsigned PCM; mu-law is 131.
    auto conexant = choose({"0,\"SIGNED PCM\",8,0,8000,0,0", "1,\"UNSIGNED PCM\",8,0,8000,0,0",
                            "129,\"IMA ADPCM\",4,0,8000,0,0", "130,\"UNSIGNED PCM\",8,0,8000,0,0",
                            "131,\"Mu-Law\",8,0,8000,0,0", "133,\"14 bit PCM\",14,0,8000,0,0"});
    ASSERT_TRUE(conexant);
    EXPECT_EQ(conexant->compression.id, 131);
    EXPECT_EQ(conexant->format, SampleFormat::MuLaw);
    // Agere: 130 is A-law, and without mu-law it is the one taken.
    auto agere = choose({"+VSM: 128,\"8-BIT LINEAR\",(7200,8000,11025)", "130,\"8-BIT ALAW\",(8000)",
                         "132,\"IMA ADPCM\",(7200,8000,11025)"});
    ASSERT_TRUE(agere);
    EXPECT_EQ(agere->compression.id, 130);
    EXPECT_EQ(agere->format, SampleFormat::ALaw);
    auto linear = choose({"129,\"IMA ADPCM\",4,0,8000,0,0", "130,\"UNSIGNED PCM\",8,0,(7200,8000),0,0"});
    ASSERT_TRUE(linear);
    EXPECT_EQ(linear->format, SampleFormat::Unsigned8);
    EXPECT_EQ(linear->rate, 8000);
    auto slow = choose({"128,\"8-BIT LINEAR\",(7200)"});
    ASSERT_TRUE(slow);
    EXPECT_EQ(slow->rate, 7200);
    EXPECT_FALSE(choose({"129,\"IMA ADPCM\",4,0,8000,0,0", "133,\"14 bit PCM\",14,0,8000,0,0"}));
    EXPECT_FALSE(parseCompression("garbage"));
    EXPECT_FALSE(parseCompression("300,\"BIG\",8"));
}

TEST(Responses, VoiceClassAndHandsetEventsAreReadFromTheirLists)
{
    for (const char* yes : {"0,1,1.0,8", "(0,1,8)", "0,2,8", "0,1,1.0,80", "0,1,2.0,8.0", "(0-8)"})
        EXPECT_TRUE(offersVoiceClass(yes)) << yes;
    for (const char* no : {"0,1,2", "0,1,1.0,2.0", "", "18"}) EXPECT_FALSE(offersVoiceClass(no)) << no;
    EXPECT_TRUE(offersExtensionEvents("(0-7)"));
    EXPECT_TRUE(offersExtensionEvents("-STE: 0-7"));
    EXPECT_FALSE(offersExtensionEvents("(0,1)"));
}

TEST(Responses, TheChipsetFamilyComesFromTheIdentityTexts)
{
    EXPECT_EQ(chipsetFamily({"56000", "CX93001-EIS_V0.2013-V92"}, false), "Conexant");
    EXPECT_EQ(chipsetFamily({"U.S. Robotics 56K FAX USB V1.2.23"}, true), "US Robotics");
    EXPECT_EQ(chipsetFamily({"Zoom V.90 Serial s052099g -I Z207"}, false), "Zoom");
    EXPECT_EQ(chipsetFamily({"5601"}, true), "Agere/Lucent (by its codec list)");
}

CallerIdentity parse(std::vector<std::string> lines)
{
    CallerIdParser parser;
    for (const auto& line : lines) parser.feed(line);
    return parser.identity();
}

TEST(CallerIdParser, EveryFormOfReportGivesNumberNameDateAndTime)
{
    const auto spaced = parse({"DATE = 0321", "TIME = 1405", "NMBR = 504551234", "NAME = A N OTHER"});
    EXPECT_EQ(spaced.number, "504551234");
    EXPECT_EQ(spaced.name, "A N OTHER");
    EXPECT_EQ(spaced.date, "0321");
    EXPECT_EQ(spaced.time, "1405");
    EXPECT_EQ(parse({"NMBR=07700900123"}).number, "07700900123");
    EXPECT_EQ(parse({"  nmbr =  0123  "}).number, "0123");
    EXPECT_EQ(parse({"CALLER NUMBER: 5551234"}).number, "5551234");
    EXPECT_EQ(parse({"+CLIP: \"+447700900123\",145"}).number, "+447700900123");
    const auto combined = parse({"DATE TIME=11/24 22:10", "NBR = 555"});
    EXPECT_EQ(combined.date, "1124");
    EXPECT_EQ(combined.time, "2210");
    EXPECT_EQ(combined.number, "555");
    EXPECT_EQ(parse({"DDN_NMBR= 5551000", "NMBR = 1"}).dialled, "5551000");
    // The number only as an undecoded item: type 3, seven digits as ASCII.
    EXPECT_EQ(parse({"MESG = 03073535353132333435"}).number, "5551234");
}

TEST(CallerIdParser, WithheldUnavailableAndAMaskingSecondNumber)
{
    EXPECT_TRUE(parse({"NMBR = P"}).withheld);
    EXPECT_TRUE(parse({"NMBR = O"}).unavailable);
    EXPECT_TRUE(parse({"REASON FOR NO CALLER NUMBER: PRIVATE"}).withheld);
    const auto masked = parse({"NMBR = 2125550163", "NMBR = O"});
    EXPECT_EQ(masked.number, "2125550163");
    EXPECT_FALSE(masked.unavailable);
    EXPECT_EQ(parse({"NAME = P", "NMBR = 1"}).name, "");
    EXPECT_EQ(parse({"DATE=", "NMBR = 12"}).number, "12");
    EXPECT_TRUE(parse({"MESG = CALID_202"}).number.empty());
}

TEST(CallerIdParser, HexPacketsAreDecodedAndDamagedOnesIgnored)
{
    // Single data message: 18 bytes, MMDDhhmm then the number; no checksum sent.
    const auto single = parse({"0412303332323234303539313435353132333435"});
    EXPECT_EQ(single.date, "0322");
    EXPECT_EQ(single.time, "2405");
    EXPECT_EQ(single.number, "9145512345");
    // Multiple data message with its checksum: date, number, name.
    std::vector<std::uint8_t> body{0x01, 8, '0', '3', '2', '1', '1', '4', '0', '5', 0x02, 3, '5', '5', '5', 0x07, 2, 'J', 'S'};
    std::vector<std::uint8_t> packet{0x80, static_cast<std::uint8_t>(body.size())};
    packet.insert(packet.end(), body.begin(), body.end());
    unsigned sum = 0;
    for (auto b : packet) sum += b;
    packet.push_back(static_cast<std::uint8_t>(-sum & 0xFF));
    std::string hex;
    for (auto b : packet) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02X", b);
        hex += pair;
    }
    const auto multiple = parse({hex});
    EXPECT_EQ(multiple.number, "555");
    EXPECT_EQ(multiple.name, "JS");
    hex[hex.size() - 1] = hex.back() == '0' ? '1' : '0'; // a bad checksum
    EXPECT_FALSE(parse({hex}).hasIdentity());
}

TEST(CallerIdParser, LinesThatAreNotCallerIdAreLeftAlone)
{
    CallerIdParser parser;
    for (const char* line : {"RING", "OK", "0,\"SIGNED PCM\",8,0,8000,0,0", "NMBRX = 1", "04", "80FF"})
        EXPECT_FALSE(parser.feed(line)) << line;
    EXPECT_FALSE(parser.any());
    EXPECT_TRUE(parser.feed("NAME = " + std::string(500, 'A')));
    EXPECT_EQ(parser.identity().name.size(), CallerIdParser::maxValue);
}

TEST(VoiceCodec, TheCompandedCodesDecodeToTheirStandardValues)
{
    EXPECT_EQ(linearFromMuLaw(0xFF), 0);
    EXPECT_EQ(linearFromMuLaw(0x00), -32124);
    EXPECT_EQ(linearFromMuLaw(0x80), 32124);
    EXPECT_EQ(linearFromALaw(0xD5), 8);
    EXPECT_EQ(linearFromALaw(0x55), -8);
    EXPECT_EQ(linearFromALaw(0x80), 5504);
    EXPECT_EQ(muLawFromLinear(0), 0xFF);
    EXPECT_EQ(aLawFromLinear(0), 0xD5);
    // Every code survives the round trip, and any sample comes back within its step.
    for (int code = 0; code < 256; ++code) {
        EXPECT_EQ(linearFromMuLaw(muLawFromLinear(linearFromMuLaw(static_cast<std::uint8_t>(code)))),
                  linearFromMuLaw(static_cast<std::uint8_t>(code)));
        EXPECT_EQ(linearFromALaw(aLawFromLinear(linearFromALaw(static_cast<std::uint8_t>(code)))),
                  linearFromALaw(static_cast<std::uint8_t>(code)));
    }
    for (int s = -32768; s < 32768; s += 97) {
        const auto sample = static_cast<std::int16_t>(s);
        EXPECT_LE(std::abs(linearFromMuLaw(muLawFromLinear(sample)) - s), std::max(16, std::abs(s) / 16)) << s;
        EXPECT_LE(std::abs(linearFromALaw(aLawFromLinear(sample)) - s), std::max(16, std::abs(s) / 16)) << s;
    }
}

TEST(VoiceCodec, LinearFormatsKeepSignAndByteOrder)
{
    const std::int16_t samples[] = {0, 0x1234, -0x1234, 32767, -32768};
    EXPECT_THAT(encode(samples, SampleFormat::Unsigned8), ElementsAre(0x80, 0x92, 0x6D, 0xFF, 0x00));
    EXPECT_THAT(encode(samples, SampleFormat::Signed8), ElementsAre(0x00, 0x12, 0xED, 0x7F, 0x80));
    EXPECT_THAT(encode(std::span(samples, 2), SampleFormat::Linear16), ElementsAre(0, 0, 0x34, 0x12));
    EXPECT_THAT(decode(encode(samples, SampleFormat::Linear16), SampleFormat::Linear16), ElementsAre(0, 0x1234, -0x1234, 32767, -32768));
    EXPECT_THAT(silence(SampleFormat::Unsigned8, 2), ElementsAre(0x80, 0x80));
}

TEST(VoiceCodec, RateConversionKeepsPitchAndLength)
{
    std::vector<std::int16_t> tone(11025);
    for (std::size_t i = 0; i < tone.size(); ++i) tone[i] = static_cast<std::int16_t>(8000 * std::sin(2 * M_PI * 440 * i / 11025.0));
    const auto out = convertRate(tone, 11025, 8000);
    EXPECT_NEAR(static_cast<double>(out.size()), 8000, 2);
    int crossings = 0;
    for (std::size_t i = 1; i < out.size(); ++i) crossings += (out[i - 1] < 0) != (out[i] < 0);
    EXPECT_NEAR(crossings, 880, 4);
}

} // namespace
} // namespace corvel::modem
