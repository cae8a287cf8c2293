#include "telephony/testline/test_line.h"

#include <stdlib.h>

#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/log.h"
#include "support/recording_line_events.h"
#include "support/virtual_event_loop.h"
#include "support/wave_files.h"

namespace corvel {

void PrintTo(const HeardPrompt& p, std::ostream* out)
{
    *out << "{" << p.file << " at " << p.startedAt.count() << "ms, heard " << p.heard.count()
         << "ms" << (p.complete ? ", complete}" : "}");
}

namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::FieldsAre;
using ::testing::HasSubstr;
using Event = testing::RecordingLineEvents::Event;
using Times = std::vector<Milliseconds>;
using testing::Wave;
using testing::readWave;
using testing::writeWave;
namespace fs = std::filesystem;

// Mono at 8 kHz; no two neighbouring samples alike, so one out of place shows.
Wave sound(std::size_t count)
{
    Wave wave{8000, 1, std::vector<short>(count)};
    for (std::size_t i = 0; i < count; ++i) wave.samples[i] = static_cast<short>((i * 7919) % 20011 - 10005);
    return wave;
}

struct TempDir {
    fs::path path;
    TempDir()
    {
        std::string pattern = (fs::temp_directory_path() / "corvel-testline-XXXXXX").string();
        path = mkdtemp(pattern.data());
    }
    ~TempDir() { fs::remove_all(path); }
};

class TestLineTest : public ::testing::Test {
protected:
    TestLineTest()
    {
        log::setSink([this](log::Level, std::string_view text) { logged += std::string(text) + "\n"; });
        writeWave(longPrompt, sound(12000));
        writeWave(shortPrompt, sound(2000));
        line.setListener(&listener);
        line.setLineOpen(true);
    }
    ~TestLineTest() override { log::setSink({}); }

    void connect(ScriptedCall call = {})
    {
        line.placeCall(std::move(call));
        line.answer();
        loop.runFor(0ms);
    }

