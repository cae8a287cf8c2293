#include "telephony/sip/sip_audio.h"

#include <unistd.h>

#include <cmath>
#include <fstream>

#include <gtest/gtest.h>

#include "support/wave_files.h"

namespace corvel::sip {
namespace {

namespace fs = std::filesystem;
using testing::Wave;
using testing::readWave;
using testing::writeWave;

Wave tone(int rate, int channels, double seconds, int format = SF_FORMAT_WAV | SF_FORMAT_PCM_16)
{
    Wave wave{rate, channels, {}, format};
    const auto frames = static_cast<std::size_t>(seconds * rate);
    for (std::size_t i = 0; i < frames; ++i) {
        const auto sample = static_cast<short>(9000 * std::sin(2 * M_PI * 440 * static_cast<double>(i) / rate));
        for (int c = 0; c < channels; ++c) wave.samples.push_back(sample);
    }
    return wave;
}

class SipAudioTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        folder = fs::temp_directory_path() / ("corvel-sip-audio-" + std::to_string(::getpid()) + "-" +
                                              ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(folder);
        fs::create_directories(folder / "cache");
    }
    void TearDown() override { fs::remove_all(folder); }

    // A wave file as the stack leaves it: both sizes in the header 44 bytes too large.
    fs::path stackRecording(const Wave& wave)
    {
        const fs::path path = folder / "stack.wav";
        writeWave(path, wave);
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        for (const std::streamoff offset : {4, 40}) {
            std::uint32_t size = 0;
            file.seekg(offset);
            file.read(reinterpret_cast<char*>(&size), 4);
            size += 44;
            file.seekp(offset);
            file.write(reinterpret_cast<const char*>(&size), 4);
        }
        return path;
    }

