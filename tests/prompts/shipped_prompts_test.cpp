// The voice prompts made at build time from prompts.tsv, read back from the build's data folder:
// what a caller hears must be telephone-format, audible, unclipped and paced like speech.

#include <gtest/gtest.h>

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <span>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace corvel {
namespace {

struct Row {
    std::string file, words, options;
};

std::vector<Row> table()
{
    std::vector<Row> rows;
    std::ifstream in(CORVEL_PROMPT_TABLE);
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        Row& row = rows.emplace_back();
        std::getline(std::getline(std::getline(fields, row.file, '\t'), row.words, '\t'), row.options);
        if (line.empty() || line[0] == '#') rows.pop_back();
    }
    return rows;
}

struct Sound {
    SF_INFO info{};
    std::vector<short> samples;
    double seconds() const { return double(samples.size()) / info.samplerate; }
};

Sound load(const std::string& name)
{
    Sound sound;
    SNDFILE* file = sf_open((std::filesystem::path(CORVEL_ASSETS_DIR) / name).c_str(), SFM_READ, &sound.info);
    if (!file) return sound;
    sound.samples.resize(static_cast<std::size_t>(sound.info.frames * sound.info.channels));
    sound.samples.resize(static_cast<std::size_t>(sf_read_short(file, sound.samples.data(), sound.info.frames)));
    sf_close(file);
    return sound;
}

int peak(std::span<const short> samples)
{
    int highest = 0;
    for (short s : samples) highest = std::max(highest, std::abs(int(s)));
    return highest;
}

TEST(PromptFilesTest, TableHasEveryPromptCorvelLooksFor)
{
    std::vector<std::string> files;
    for (const Row& row : table()) files.push_back(row.file);
    for (std::string name : {"goodmorning", "goodafternoon", "goodevening", "askfornumber", "pleasewait",
                             "nobodyavailable", "leavemessage", "from", "0", "1", "2", "3", "4", "5", "6", "7", "8", "9"})
        EXPECT_EQ(std::ranges::count(files, name + ".wav"), 1) << name;
}

TEST(PromptFilesTest, EveryPromptIsClearTelephoneSpeech)
{
    for (const Row& row : table()) {
        SCOPED_TRACE(row.file);
        const Sound sound = load(row.file);
        ASSERT_FALSE(sound.samples.empty()) << "missing or unreadable";
        EXPECT_EQ(sound.info.samplerate, 8000);
        EXPECT_EQ(sound.info.channels, 1);
        EXPECT_EQ(sound.info.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);

        const bool digit = row.file.size() == 5 && row.file[0] >= '0' && row.file[0] <= '9';
        EXPECT_GE(sound.seconds(), digit ? 0.15 : 0.5);
        EXPECT_LE(sound.seconds(), digit ? 1.0 : 8.0);
        // Unhurried but not dragged out: the time a word takes, its share of the silences included.
        const double perWord = sound.seconds() / double(std::ranges::count(row.words, ' ') + 1);
        if (row.options.find("beep") == std::string::npos) {
            EXPECT_GE(perWord, 0.2);
            EXPECT_LE(perWord, 1.0);
        }

        double sum = 0;
        for (short s : sound.samples) sum += double(s) * s;
        EXPECT_GT(std::sqrt(sum / double(sound.samples.size())), 1000) << "too quiet to follow";
        EXPECT_LT(peak(sound.samples), 32767) << "clipped";
        const std::span<const short> all(sound.samples);
        const auto edge = std::size_t(sound.info.samplerate / 50); // 20 ms, silent so nothing clicks
        EXPECT_LT(peak(all.first(edge)), 100) << "starts abruptly";
        EXPECT_LT(peak(all.last(edge)), 100) << "ends abruptly";
    }
}

TEST(PromptFilesTest, LeaveMessagePromptEndsWithATone)
{
    const Sound sound = load("leavemessage.wav");
    const auto end = std::find_if(sound.samples.rbegin(), sound.samples.rend(), [](short s) { return std::abs(s) > 300; });
    ASSERT_GT(sound.samples.rend() - end, sound.info.samplerate);
    // The 200 ms before the sound dies away, by Goertzel: nearly all its energy is at 1 kHz.
    const int count = sound.info.samplerate / 5;
    const short* samples = &*end - sound.info.samplerate / 50 - count;
    const double coefficient = 2 * std::cos(2 * std::numbers::pi * 1000 / sound.info.samplerate);
    double previous = 0, before = 0, energy = 0;
    for (int i = 0; i < count; ++i) {
        const double current = samples[i] + coefficient * previous - before;
        before = std::exchange(previous, current);
        energy += double(samples[i]) * samples[i];
    }
    const double power = previous * previous + before * before - coefficient * previous * before;
    EXPECT_GT(2 * power / (count * energy), 0.9);
}

} // namespace
} // namespace corvel
