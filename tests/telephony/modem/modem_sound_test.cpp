// The modem driver on the emulator: prompts played to the caller and the caller recorded.

#include "modem_line_fixture.h"
#include "telephony/modem/voice_codec.h"

namespace corvel::testing {
namespace {

// --- Playing ---

TEST_F(ModemLineTest, AListPlaysWholeThenOnePlayDoneAfterItsSoundHasBeenHeard)
{
    answerCall();
    const Milliseconds started = modem_now();
    play((folder / "one.wav").string() + ",," + (folder / "two.wav").string());
    EXPECT_TRUE(line.playing());
    loop.runUntil([&] { return events.count("playDone") > 0; });
    EXPECT_FALSE(line.playing());
    EXPECT_GE(modem_now() - started, 750ms) << "not before the caller has heard it all";
    EXPECT_LT(modem_now() - started, 1500ms);
    EXPECT_THAT(heardFiles(), ElementsAre("one.wav", "two.wav"));
    for (const HeardPrompt& prompt : line.transcript()) EXPECT_TRUE(prompt.complete) << prompt.file;
    loop.runFor(3s);
    EXPECT_EQ(events.count("playDone"), 1);
}

TEST_F(ModemLineTest, StoppingAPlaySendsTheAbortAtOnceAndReportsNothing)
{
    answerCall();
    play((folder / "one.wav").string());
    loop.runFor(200ms);
    const Milliseconds stoppedAt = modem_now();
    line.setPlaying(false);
    EXPECT_FALSE(line.playing());
    loop.runFor(2s);
    const auto abort = modem().heardFromHost("<DLE><CAN>", stoppedAt);
    ASSERT_TRUE(abort);
    EXPECT_LE(*abort - stoppedAt, 20ms);
    EXPECT_EQ(events.count("playDone"), 0);
    ASSERT_EQ(line.transcript().size(), 1u);
    EXPECT_FALSE(line.transcript()[0].complete);
    EXPECT_TRUE(modem().inCommandState());
}

TEST_F(ModemLineTest, AStartedPlayReplacesTheOneInProgressFromItsFirstFile)
{
    answerCall();
    play((folder / "one.wav").string());
    loop.runFor(100ms);
    play((folder / "two.wav").string() + "," + (folder / "one.wav").string());
    loop.runUntil([&] { return events.count("playDone") > 0; });
    EXPECT_THAT(heardFiles(), ElementsAre("one.wav", "two.wav", "one.wav"));
    EXPECT_EQ(events.count("playDone"), 1);
}

TEST_F(ModemLineTest, ARepeatedListGoesRoundUntilStopped)
{
    answerCall();
    play((folder / "two.wav").string(), true);
    loop.runFor(2s);
    EXPECT_TRUE(line.playing());
    line.setPlaying(false);
    loop.runFor(1s);
    EXPECT_GE(heardFiles().size(), 6u);
    EXPECT_EQ(events.count("playDone"), 0);
}

TEST_F(ModemLineTest, AFileThatCannotBePlayedIsRefusedAndNothingPlays)
{
    answerCall();
    line.setPlayList((folder / "one.wav").string() + "," + (folder / "missing.wav").string());
    EXPECT_FALSE(line.startPlay());
    EXPECT_FALSE(line.playing());
    line.setPlayList((folder / "one.wav").string());
    line.drop();
    EXPECT_FALSE(line.startPlay()) << "no call to play to";
    loop.runFor(1s);
    EXPECT_TRUE(line.transcript().empty());
}

TEST_F(ModemLineTest, PromptsOfAnyRateAndWidthAreConvertedToTheModemsFormat)
{
    // A 16 kHz stereo file and an 8-bit one: both come out at the modem's 8 kHz.
    Wave stereo;
    stereo.rate = 16000;
    stereo.channels = 2;
    for (int i = 0; i < 16000; ++i) {
        const short s = static_cast<short>(8000 * std::sin(2 * M_PI * 1000 * i / 16000.0));
        stereo.samples.push_back(s);
        stereo.samples.push_back(s);
    }
    writeWave(folder / "wide.wav", stereo);
    Wave narrow = readWave(folder / "one.wav");
    narrow.format = SF_FORMAT_WAV | SF_FORMAT_PCM_U8;
    writeWave(folder / "narrow.wav", narrow);
    answerCall();
    play((folder / "wide.wav").string() + "," + (folder / "narrow.wav").string());
    loop.runUntil([&] { return events.count("playDone") > 0; });
    ASSERT_EQ(modem().plays().size(), 1u);
    const auto heard = modem::decode(modem().plays()[0].sound, modem().plays()[0].format);
    ASSERT_NEAR(static_cast<double>(heard.size()), 8000 + 4000, 40);
    // One second of 1 kHz is 2000 zero crossings, whatever the rate it came at.
    int crossings = 0;
    for (std::size_t i = 1; i < 8000; ++i) crossings += (heard[i - 1] < 0) != (heard[i] < 0);
    EXPECT_NEAR(crossings, 2000, 20);
}

TEST_F(ModemLineTest, AnEarlyOkFromTheModemDoesNotEndThePlayBeforeItsSound)
{
    modem().faults().okBeforeDrain = true;
    answerCall();
    const Milliseconds started = modem_now();
    play((folder / "one.wav").string());
    loop.runUntil([&] { return events.count("playDone") > 0; });
    EXPECT_GE(modem_now() - started, 500ms);
}


// --- Recording ---

TEST_F(ModemLineTest, ARecordingHoldsExactlyTheCallersSoundAsEightKilohertzSixteenBitMono)
{
    writeTone(folder / "voice.wav", 1.0, 700);
    ScriptedCall call;
    call.speech = folder / "voice.wav";
    call.speechAt = 0ms;
    answerCall(call);
    line.setRecordFile((folder / "message.wav").string());
    line.setRecording(true);
    loop.runFor(1500ms);
    line.setRecording(false);
    EXPECT_FALSE(line.recording());
    const Wave message = readWave(folder / "message.wav");
    EXPECT_EQ(message.rate, 8000);
    EXPECT_EQ(message.channels, 1);
    EXPECT_EQ(message.format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    loop.runFor(500ms);
    EXPECT_EQ(message.samples.size(), modem().recordedBytes()) << "every sample the modem sent, none twice";
    EXPECT_GT(message.samples.size(), 8000u);
    EXPECT_TRUE(modem().inCommandState());
    EXPECT_FALSE(std::filesystem::exists(folder / "message.wav.part"));
}

TEST_F(ModemLineTest, ARecordingIsCutAtItsLongestByTheHost)
{
    modem::ModemOptions options = EmulatedModemLine::optionsFor(modem(), "/nonexistent");
    // The rig's line uses the defaults; this one keeps at most two seconds.
    VirtualEventLoop otherLoop;
    ModemEmulator emulator(otherLoop, {});
    std::string lockPattern = (std::filesystem::temp_directory_path() / "corvel-lock-XXXXXX").string();
    const std::filesystem::path locks = ::mkdtemp(lockPattern.data());
    options = EmulatedModemLine::optionsFor(emulator, locks);
    options.longestRecording = 2s;
    modem::ModemLine shortLine(otherLoop, options);
    shortLine.setModems({{emulator.port(), "test", "Conexant", modem::Dialect::V253, false}});
    RecordingLineEvents otherEvents{otherLoop};
    shortLine.setListener(&otherEvents);
    shortLine.setLineOpen(true);
    ScriptedCall call;
    call.identity = ScriptedCall::Identity::Withheld;
    emulator.placeCall(call);
    otherLoop.runUntil([&] { return otherEvents.count("ring 2") > 0; });
    shortLine.answer();
    otherLoop.runUntil([&] { return otherEvents.count("connected") > 0; });
    shortLine.setRecordFile((folder / "long.wav").string());
    shortLine.setRecording(true);
    otherLoop.runFor(5s);
    EXPECT_TRUE(emulator.heardFromHost("<DLE>!"));
    EXPECT_TRUE(shortLine.recording()) << "until the call logic stops it";
    shortLine.setRecording(false);
    EXPECT_EQ(readWave(folder / "long.wav").samples.size(), 16000u);
    shortLine.setListener(nullptr);
    std::filesystem::remove_all(locks);
}

} // namespace
} // namespace corvel::testing