    TempDir dir;
    std::string logged;
    const std::string longPrompt = dir.path / "long.wav";   // 1.5 s
    const std::string shortPrompt = dir.path / "short.wav"; // 0.25 s
    const fs::path message = dir.path / "message.wav";
    testing::VirtualEventLoop loop;
    testing::RecordingLineEvents listener{loop};
    TestLine line{loop};
};

// --- Ringing and caller ID ---

TEST_F(TestLineTest, AnUnansweredCallerRingsAtTheCadenceThenGivesUpAndFreesTheLine)
{
    ScriptedCall call;
    call.ringsBeforeGivingUp = 3;
    call.ownerApplication = "faxer";
    line.placeCall(call);
    loop.runFor(17999ms);
    EXPECT_TRUE(line.ringing());
    loop.runFor(1min);
    EXPECT_FALSE(line.ringing());
    EXPECT_THAT(listener.events, ElementsAre(Event{0s, "ring 1"}, Event{0s, "callOwnerChanged"},
                                             Event{6s, "ring 2"}, Event{12s, "ring 3"}));
    EXPECT_EQ(line.ownerApplication(), "faxer");
    EXPECT_EQ(line.callerNumber() + line.callerName(), "");
    EXPECT_FALSE(line.numberWithheld() || line.numberUnavailable());

    line.placeCall({});
    loop.runFor(0ms);
    EXPECT_EQ(listener.names().back(), "ring 1");
}

TEST_F(TestLineTest, CallerIdArrivesOnceBetweenTheFirstAndSecondRing)
{
    using Identity = ScriptedCall::Identity;
    struct Case {
        Identity identity;
        std::string number, name;
        bool withheld, unavailable;
    };
    // The number and name go through as the network spells them.
    for (const Case& c : {Case{Identity::Number, "+44 (0)1632 960123", "O'Brien,\tA", false, false},
                          Case{Identity::Withheld, "", "", true, false},
                          Case{Identity::Unavailable, "", "", false, true}}) {
        SCOPED_TRACE(static_cast<int>(c.identity));
        listener.events.clear();
        const Milliseconds start = loop.elapsed();
        ScriptedCall call;
        call.identity = c.identity;
        call.number = "+44 (0)1632 960123";
        call.name = "O'Brien,\tA";
        line.placeCall(call);
        loop.runFor(2999ms);
        EXPECT_EQ(line.callerNumber(), "");
        EXPECT_FALSE(line.numberWithheld() || line.numberUnavailable());
        loop.runFor(10s);
        EXPECT_THAT(listener.events, ElementsAre(Event{start, "ring 1"}, Event{start + 3s, "callerId"},
                                                 Event{start + 6s, "ring 2"}, Event{start + 12s, "ring 3"}));
        EXPECT_EQ(line.callerNumber(), c.number);
        EXPECT_EQ(line.callerName(), c.name);
        EXPECT_EQ(line.numberWithheld(), c.withheld);
        EXPECT_EQ(line.numberUnavailable(), c.unavailable);
        line.drop();
    }
}

TEST_F(TestLineTest, AClosedLineReportsNoRingsButTheyAreCounted)
{
    line.setLineOpen(false);
    line.placeCall({});
    loop.runFor(20s);
    EXPECT_TRUE(listener.events.empty());
    line.setLineOpen(true);
    loop.runFor(4s);
    EXPECT_THAT(listener.events, ElementsAre(Event{24s, "ring 5"}));
}

// --- The answered call ---

TEST_F(TestLineTest, AnsweringStopsTheRingsAndKeysCountFromThereWhileDigitsAreMonitored)
{
    ScriptedCall call;
    call.keys = {{3s, '#'}, {1s, '1'}, {2s, '2'}};
    line.placeCall(call);
    line.pressKey('9'); // still ringing
    loop.runFor(7s);
    line.answer();
    line.answer();
    loop.runFor(1500ms);
    line.setDigitMonitoring(true);
    loop.runFor(2min); // well past the time an unanswered caller gives up
    line.pressKey('5');
    loop.runFor(0ms);
    EXPECT_THAT(listener.events, ElementsAre(Event{0s, "ring 1"}, Event{6s, "ring 2"}, Event{7s, "connected"},
                                             Event{9s, "digit 2"}, Event{10s, "digit #"},
                                             Event{128500ms, "digit 5"}));
    EXPECT_TRUE(line.callActive());
}

TEST_F(TestLineTest, TheCallerHangingUpStopsPlayAtOnceButRecordingGoesOnInSilence)
{
    const Wave said = sound(8000);
    writeWave(dir.path / "voice.wav", said);
    ScriptedCall call;
    call.speech = dir.path / "voice.wav";
    call.hangUpAt = 500ms;
    connect(call);
    line.setPlayList(longPrompt);
    ASSERT_TRUE(line.startPlay());
    line.setRecordFile(message);
    line.setRecording(true);
    loop.runFor(2s);
    EXPECT_EQ(listener.times("callerHungUp"), Times{500ms});
    EXPECT_EQ(listener.count("playDone"), 0);
    EXPECT_FALSE(line.callActive() || line.playing());
    EXPECT_THAT(line.transcript(), ElementsAre(FieldsAre(longPrompt, 0ms, 500ms, false)));
    EXPECT_TRUE(line.recording());
    line.drop();
    EXPECT_FALSE(line.recording());

    std::vector<short> expected(16000);
    std::copy(said.samples.begin(), said.samples.begin() + 4000, expected.begin());
    EXPECT_TRUE(readWave(message).samples == expected);
}

// --- Playing ---

TEST_F(TestLineTest, APlayListPlaysEachFileForItsLengthWithOnePlayDoneAtTheEnd)
{
    const std::string empty = dir.path / "empty.wav";
    writeWave(empty, sound(0));
    connect();
    loop.runFor(1s);
    line.setPlayList(longPrompt + ",," + empty + "," + shortPrompt + ",");
    ASSERT_TRUE(line.startPlay());
    loop.runFor(1749ms);
    EXPECT_TRUE(line.playing());
    loop.runFor(1ms);
    EXPECT_FALSE(line.playing());
    loop.runFor(10s);
    EXPECT_THAT(line.transcript(), ElementsAre(FieldsAre(longPrompt, 1000ms, 1500ms, true),
                                               FieldsAre(empty, 2500ms, 0ms, true),
                                               FieldsAre(shortPrompt, 2500ms, 250ms, true)));
    EXPECT_EQ(listener.times("playDone"), Times{2750ms});
}

TEST_F(TestLineTest, StoppingIsImmediateAndOnlyTheLastListStartedReportsDone)
{
    connect();
    line.setPlayList(longPrompt + "," + shortPrompt);
    ASSERT_TRUE(line.startPlay());
    line.setPlaying(false); // at once
    ASSERT_TRUE(line.startPlay());
    loop.runFor(1600ms);
    ASSERT_TRUE(line.startPlay()); // from the first file again
    loop.runFor(1s);
    line.setPlaying(false);
    EXPECT_FALSE(line.playing());
    // A list started just as the last one ended, while that one's play-done is on its way.
    line.setPlayList(shortPrompt);
    ASSERT_TRUE(line.startPlay());
    loop.schedule(loop.elapsed() + 250ms, [&] { ASSERT_TRUE(line.startPlay()); });
    loop.runFor(5s);
    EXPECT_THAT(line.transcript(), ElementsAre(FieldsAre(longPrompt, 0ms, 0ms, false),
                                               FieldsAre(longPrompt, 0ms, 1500ms, true),
                                               FieldsAre(shortPrompt, 1500ms, 100ms, false),
                                               FieldsAre(longPrompt, 1600ms, 1000ms, false),
                                               FieldsAre(shortPrompt, 2600ms, 250ms, true),
                                               FieldsAre(shortPrompt, 2850ms, 250ms, true)));
    EXPECT_EQ(listener.times("playDone"), Times{3100ms});
}

TEST_F(TestLineTest, ARepeatingListStartsAgainWithoutPlayDoneUntilRepeatIsCleared)
{
    connect();
    line.setPlayList(shortPrompt);
    line.setPlayRepeat(true);
    line.setPlaying(true);
    loop.runFor(300ms);
    line.setPlaying(true); // already playing: carries on
    loop.runFor(300ms);
    EXPECT_EQ(listener.count("playDone"), 0);
    line.setPlayRepeat(false);
    loop.runFor(1s);
    EXPECT_THAT(line.transcript(), ElementsAre(FieldsAre(shortPrompt, 0ms, 250ms, true),
                                               FieldsAre(shortPrompt, 250ms, 250ms, true),
                                               FieldsAre(shortPrompt, 500ms, 250ms, true)));
    EXPECT_EQ(listener.times("playDone"), Times{750ms});
}

TEST_F(TestLineTest, AListWithAFileThatCannotBePlayedPlaysNothing)
{
    const std::string missing = dir.path / "missing.wav";
    const std::string text = dir.path / "notes.wav";
    std::ofstream(text) << "not a sound";
    connect();
    line.setPlayList(longPrompt);
    ASSERT_TRUE(line.startPlay());
    loop.runFor(100ms);
    for (const std::string& list : {longPrompt + "," + missing, shortPrompt + "," + text, std::string(",")}) {
        line.setPlayList(list);
        EXPECT_FALSE(line.startPlay()) << list;
        EXPECT_FALSE(line.playing()) << list;
    }
    loop.runFor(5s);
    EXPECT_THAT(line.transcript(), ElementsAre(FieldsAre(longPrompt, 0ms, 100ms, false)));
    EXPECT_EQ(listener.count("playDone"), 0);
    EXPECT_THAT(logged, HasSubstr(missing + "\" as sound: System error"));
    EXPECT_THAT(logged, HasSubstr(text));
}

// --- Recording ---

TEST_F(TestLineTest, ARecordingIsALineWaveOfTheCallersSpeechMixedTo8kHzMonoWhereItFell)
{
    Wave stereo{16000, 2, {}};
    const Wave left = sound(16000);
    for (short sample : left.samples) stereo.samples.insert(stereo.samples.end(), {sample, short(sample + 2)});
    writeWave(dir.path / "voice.wav", stereo);
    ScriptedCall call;
    call.speech = dir.path / "voice.wav";
    call.speechAt = 2s;
    connect(call);
    loop.runFor(1003ms);
    line.setRecordFile(message);
    line.setRecording(true);
    loop.runFor(2497ms);
    line.setRecording(false);
    EXPECT_FALSE(line.recording());

    const Wave wave = readWave(message);
    EXPECT_EQ(wave.rate, 8000);
    EXPECT_EQ(wave.channels, 1);
    EXPECT_EQ(wave.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    std::vector<short> expected(2497 * 8);
    for (std::size_t i = 0; i < 8000; ++i) expected[(2000 - 1003) * 8 + i] = short(left.samples[2 * i] + 1);
    EXPECT_EQ(wave.samples.size(), expected.size());
    EXPECT_TRUE(wave.samples == expected);
    EXPECT_FALSE(fs::exists(message.string() + ".part"));
}

TEST_F(TestLineTest, ARecordingThatCannotBeWrittenIsLoggedAndLeavesNothing)
{
    const fs::path taken = dir.path / "taken"; // a folder stands where the file would go
    fs::create_directory(taken);
    for (const fs::path& target : {dir.path / "gone" / "message.wav", taken}) {
        line.setRecordFile(target);
        line.setRecording(true);
        loop.runFor(1s);
        line.setRecording(false);
        EXPECT_THAT(logged, HasSubstr("cannot write \"" + target.string()));
        EXPECT_FALSE(fs::exists(target.string() + ".part"));
    }
}

} // namespace
} // namespace corvel