    fs::path folder;
};

TEST_F(SipAudioTest, SixteenBitPcmWavesPlayAsTheyAre)
{
    PromptCache cache(folder / "cache");
    for (const auto& [rate, channels] : {std::pair{8000, 1}, {22050, 2}, {48000, 1}}) {
        const fs::path file = folder / ("p" + std::to_string(rate) + ".wav");
        writeWave(file, tone(rate, channels, 0.2));
        EXPECT_EQ(cache.playable(file), file);
    }
    EXPECT_TRUE(fs::is_empty(folder / "cache"));
}

TEST_F(SipAudioTest, OtherSoundFilesAreConvertedOnceByContent)
{
    PromptCache cache(folder / "cache");
    const fs::path alaw = folder / "greeting.wav";
    writeWave(alaw, tone(8000, 1, 0.5, SF_FORMAT_WAV | SF_FORMAT_ALAW));
    const auto converted = cache.playable(alaw);
    ASSERT_TRUE(converted);
    EXPECT_EQ(converted->parent_path(), folder / "cache");
    const Wave out = readWave(*converted);
    EXPECT_EQ(out.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    EXPECT_EQ(out.rate, 8000);
    EXPECT_EQ(out.channels, 1);
    EXPECT_EQ(out.samples.size(), 4000u);

    // The same sound under another name is the same conversion; changed content is another.
    fs::copy_file(alaw, folder / "copy.wav");
    EXPECT_EQ(cache.playable(folder / "copy.wav"), converted);
    writeWave(alaw, tone(8000, 1, 0.25, SF_FORMAT_WAV | SF_FORMAT_ALAW));
    const auto changed = cache.playable(alaw);
    ASSERT_TRUE(changed);
    EXPECT_NE(changed, converted);
    EXPECT_EQ(readWave(*changed).samples.size(), 2000u);
}

TEST_F(SipAudioTest, RatesChannelsSampleFormatsAndNamesTheStackCannotTakeAreConverted)
{
    PromptCache cache(folder / "cache");
    struct Case {
        const char* name;
        Wave wave;
    };
    for (const Case& c : {Case{"float.wav", tone(44100, 2, 1.0, SF_FORMAT_WAV | SF_FORMAT_FLOAT)},
                          Case{"u8.wav", tone(11025, 1, 1.0, SF_FORMAT_WAV | SF_FORMAT_PCM_U8)},
                          Case{"slow.wav", tone(96000, 1, 1.0)}, Case{"LOUD.WAV", tone(8000, 1, 1.0)},
                          Case{"prompt.flac", tone(16000, 1, 1.0, SF_FORMAT_FLAC | SF_FORMAT_PCM_16)}}) {
        writeWave(folder / c.name, c.wave);
        const auto converted = cache.playable(folder / c.name);
        ASSERT_TRUE(converted) << c.name;
        EXPECT_EQ(converted->extension(), ".wav");
        const Wave out = readWave(*converted);
        EXPECT_EQ(out.rate, 8000) << c.name;
        EXPECT_EQ(out.channels, 1) << c.name;
        EXPECT_NEAR(static_cast<double>(out.samples.size()), 8000, 40) << c.name;
        // The tone is still a 440 Hz tone, not noise or silence (a float file comes out
        // scaled to its peak, so only its pitch is compared).
        int crossings = 0;
        for (std::size_t i = 1; i < out.samples.size(); ++i) crossings += (out.samples[i - 1] < 0) != (out.samples[i] < 0);
        EXPECT_NEAR(crossings, 880, 20) << c.name;
        double energy = 0;
        for (short s : out.samples) energy += static_cast<double>(s) * s;
        EXPECT_GT(std::sqrt(energy / static_cast<double>(out.samples.size())), 3000) << c.name;
    }
}

TEST_F(SipAudioTest, WhatIsNoSoundCannotBePlayed)
{
    PromptCache cache(folder / "cache");
    std::ofstream(folder / "notes.wav") << "this is no sound";
    EXPECT_EQ(cache.playable(folder / "notes.wav"), std::nullopt);
    EXPECT_EQ(cache.playable(folder / "missing.wav"), std::nullopt);
}

TEST_F(SipAudioTest, ARecordingGetsItsHeaderFixedAndMovesIntoPlace)
{
    const fs::path recorded = stackRecording(tone(8000, 1, 1.5));
    const fs::path target = folder / "1-1-012.wav";
    ASSERT_TRUE(finishRecording(recorded, target));
    EXPECT_FALSE(fs::exists(recorded));
    const Wave out = readWave(target);
    EXPECT_EQ(out.rate, 8000);
    EXPECT_EQ(out.samples.size(), 12000u);
    std::ifstream file(target, std::ios::binary);
    std::uint32_t riff = 0;
    file.seekg(4);
    file.read(reinterpret_cast<char*>(&riff), 4);
    EXPECT_EQ(riff, fs::file_size(target) - 8);
}

TEST_F(SipAudioTest, AWideBandRecordingIsBroughtToTheLinesFormat)
{
    const fs::path recorded = stackRecording(tone(48000, 1, 1.0));
    ASSERT_TRUE(finishRecording(recorded, folder / "message.wav"));
    const Wave out = readWave(folder / "message.wav");
    EXPECT_EQ(out.rate, 8000);
    EXPECT_NEAR(static_cast<double>(out.samples.size()), 8000, 40);
    EXPECT_FALSE(fs::exists(recorded));
}

TEST_F(SipAudioTest, NoRecordingOrABrokenOneLeavesAnEmptyMessage)
{
    ASSERT_TRUE(finishRecording(folder / "never.wav", folder / "a.wav"));
    EXPECT_EQ(readWave(folder / "a.wav").rate, 8000);
    EXPECT_TRUE(readWave(folder / "a.wav").samples.empty());

    std::ofstream(folder / "junk.wav", std::ios::binary).write("RIFF\x10\0\0\0WAVEjunk", 16);
    ASSERT_TRUE(finishRecording(folder / "junk.wav", folder / "b.wav"));
    EXPECT_TRUE(readWave(folder / "b.wav").samples.empty());
    EXPECT_FALSE(fixWaveSizes(folder / "missing.wav"));
}

} // namespace
} // namespace corvel::sip
