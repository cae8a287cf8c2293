// espeak-ng behind the character, its sound effects, and pocketsphinx hearing its commands.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sndfile.h>

#include <cmath>
#include <fstream>
#include <iterator>

#include "agent_test_support.h"
#include "base/log.h"
#include "character/acs/reader.h"
#include "character/speech_tags.h"
#include "ui/agent/agent_audio.h"
#include "ui/agent/speech_engine.h"
#include "ui/agent/speech_stream.h"
#include "ui/agent/voice_commands.h"

namespace corvel {
namespace {

using ::testing::HasSubstr;
using Kind = SpeechStream::Mark::Kind;

// Waits for the engine to finish a speech and takes all of it.
struct Made {
    std::vector<std::int16_t> samples;
    std::vector<SpeechStream::Mark> marks;
};
Made drain(SpeechStream& stream)
{
    Made made;
    std::vector<std::int16_t> chunk(4096);
    for (int turns = 0; turns < 2000 && !stream.done(); ++turns) {
        const std::size_t n = stream.read(chunk.data(), chunk.size());
        made.samples.insert(made.samples.end(), chunk.begin(), chunk.begin() + static_cast<std::ptrdiff_t>(n));
        for (const auto& m : stream.dueMarks()) made.marks.push_back(m);
        if (n == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    for (const auto& m : stream.dueMarks()) made.marks.push_back(m);
    return made;
}

double loudness(const std::vector<std::int16_t>& samples)
{
    double sum = 0;
    for (const std::int16_t s : samples) sum += double(s) * s;
    return samples.empty() ? 0 : std::sqrt(sum / samples.size());
}

class SpeechEngineTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(engine().waitReady()) << "espeak-ng-data missing?"; }
    static SpeechEngine& engine() { return SpeechEngine::instance(); }
    const EngineVoice voice{"en-us", 175, 50};
};

TEST_F(SpeechEngineTest, SpeaksWithWordMarksThatRevealTheBalloonInOrder)
{
    const auto parts = parseSpeech("Hello there \\Map=\"oh one\"=\"01\"\\ friend.");
    const auto stream = engine().speak(parts, voice, 0);
    const Made made = drain(*stream);
    ASSERT_GT(made.samples.size(), 22050u / 2) << "about a second of speech";
    EXPECT_GT(loudness(made.samples), 500);
    std::vector<int> words;
    std::int64_t last = -1;
    bool mouthOpened = false;
    for (const auto& m : made.marks) {
        EXPECT_GE(m.sample, last);
        last = m.sample;
        if (m.kind == Kind::Word) words.push_back(m.value);
        else mouthOpened = mouthOpened || m.value != 0;
    }
    EXPECT_TRUE(mouthOpened);
    ASSERT_FALSE(words.empty());
    EXPECT_TRUE(std::is_sorted(words.begin(), words.end()));
    EXPECT_EQ(words.front(), 5) << "\"Hello\" shows first";
    EXPECT_NE(std::find(words.begin(), words.end(), 14), words.end()) << "\"Hello there 01\" at once";
    EXPECT_EQ(words.back(), static_cast<int>(shownText(parts).size()));
}

TEST_F(SpeechEngineTest, TagsChangeTheVoice)
{
    const auto quiet = drain(*engine().speak(parseSpeech("\\Vol=15535\\Testing the volume."), voice, 0));
    const auto full = drain(*engine().speak(parseSpeech("\\Vol=65535\\Testing the volume."), voice, 0));
    EXPECT_LT(loudness(quiet.samples) * 2.5, loudness(full.samples));
    const auto slow = drain(*engine().speak(parseSpeech("\\Spd=90\\Testing the speed."), voice, 0));
    const auto fast = drain(*engine().speak(parseSpeech("\\Spd=300\\Testing the speed."), voice, 0));
    EXPECT_GT(slow.samples.size(), fast.samples.size() * 2);
    const auto paused = drain(*engine().speak(parseSpeech("One\\Pau=1000\\two."), voice, 0));
    const auto plain = drain(*engine().speak(parseSpeech("One two."), voice, 0));
    EXPECT_NEAR(double(paused.samples.size() - plain.samples.size()), 22050, 22050 * 0.3);
}

TEST_F(SpeechEngineTest, ACancelledSpeechEndsEarly)
{
    const auto whole = drain(*engine().speak(parseSpeech("One two three four five six seven eight nine ten."), voice, 0));
    const auto stream = engine().speak(parseSpeech("One two three four five six seven eight nine ten."), voice, 0);
    stream->cancel();
    const auto cut = drain(*stream);
    EXPECT_LT(cut.samples.size(), whole.samples.size() / 2);
}

TEST_F(SpeechEngineTest, SpeechPlaysOnTheClockWithoutASpeaker)
{
    testing::ensureQApplication();
    SpeechPlayer player;
    const auto stream = engine().speak(parseSpeech("Hello."), voice, 0);
    player.play(stream);
    ASSERT_TRUE(testing::waitFor([&] {
        player.tick();
        return stream->done();
    }));
    EXPECT_TRUE(stream->firstPlayed().has_value());
}

// A wave file in memory as libsndfile writes it.
std::vector<std::uint8_t> wave(int format, const std::vector<std::int16_t>& samples, int rate)
{
    const std::string path = (std::filesystem::temp_directory_path() / "corvel-effect-test.wav").string();
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    EXPECT_NE(file, nullptr);
    sf_write_short(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
    std::ifstream in(path, std::ios::binary);
    std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
    std::filesystem::remove(path);
    return bytes;
}

TEST(SoundEffects, PcmAndMsAdpcmWavesDecode)
{
    std::vector<std::int16_t> tone(11025);
    for (std::size_t i = 0; i < tone.size(); ++i) tone[i] = static_cast<std::int16_t>(8000 * std::sin(i * 0.2));
    for (const int format : {SF_FORMAT_PCM_16, SF_FORMAT_PCM_U8, SF_FORMAT_MS_ADPCM}) {
        const auto sound = decodeWave(wave(format, tone, 11025));
        ASSERT_TRUE(sound.has_value()) << format;
        EXPECT_EQ(sound->format.sampleRate(), 11025);
        ASSERT_NEAR(double(sound->samples.size()), double(tone.size()), 1100) << format;
        EXPECT_NEAR(loudness(sound->samples), loudness(tone), loudness(tone) * 0.1) << format;
    }
    EXPECT_FALSE(decodeWave({'R', 'I', 'F', 'F', 0, 0}).has_value());
    // Phony's ring.
    const acs::Character phony = acs::readCharacterFile(testing::characters / "Phony.acs");
    ASSERT_FALSE(phony.sounds.empty());
    EXPECT_TRUE(decodeWave(phony.sounds[0]).has_value());
}

TEST(VoiceCommands, MissingRecogniserDataTurnsThemOffWithALogLine)
{
    testing::ensureQApplication();
    std::vector<std::string> lines;
    log::setSink([&](log::Level, std::string_view line) { lines.emplace_back(line); });
    SpeechEngine& engine = SpeechEngine::instance();
    {
        VoiceCommands voice(engine, "/nonexistent/model");
        ASSERT_TRUE(testing::waitFor([&] { return voice.status() != "loading"; }));
        EXPECT_THAT(voice.status().toStdString(), HasSubstr("off: the recogniser's data is missing"));
        voice.setCommands({{"exit", "Exit Corvel", "[Exit] Ombrel"}});
        voice.pushToTalk(true);
        voice.pushToTalk(false);
    }
    log::setSink({});
    ASSERT_EQ(std::count_if(lines.begin(), lines.end(), [](const std::string& l) { return l.find("voice commands") != std::string::npos; }), 1);
}

TEST(VoiceCommands, HearsASpokenCommandAgainstTheGrammar)
{
    if (!std::filesystem::exists(std::filesystem::path(VoiceCommands::defaultModel) / "en-us"))
        GTEST_SKIP() << "pocketsphinx-en-us is not installed";
    testing::ensureQApplication();
    SpeechEngine& engine = SpeechEngine::instance();
    ASSERT_TRUE(engine.waitReady());
    VoiceCommands voice(engine);
    voice.setCommands({{"Properties", "Alter Character Properties", "[Character] Properties"},
                       {"Introduce", "Introducing ", "(Introduction | Introduce)"},
                       {"exit", "Exit Corvel", "[Exit] Ombrel"}});
    ASSERT_TRUE(testing::waitFor([&] { return !voice.grammar().empty(); }, 30)) << voice.status().toStdString();
    EXPECT_THAT(voice.grammar(), HasSubstr("<c2> = ( [ exit ] ombrel );"));

    // "introduce", said by the speech engine and brought down to the recogniser's 16 kHz.
    const Made said = drain(*engine.speak(parseSpeech("introduce"), {"en-us", 150, 50}, 0));
    QByteArray heard;
    const double step = 22050.0 / 16000.0;
    for (double at = 0; at + 1 < said.samples.size(); at += step) {
        const auto i = static_cast<std::size_t>(at);
        const double f = at - i;
        const auto s = static_cast<std::int16_t>(said.samples[i] * (1 - f) + said.samples[i + 1] * f);
        heard.append(reinterpret_cast<const char*>(&s), 2);
    }
    QByteArray silence(16000 / 4 * 2, 0);
    QString words;
    bool answered = false;
    QObject::connect(&voice, &VoiceCommands::heard, [&](const QString& w) {
        words = w;
        answered = true;
    });
    voice.recognise(silence + heard + silence);
    ASSERT_TRUE(testing::waitFor([&] { return answered; }, 30));
    EXPECT_EQ(words, "introduce");
}

} // namespace
} // namespace corvel
