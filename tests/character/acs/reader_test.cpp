#include "character/acs/reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "character/acs/writer.h"
#include "sample_character.h"

namespace corvel::acs {
namespace {

using Bytes = std::vector<std::uint8_t>;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

// Builds files byte by byte, independently of Corvel's writer.
struct Le {
    Bytes b;
    std::size_t size() const { return b.size(); }
    Le& u8(std::uint8_t v) { b.push_back(v); return *this; }
    Le& u16(std::uint16_t v) { return u8(static_cast<std::uint8_t>(v)).u8(static_cast<std::uint8_t>(v >> 8)); }
    Le& u32(std::uint32_t v) { return u16(static_cast<std::uint16_t>(v)).u16(static_cast<std::uint16_t>(v >> 16)); }
    Le& bytes(const Bytes& v) { b.insert(b.end(), v.begin(), v.end()); return *this; }
    Le& str(std::u16string_view s)
    {
        u32(static_cast<std::uint32_t>(s.size()));
        if (s.empty()) return *this;
        for (char16_t c : s) u16(c);
        return u16(0);
    }
    Le& zeros(std::size_t n) { b.insert(b.end(), n, 0); return *this; }
    void patch32(std::size_t at, std::uint32_t v)
    {
        for (int i = 0; i < 4; ++i) b[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
    }
};

const Bytes runStream{0x00, 0x14, 0x02, 0x3E, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}; // 64 x 0x0A
const Bytes emptyRegionStream{0x00, 0x40, 0x00, 0x04, 0x10, 0xD0, 0x90, 0x80, 0x42, 0xED,
                              0x98, 0x01, 0xB7, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
// The format description's minimal image: 3 x 2, raw, no region.
const Bytes fixtureImage{0x01, 0x03, 0x00, 0x02, 0x00, 0x00, 0x08, 0x00, 0x00, 0x00, 0x0A, 0x01, 0x0A,
                         0x00, 0x01, 0x0A, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};

struct HandMade {
    std::uint32_t imageEntries = 2;  // directory entries after the first two all repeat image 0
    std::uint16_t secondWidth = 16, secondHeight = 4; // of the compressed image of 64 pixels
};

// A file laid out in an unusual order (character info first) to prove the reader follows the
// locators: one animation, two images (the raw fixture, and a compressed one with a compressed
// region), one sound.
Bytes handMadeFile(HandMade options = {})
{
    Le f;
    f.u32(0xABCDABC3).zeros(32);
    const auto locate = [&](std::size_t at, std::size_t start) {
        f.patch32(at, static_cast<std::uint32_t>(start));
        f.patch32(at + 4, static_cast<std::uint32_t>(f.size() - start));
    };

    std::size_t start = f.size();
    f.u16(1).u16(2);
    const std::size_t localizedAt = f.size();
    f.zeros(8);
    f.u32(0x11223344).u16(0x5566).u16(0x7788).bytes({1, 2, 3, 4, 5, 6, 7, 8});
    f.u16(32).u16(24).u8(0x0A).u32(0x00100220).u16(2).u16(0);
    f.zeros(32).u32(0xFFFFFFFF).u16(100).u8(1).u16(0x409).str(u"").u16(2).u16(30).str(u"Business");
    f.u8(2).u8(32).bytes({0x11, 0x22, 0x33, 0, 0xFF, 0xFF, 0xE1, 0, 0, 0, 0, 0}).str(u"Sans Serif");
    f.u32(static_cast<std::uint32_t>(-13)).u32(400).u8(0).u8(0);
    f.u32(2).bytes({0x30, 0x20, 0x10, 0, 0xFF, 0x00, 0xFF, 0});
    f.u8(1).u32(2).bytes({0xAA, 0xBB}).u32(1).bytes({0xCC});
    f.u16(1).str(u"IDLINGLEVEL1").u16(2).str(u"IDLE (2)").str(u"Blink");
    locate(4, start);

    start = f.size();
    f.u16(2).u16(0x407).str(u"Klingel").str(u"Telefon").str(u"");
    f.u16(0x409).str(u"Ringer").str(u"\u00DCn\u00EF \U0001D11E").str(u"x");
    locate(localizedAt, start);

    const std::size_t animationAt = f.size();
    f.str(u"BLINK").u8(1).str(u"").u16(2);
    f.u16(2).u32(1).u16(static_cast<std::uint16_t>(-2)).u16(3).u32(0).u16(4).u16(5);
    f.u16(0).u16(10).u16(static_cast<std::uint16_t>(-2)).u8(1).u16(1).u16(50);
    f.u8(1).u8(5).u8(1).u16(0).u8(0).u8(1).u16(2).u16(3).u16(4).u16(5).u32(2).bytes({0xDE, 0xAD});
    f.u16(0).u16(static_cast<std::uint16_t>(-1)).u16(0).u16(0).u8(0).u8(0);
    const std::size_t animationSize = f.size() - animationAt;

    const std::size_t image0 = f.size();
    f.bytes(fixtureImage);
    const std::size_t image1 = f.size();
    f.u8(1).u16(options.secondWidth).u16(options.secondHeight).u8(1).u32(static_cast<std::uint32_t>(runStream.size())).bytes(runStream);
    f.u32(static_cast<std::uint32_t>(emptyRegionStream.size())).u32(32).bytes(emptyRegionStream);
    const std::size_t image1Size = f.size() - image1;
    const std::size_t soundAt = f.size();
    f.bytes({'R', 'I', 'F', 'F', 4, 0, 0, 0, 'W', 'A', 'V', 'E'});

    start = f.size();
    f.u32(1).str(u"Blink").u32(static_cast<std::uint32_t>(animationAt)).u32(static_cast<std::uint32_t>(animationSize));
    locate(12, start);
    start = f.size();
    f.u32(options.imageEntries);
    f.u32(static_cast<std::uint32_t>(image0)).u32(static_cast<std::uint32_t>(fixtureImage.size())).u32(0xDEADBEEF);
    f.u32(static_cast<std::uint32_t>(image1)).u32(static_cast<std::uint32_t>(image1Size)).u32(0);
    for (std::uint32_t i = 2; i < options.imageEntries; ++i)
        f.u32(static_cast<std::uint32_t>(image0)).u32(static_cast<std::uint32_t>(fixtureImage.size())).u32(0);
    locate(20, start);
    start = f.size();
    f.u32(1).u32(static_cast<std::uint32_t>(soundAt)).u32(12).u32(0);
    locate(28, start);
    return f.b;
}

std::string readError(const Bytes& file, const ReadLimits& limits = {})
{
    try {
        readCharacter(file, limits);
    } catch (const AcsError& e) {
        return e.what();
    }
    return "no error";
}

TEST(CharacterReader, ReadsEveryFieldOfAHandMadeFile)
{
    const Character c = readCharacter(handMadeFile());

    EXPECT_EQ(c.id, (Guid{0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}}));
    EXPECT_EQ(c.width, 32);
    EXPECT_EQ(c.height, 24);
    EXPECT_EQ(c.transparentIndex, 0x0A);
    ASSERT_TRUE(c.voice && c.voice->details);
    EXPECT_EQ(c.voice->speed, Voice::defaultSpeed);
    EXPECT_EQ(c.voice->pitch, 100);
    EXPECT_EQ(c.voice->details->gender, Gender::Male);
    EXPECT_EQ(c.voice->details->style, "Business");
    ASSERT_TRUE(c.balloon);
    EXPECT_EQ(c.balloon->charsPerLine, 32);
    EXPECT_EQ(c.balloon->text, (Rgb{0x11, 0x22, 0x33})); // stored R, G, B
    EXPECT_EQ(c.balloon->fontName, "Sans Serif");
    EXPECT_EQ(c.balloon->fontHeight, -13);
    EXPECT_THAT(c.palette, ElementsAre(Rgb{0x10, 0x20, 0x30}, Rgb{0xFF, 0x00, 0xFF})); // stored B, G, R
    ASSERT_TRUE(c.trayIcon);
    EXPECT_EQ(c.trayIcon->colour, Bytes{0xCC});
    ASSERT_EQ(c.states.size(), 1u);
    EXPECT_THAT(c.states[0].animations, ElementsAre("IDLE (2)", "Blink"));
    EXPECT_EQ(c.findState("IdlingLevel1"), &c.states[0]);
    EXPECT_EQ(c.description(), "\u00DCn\u00EF \U0001D11E");

    ASSERT_EQ(c.animations.size(), 1u);
    const Animation& blink = c.animations[0];
    EXPECT_EQ(blink.name, "Blink"); // the directory's spelling, not the record's capitals
    EXPECT_EQ(c.findAnimation("bLiNk"), &blink);
    EXPECT_EQ(blink.transition, Transition::ExitBranches);
    ASSERT_EQ(blink.frames.size(), 2u);
    const Frame& f = blink.frames[0];
    EXPECT_THAT(f.images, ElementsAre(FrameImage{1, -2, 3}, FrameImage{0, 4, 5}));
    EXPECT_EQ(f.sound, 0);
    EXPECT_EQ(f.exitFrame, Frame::exitContinues);
    EXPECT_THAT(f.branches, ElementsAre(Branch{1, 50}));
    EXPECT_THAT(f.mouths, ElementsAre(MouthOverlay{MouthShape::Medium, true, 0, 2, 3, 4, 5, Bytes{0xDE, 0xAD}}));
    EXPECT_EQ(blink.frames[1].sound, Frame::noSound);
    EXPECT_EQ(blink.frames[1].duration, 0);

    ASSERT_EQ(c.images.size(), 2u);
    EXPECT_EQ(c.images[0].pixels, (Bytes{0x01, 0x0A, 0x01, 0x0A, 0x01, 0x0A})); // top row first
    EXPECT_EQ(c.images[1].pixels, Bytes(64, 0x0A));
    EXPECT_TRUE(c.images[1].region.empty());
    ASSERT_EQ(c.sounds.size(), 1u);
    EXPECT_EQ(c.sounds[0].size(), 12u);
}

TEST(CharacterReader, ChoosesTheLocalizedEntryByLanguage)
{
    const Character c = readCharacter(handMadeFile());
    EXPECT_EQ(c.name(0x407), "Klingel");  // exact
    EXPECT_EQ(c.name(0x807), "Klingel");  // same primary language (Swiss German)
    EXPECT_EQ(c.name(0x40C), "Ringer");   // French: none, so English
    EXPECT_EQ(Character{}.name(), "");
}

TEST(CharacterWriter, WritesWhatTheReaderReadsBack)
{
    const Character sample = testing::sampleCharacter();
    for (const bool compressed : {true, false}) {
        const Bytes file = writeCharacter(sample, {compressed});
        const Character back = readCharacter(file);
        EXPECT_EQ(back, sample);
        EXPECT_EQ(writeCharacter(back, {compressed}), file);
    }
    // The writer keeps the style bits in step with the voice and balloon it writes.
    Character quiet = sample;
    quiet.voice.reset();
    quiet.balloon.reset();
    const Character back = readCharacter(writeCharacter(quiet));
    EXPECT_EQ(back.styleFlags & (style::voiceEnabled | style::balloonEnabled), 0u);
    EXPECT_FALSE(back.voice || back.balloon);
}

TEST(CharacterWriter, RefusesCharactersThatWouldNotReadBack)
{
    const auto refusal = [](Character c) {
        try {
            writeCharacter(c);
        } catch (const AcsError& e) {
            return std::string(e.what());
        }
        return std::string("written");
    };
    Character c = testing::sampleCharacter();
    c.animations[0].frames[0].images[0].image = 3;
    EXPECT_THAT(refusal(c), HasSubstr("animation 'Wave' frame 0: image 3 does not exist"));
    c = testing::sampleCharacter();
    c.animations[2].frames.clear();
    EXPECT_THAT(refusal(c), HasSubstr("animation 'Nod' has no frames"));
    c = testing::sampleCharacter();
    c.animations[0].frames[0].branches[0].frame = 9;
    EXPECT_THAT(refusal(c), HasSubstr("branch target 9 does not exist"));
    c = testing::sampleCharacter();
    c.images[0].pixels.pop_back();
    EXPECT_THAT(refusal(c), HasSubstr("image 0 has 29 pixels for 6 x 5"));
    c = testing::sampleCharacter();
    c.palette.resize(257);
    EXPECT_THAT(refusal(c), HasSubstr("palette of 257 colours"));
}

TEST(CharacterWriter, RegionsAreBandsOfOpaqueRuns)
{
    // . X X .
    // . X X .
    // X . . X
    const Image image{4, 3, {0, 1, 1, 0, 0, 1, 1, 0, 1, 0, 0, 1}, {}};
    EXPECT_THAT(regionOf(image, 0), ElementsAre(RegionRect{1, 0, 3, 2}, RegionRect{0, 2, 1, 3}, RegionRect{3, 2, 4, 3}));
    EXPECT_TRUE(regionOf(Image{2, 1, {0, 0}, {}}, 0).empty());
}

// ---- Damaged files

TEST(DamagedCharacterFile, EveryTruncationIsRefusedWithAReason)
{
    for (const Bytes& file : {writeCharacter(testing::sampleCharacter()), handMadeFile()}) {
        ASSERT_NO_THROW(readCharacter(file));
        for (std::size_t size = 0; size < file.size(); ++size) {
            const std::string error = readError(Bytes(file.begin(), file.begin() + static_cast<long>(size)));
            ASSERT_NE(error, "no error") << "cut at " << size;
            ASSERT_FALSE(error.empty());
        }
    }
    const Bytes file = handMadeFile();
    EXPECT_EQ(readError(Bytes(file.begin(), file.begin() + 6)), "header: ends early: 4 more bytes needed at 0x4, 2 left");
    EXPECT_THAT(readError(Bytes(file.begin(), file.begin() + 40)),
                HasSubstr("the character info block (at 0x24, 258 bytes) lies past the end of the 40-byte file"));
}

TEST(DamagedCharacterFile, OtherKindsOfFileAreNamed)
{
    EXPECT_THAT(readError({0xC4, 0xAB, 0xCD, 0xAB, 0, 0}), HasSubstr("web-format character (.acf"));
    EXPECT_THAT(readError({0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1, 0}), HasSubstr("version 1.5 character"));
    EXPECT_THAT(readError({'R', 'I', 'F', 'F', 0, 0, 0, 0}), HasSubstr("not a character file: it starts with 0x46464952"));
    EXPECT_THAT(readError({0xC3, 0xAB}), HasSubstr("only 2 bytes long"));
}

TEST(DamagedCharacterFile, CountsAndOffsetsPastTheEndAreRefused)
{
    const Bytes good = handMadeFile();
    const auto patched = [&](std::size_t at, std::uint32_t value) {
        Bytes file = good;
        for (int i = 0; i < 4; ++i) file[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
        return readError(file);
    };
    const auto field = [&](std::size_t at) {
        return static_cast<std::size_t>(good[at] | good[at + 1] << 8 | good[at + 2] << 16 | good[at + 3] << 24);
    };
    EXPECT_THAT(patched(4, 0xFFFFFFF0), HasSubstr("header: the character info block (at 0xFFFFFFF0"));
    EXPECT_THAT(patched(12 + 4, 0x7FFFFFFF), HasSubstr("the animation directory (at"));
    EXPECT_THAT(patched(field(12), 0xFFFFFFFF), HasSubstr("animation directory: claims 4294967295 animations"));
    EXPECT_THAT(patched(field(20), 0x10000000), HasSubstr("image directory: claims 268435456 images"));
    EXPECT_THAT(patched(field(12) + 4, 0x40000000), HasSubstr("a text of 1073741824 characters"));
    EXPECT_THAT(patched(field(4), 0x00030001), HasSubstr("unknown version 3.1"));
    EXPECT_THAT(patched(field(20) + 4 + 12, static_cast<std::uint32_t>(good.size())), HasSubstr("image 1"));
}

TEST(DamagedCharacterFile, AbsurdSizesAreRefusedBeforeAnythingIsAllocated)
{
    EXPECT_THAT(readError(handMadeFile({.secondWidth = 60000, .secondHeight = 60000})),
                HasSubstr("image 1: claims 3600000000 bytes of pixels, more than an image may have"));
    EXPECT_THAT(readError(handMadeFile({.imageEntries = 2000})), HasSubstr("entries overlap"));
    ReadLimits tight;
    tight.maxDecodedBytes = 64;
    EXPECT_THAT(readError(handMadeFile(), tight), HasSubstr("the images decode to more than 64 bytes in all"));
}

// Every byte altered a few ways: each file either reads or is refused with an AcsError.
TEST(DamagedCharacterFile, AlteredBytesNeverCrash)
{
    const Bytes good = writeCharacter(testing::sampleCharacter());
    int refused = 0;
    for (std::size_t at = 0; at < good.size(); ++at)
        for (const std::uint8_t flip : {0x01, 0x80, 0xFF}) {
            Bytes file = good;
            file[at] ^= flip;
            try {
                readCharacter(file);
            } catch (const AcsError&) {
                ++refused;
            }
        }
    EXPECT_GT(refused, 0);
}

} // namespace
} // namespace corvel::acs
