// The modem driver on the emulator, over a real pseudo-terminal, on the virtual loop: the
// conversation each Line operation makes, and what the driver does when the modem misbehaves.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <stdexcept>

#include "base/log.h"
#include "emulated_modem_line.h"
#include "support/recording_line_events.h"
#include "support/virtual_event_loop.h"
#include "support/wave_files.h"
#include "telephony/modem/modem_probe.h"
#include "telephony/modem/voice_codec.h"

namespace corvel::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using Faults = ModemEmulator::Faults;
using Persona = ModemEmulator::Persona;

// Log lines, kept for the test to read.
class CapturedLog {
public:
    CapturedLog()
    {
        log::setSink([this](log::Level, std::string_view line) { lines.emplace_back(line); });
    }
    ~CapturedLog() { log::setSink(nullptr); }
    bool has(std::string_view text) const
    {
        return std::any_of(lines.begin(), lines.end(), [&](const std::string& l) { return l.find(text) != std::string::npos; });
    }
    std::vector<std::string> lines;
};

class ModemLineTest : public ::testing::Test {
protected:
    explicit ModemLineTest(ModemEmulator::Options options = {}) : line(loop, options)
    {
        line.setListener(&events);
        folder = std::filesystem::path(::mkdtemp(pattern.data()));
        writeTone(folder / "one.wav", 0.5, 500);
        writeTone(folder / "two.wav", 0.25, 900);
    }
    ~ModemLineTest() override
    {
        line.setListener(nullptr);
        std::filesystem::remove_all(folder);
    }

    ModemEmulator& modem() { return line.modem(); }
    Milliseconds modem_now() const { return line.modem().now(); }

    // Opens the line, rings it with `call`, answers on the second ring and runs until connected.
    void answerCall(ScriptedCall call = {})
    {
        line.setLineOpen(true);
        if (call.identity == ScriptedCall::Identity::None) call.identity = ScriptedCall::Identity::Withheld;
        line.placeCall(call);
        loop.runUntil([&] { return events.count("ring 2") > 0; });
        line.answer();
        loop.runUntil([&] { return events.count("connected") > 0; });
    }
    void play(const std::string& list, bool repeat = false)
    {
        line.setPlayList(list);
        line.setPlayRepeat(repeat);
        ASSERT_TRUE(line.startPlay());
    }
    std::vector<std::string> heardFiles() const
    {
        std::vector<std::string> names;
        for (const HeardPrompt& p : line.transcript()) names.push_back(std::filesystem::path(p.file).filename());
        return names;
    }
    // Every command since `from`.
    std::vector<std::string> commandsSince(std::size_t from) const
    {
        const auto all = line.modem().commands();
        return {all.begin() + static_cast<std::ptrdiff_t>(std::min(from, all.size())), all.end()};
    }

    std::string pattern = (std::filesystem::temp_directory_path() / "corvel-modem-XXXXXX").string();
    std::filesystem::path folder;
    VirtualEventLoop loop;
    EmulatedModemLine line;
    RecordingLineEvents events{loop};
    CapturedLog captured;
};

// --- Setting up, rings and caller ID ---

TEST_F(ModemLineTest, SetsTheModemUpForVoiceAndIdlesInDataClassWithCallerIdOn)
{
    line.setLineOpen(true);
    loop.runFor(3s);
    EXPECT_TRUE(line.lineOpen());
    EXPECT_THAT(modem().commands(),
                ElementsAre("ATZ", "ATE0V1Q0", "AT+VCID=1", "ATS0=0", "AT+FCLASS=8", "AT+VSM=?", "AT-STE=?", "AT+VIT=0",
                            "AT+VGT=128", "AT+VGR=128", "AT+VSD=128,50", "AT+FCLASS=0"));
    ASSERT_TRUE(line.codec());
    EXPECT_EQ(line.codec()->compression.name, "Mu-Law") << "chosen by name from the list";
    EXPECT_EQ(line.providerName(), "Conexant");
    EXPECT_EQ(line.ownerApplication(), ownLineControl);
}

TEST_F(ModemLineTest, NorthAmericanRingsWithCallerIdBetweenThemAreCountedWithoutTheCallerIdLines)
{
    ScriptedCall call;
    call.identity = ScriptedCall::Identity::Number;
    call.number = "2125550163";
    call.name = "J SMITH";
    call.ringsBeforeGivingUp = 3;
    line.setLineOpen(true);
    line.placeCall(call);
    loop.runFor(30s);
    EXPECT_THAT(events.names(), ElementsAre("ring 1", "callerId", "ring 2", "ring 3"));
    EXPECT_EQ(line.callerNumber(), "2125550163");
    EXPECT_EQ(line.callerName(), "J SMITH");
    EXPECT_FALSE(line.numberWithheld());

    // The caller gave up; the next caller's rings count from one again.
    events.events.clear();
    call.identity = ScriptedCall::Identity::Withheld;
    line.placeCall(call);
    loop.runFor(4s);
    EXPECT_THAT(events.names(), ElementsAre("ring 1", "callerId"));
    EXPECT_TRUE(line.numberWithheld());
    EXPECT_EQ(line.callerNumber(), "");
}

TEST_F(ModemLineTest, UkCallerIdComesBeforeTheFirstRingAndADoubleRingIsOneRing)
{
    modem().setRegion(ModemEmulator::Region::UnitedKingdom);
    modem().faults().ringPerBurst = true;
    ScriptedCall call;
    call.identity = ScriptedCall::Identity::Unavailable;
    call.ringsBeforeGivingUp = 2;
    line.setLineOpen(true);
    loop.runFor(2s); // set up before the call comes
    line.placeCall(call);
    loop.runFor(10s);
    EXPECT_THAT(events.names(), ElementsAre("callerId", "ring 1", "ring 2"));
    EXPECT_TRUE(line.numberUnavailable());
}

struct CallerIdCase {
    const char* name;
    Persona persona;
    Faults faults;
    int vcid; // what the test sets with AT+VCID before the call; 0 = the driver's own setting
};

class CallerIdVariants : public ModemLineTest, public ::testing::WithParamInterface<CallerIdCase> {
protected:
    CallerIdVariants() : ModemLineTest({GetParam().persona, ModemEmulator::Region::NorthAmerica, GetParam().faults}) {}
};

TEST_P(CallerIdVariants, EveryFormOfTheNumberGivesTheSameCaller)
{
    ScriptedCall call;
    call.identity = ScriptedCall::Identity::Number;
    call.number = "07700900123";
    call.name = "A N OTHER";
    call.ringsBeforeGivingUp = 2;
    line.setLineOpen(true);
    loop.runFor(2s);
    line.placeCall(call);
    loop.runFor(8s);
    EXPECT_THAT(events.names(), ElementsAre("ring 1", "callerId", "ring 2"));
    EXPECT_EQ(line.callerNumber(), "07700900123");
    EXPECT_FALSE(line.numberWithheld());
    EXPECT_FALSE(line.numberUnavailable());
    if (!GetParam().faults.numberAsMesg) {
        EXPECT_EQ(line.callerName(), "A N OTHER");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Forms, CallerIdVariants,
    ::testing::Values(CallerIdCase{"Spaced", Persona::Conexant, {}, 0}, CallerIdCase{"Tight", Persona::Agere, {}, 0},
                      CallerIdCase{"MaskedAfterTheNumber", Persona::Conexant, Faults{.maskedNumber = true}, 0},
                      CallerIdCase{"WithDialledNumber", Persona::Agere, Faults{.dialledNumber = true}, 0},
                      CallerIdCase{"OnlyAsMesg", Persona::Conexant, Faults{.numberAsMesg = true}, 0},
                      CallerIdCase{"DleJunkFirst", Persona::Conexant, Faults{.junkBeforeCallerId = true}, 0},
                      CallerIdCase{"SplitDlePairs", Persona::Conexant, Faults{.splitDlePairs = true, .junkBeforeCallerId = true}, 0}),
    [](const auto& info) { return std::string(info.param.name); });

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

// --- Keys ---

TEST_F(ModemLineTest, KeysAreReportedOncePerPressOnlyWhileDigitMonitoringIsOn)
{
    modem().faults().shieldedKeys = true;
    ScriptedCall call;
    call.keys = {{500ms, '1'}, {1500ms, '2'}, {2500ms, '#'}, {3500ms, '*'}};
    answerCall(call);
    play((folder / "one.wav").string(), true); // keys come inside the play's stream too
    loop.runFor(1s);
    line.setDigitMonitoring(true);
    loop.runFor(4s);
    EXPECT_THAT(events.names(), ::testing::IsSupersetOf({"digit 2", "digit #", "digit *"}));
    EXPECT_EQ(events.count("digit 1"), 0) << "pressed while digits were not monitored";
    EXPECT_EQ(events.count("digit 2"), 1) << "one shielded press, one digit";
}

TEST_F(ModemLineTest, AKeyStopsThePromptWithinTheSameMomentOfVirtualTime)
{
    // A call logic that stops the prompt on any key, as the dialogue does.
    struct StopOnKey : LineEvents {
        Line* line = nullptr;
        RecordingLineEvents* log = nullptr;
        void ring(std::int32_t count) override { log->ring(count); }
        void callerId() override {}
        void connected() override { log->connected(); }
        void digitReceived(char16_t) override { line->setPlaying(false); }
        void callOwnerChanged() override {}
        void callStateChanged() override {}
        void mediaModeChanged() override {}
        void callerHungUp() override {}
        void playDone() override {}
        void desktopCallEnded() override {}
    } stopper;
    RecordingLineEvents& stopperLog = events;
    stopper.line = &line;
    stopper.log = &events;
    line.setListener(&stopper);
    modem().faults().splitDlePairs = true;
    ScriptedCall call;
    call.identity = ScriptedCall::Identity::Withheld;
    call.keys = {{600ms, '5'}}; // while the prompt plays
    line.setLineOpen(true);
    line.placeCall(call);
    loop.runUntil([&] { return stopperLog.count("ring 2") > 0; });
    line.answer();
    loop.runUntil([&] { return stopperLog.count("connected") > 0; });
    line.setDigitMonitoring(true);
    play((folder / "one.wav").string());
    loop.runFor(2s);
    const auto key = modem().sentToHost("<DLE>5");
    ASSERT_TRUE(key);
    const auto abort = modem().heardFromHost("<DLE><CAN>", *key);
    ASSERT_TRUE(abort) << modem().transcriptText();
    EXPECT_LE(*abort - *key, 2ms) << "the key's <DLE> and its code came a millisecond apart";
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

// --- The caller hanging up ---

TEST_F(ModemLineTest, BusyToneWhileRecordingStopsItAtOnceAndTellsTheCallLogicOnce)
{
    ScriptedCall call;
    call.hangUpAt = 1s;
    answerCall(call);
    line.setRecordFile((folder / "message.wav").string());
    line.setRecording(true);
    loop.runFor(10s);
    const auto busy = modem().sentToHost("<DLE>b");
    ASSERT_TRUE(busy);
    const auto stop = modem().heardFromHost("<DLE>!", *busy);
    ASSERT_TRUE(stop);
    EXPECT_LE(*stop - *busy, 5ms);
    EXPECT_EQ(events.count("callerHungUp"), 1) << "busy tone repeats every four seconds";
    EXPECT_TRUE(line.callActive()) << "the line is held until the call logic hangs up";
    line.setRecording(false);
    line.drop();
    loop.runFor(1s);
    EXPECT_FALSE(modem().offHook());
    EXPECT_THAT(commandsSince(0), Contains("AT+VLS=0"));
}

TEST_F(ModemLineTest, SilenceFromTheStartOfARecordingIsTakenForAnEmptyLine)
{
    answerCall();
    line.setRecordFile((folder / "message.wav").string());
    line.setRecording(true);
    loop.runFor(4900ms);
    EXPECT_EQ(events.count("callerHungUp"), 0);
    loop.runFor(300ms);
    EXPECT_EQ(events.count("callerHungUp"), 1);
}

TEST_F(ModemLineTest, LoopBreakWhilePlayingEndsThePlayWithoutPlayDone)
{
    ScriptedCall call;
    call.hangUpAt = 300ms;
    answerCall(call);
    play((folder / "one.wav").string(), true);
    loop.runFor(2s);
    EXPECT_TRUE(modem().sentToHost("<DLE>l")) << "-STE was switched on when answering";
    EXPECT_EQ(events.count("callerHungUp"), 1);
    EXPECT_FALSE(line.playing());
    EXPECT_EQ(events.count("playDone"), 0);
}

// --- Hand-over and hanging up ---

TEST_F(ModemLineTest, AHandOverWaitsForTheUsersHandsetBeforeGoingOnHook)
{
    answerCall();
    play((folder / "one.wav").string(), true);
    loop.runFor(300ms);
    line.handOver();
    EXPECT_FALSE(line.callActive());
    loop.runFor(900ms);
    EXPECT_TRUE(modem().offHook()) << "the handset has not been lifted yet";
    loop.runFor(500ms); // the rig's user lifts it a second after the hand-over
    EXPECT_FALSE(modem().offHook());
    EXPECT_TRUE(modem().handedOver());
}

class AgereModemLineTest : public ModemLineTest {
protected:
    AgereModemLineTest() : ModemLineTest({Persona::Agere, ModemEmulator::Region::NorthAmerica, {}}) {}
};

TEST_F(AgereModemLineTest, WithoutHandsetEventsAHandOverGoesOnHookAtOnce)
{
    answerCall();
    line.handOver();
    loop.runFor(500ms);
    EXPECT_FALSE(modem().offHook());
    EXPECT_EQ(line.codec()->compression.name, "8-BIT ULAW") << "131 is mu-law here, 130 A-law";
}

TEST_F(AgereModemLineTest, ALostBusyCodeIsMadeUpForByTheNextOne)
{
    modem().faults().dropEveryOtherEvent = true;
    ScriptedCall call;
    call.keys = {{500ms, '1'}}; // its code gets through; the first busy code after it is lost
    call.hangUpAt = 1s;
    answerCall(call);
    const Milliseconds connected = modem_now();
    line.setRecordFile((folder / "message.wav").string());
    line.setRecording(true);
    loop.runFor(3s);
    EXPECT_EQ(events.count("callerHungUp"), 0);
    loop.runFor(3s);
    EXPECT_EQ(events.count("callerHungUp"), 1);
    const auto stop = modem().heardFromHost("<DLE>!", connected);
    ASSERT_TRUE(stop);
    EXPECT_GE(*stop - connected, 4s);
}

TEST_F(ModemLineTest, ClosingTheLineInACallGoesOnHookBeforeThePortCloses)
{
    answerCall();
    play((folder / "one.wav").string());
    loop.runFor(100ms);
    line.setLineOpen(false);
    EXPECT_FALSE(line.lineOpen());
    EXPECT_EQ(line.lastError(), 0);
    loop.runFor(2s);
    EXPECT_FALSE(modem().offHook());
    EXPECT_THAT(captured.lines, Contains(HasSubstr("closed the modem")));
}

TEST(ModemLineLastWords, ADriverThatGoesInTheMiddleOfACallLeavesTheModemOnHook)
{
    VirtualEventLoop loop;
    ModemEmulator emulator(loop, {});
    std::string lockPattern = (std::filesystem::temp_directory_path() / "corvel-lock-XXXXXX").string();
    const std::filesystem::path locks = ::mkdtemp(lockPattern.data());
    RecordingLineEvents events{loop};
    {
        modem::ModemLine driver(loop, EmulatedModemLine::optionsFor(emulator, locks));
        driver.setModems({{emulator.port(), "test", "Conexant", modem::Dialect::V253, false}});
        driver.setListener(&events);
        driver.setLineOpen(true);
        ScriptedCall call;
        call.identity = ScriptedCall::Identity::Withheld;
        emulator.placeCall(call);
        loop.runUntil([&] { return events.count("ring 1") > 0; });
        driver.answer();
        loop.runUntil([&] { return events.count("connected") > 0; });
        driver.setListener(nullptr);
    }
    loop.runFor(100ms);
    EXPECT_FALSE(emulator.offHook());
    EXPECT_THAT(emulator.commands(), Contains("AT+VLS=0"));
    std::filesystem::remove_all(locks);
}

// --- A modem that misbehaves ---

TEST_F(ModemLineTest, AStubbornModemIsStoppedWithTheTripleDle)
{
    modem().faults().tripleDleToStop = true;
    answerCall();
    play((folder / "one.wav").string(), true);
    loop.runFor(300ms);
    line.setPlaying(false);
    loop.runFor(3s);
    EXPECT_TRUE(modem().inCommandState()) << modem().transcriptText();
    line.setRecordFile((folder / "message.wav").string());
    line.setRecording(true);
    loop.runFor(500ms);
    line.setRecording(false);
    loop.runFor(3s);
    EXPECT_TRUE(modem().inCommandState());
    EXPECT_TRUE(captured.has("stubborn"));
}

TEST_F(ModemLineTest, RefusedFlowControlAndEchoAfterResetDoNotStopACall)
{
    modem().faults().refuseFlowControl = true;
    modem().faults().echoAfterReset = true;
    answerCall();
    play((folder / "two.wav").string());
    loop.runUntil([&] { return events.count("playDone") > 0; });
    EXPECT_THAT(heardFiles(), ElementsAre("two.wav"));
}

TEST_F(ModemLineTest, KeysHeardOnlyWhileRecordingAreListenedForWithoutARecording)
{
    VirtualEventLoop otherLoop;
    ModemEmulator emulator(otherLoop, {});
    emulator.faults().noKeysInCommandState = true;
    std::string lockPattern = (std::filesystem::temp_directory_path() / "corvel-lock-XXXXXX").string();
    const std::filesystem::path locks = ::mkdtemp(lockPattern.data());
    modem::ModemOptions options = EmulatedModemLine::optionsFor(emulator, locks);
    options.keysOnlyWhileRecording = true;
    modem::ModemLine driver(otherLoop, options);
    driver.setModems({{emulator.port(), "test", "Conexant", modem::Dialect::V253, false}});
    RecordingLineEvents otherEvents{otherLoop};
    driver.setListener(&otherEvents);
    driver.setLineOpen(true);
    ScriptedCall call;
    call.identity = ScriptedCall::Identity::Withheld;
    call.keys = {{3s, '7'}};
    emulator.placeCall(call);
    otherLoop.runUntil([&] { return otherEvents.count("ring 1") > 0; });
    driver.answer();
    otherLoop.runUntil([&] { return otherEvents.count("connected") > 0; });
    driver.setDigitMonitoring(true);
    otherLoop.runFor(10s);
    EXPECT_EQ(otherEvents.count("digit 7"), 1);
    EXPECT_EQ(otherEvents.count("callerHungUp"), 0) << "silence while only listening is no hang-up";
    driver.setListener(nullptr);
    std::filesystem::remove_all(locks);
}

TEST_F(ModemLineTest, AModemThatStopsAnsweringIsReportedWhenTheLineCloses)
{
    modem().faults().deaf = true;
    line.setLineOpen(true);
    loop.runFor(60s);
    EXPECT_TRUE(captured.has("does not answer"));
    line.setLineOpen(false);
    EXPECT_NE(line.lastError(), 0);
}

TEST_F(ModemLineTest, AModemPulledOutEndsTheCallAndTheCloseReportsIt)
{
    answerCall();
    line.modem().unplug();
    loop.runFor(1s);
    EXPECT_EQ(events.count("callerHungUp"), 1);
    EXPECT_TRUE(captured.has("lost the modem"));
    line.setLineOpen(false);
    EXPECT_NE(line.lastError(), 0);
}

TEST_F(ModemLineTest, GarbageFromThePortIsLoggedAndTheNextCallIsTakenAsUsual)
{
    line.setLineOpen(true);
    loop.runFor(3s);
    // What a noisy cable might deliver: every byte value, <DLE> codes, endless lines.
    std::string junk;
    for (int i = 0; i < 20000; ++i) junk.push_back(static_cast<char>((i * 7919 + 13) % 256));
    junk += std::string(3000, 'x') + "\r\n";
    for (const std::string& skip : {std::string("RING"), std::string("R")}) {
        for (auto at = junk.find(skip); at != std::string::npos; at = junk.find(skip, at)) junk[at] = '?';
    }
    modem().sendRaw(junk);
    loop.runFor(1s);
    EXPECT_EQ(events.count("ring 1"), 0);
    EXPECT_TRUE(captured.has("the modem said, unasked"));
    events.events.clear();
    answerCall();
    play((folder / "two.wav").string());
    loop.runUntil([&] { return events.count("playDone") > 0; });
    EXPECT_THAT(heardFiles(), ElementsAre("two.wav"));
}

// --- Ports and locks ---

TEST(ModemPorts, AnotherProgramsLockKeepsTheLineWaitingAndNamesTheOwner)
{
    VirtualEventLoop loop;
    ModemEmulator emulator(loop, {});
    std::string lockPattern = (std::filesystem::temp_directory_path() / "corvel-lock-XXXXXX").string();
    const std::filesystem::path locks = ::mkdtemp(lockPattern.data());
    // A running program with a telling name holds the port's lock.
    const pid_t other = ::fork();
    if (other == 0) {
        ::prctl(PR_SET_NAME, "OtherPhone.exe");
        ::pause();
        ::_exit(0);
    }
    ASSERT_GT(other, 0);
    for (int tries = 0; tries < 200; ++tries) { // until the child has its name
        std::ifstream comm("/proc/" + std::to_string(other) + "/comm");
        std::string name;
        if (std::getline(comm, name) && name == "OtherPhone.exe") break;
        ::usleep(1000);
    }
    const auto lockFile = modem::UucpLock::pathFor(locks, emulator.port());
    std::ofstream(lockFile) << "     " << other << "\n";

    modem::ModemLine line(loop, EmulatedModemLine::optionsFor(emulator, locks));
    line.setModems({{emulator.port(), "test", "Conexant", modem::Dialect::V253, false}});
    RecordingLineEvents events{loop};
    line.setListener(&events);
    line.setLineOpen(true);
    EXPECT_FALSE(line.lineOpen());
    EXPECT_EQ(line.lastError(), EBUSY);
    EXPECT_EQ(line.ownerApplication(), "OtherPhone.exe");
    loop.runFor(1s);
    EXPECT_EQ(events.count("callOwnerChanged"), 1);

    // The other program ends, leaving its lock behind: the lock is stale and the port ours.
    ::kill(other, SIGKILL);
    ::waitpid(other, nullptr, 0);
    loop.runFor(6s);
    EXPECT_TRUE(line.lineOpen());
    EXPECT_EQ(line.ownerApplication(), ownLineControl);
    std::ifstream mine(lockFile);
    int pid = 0;
    mine >> pid;
    EXPECT_EQ(pid, ::getpid());
    line.setLineOpen(false);
    EXPECT_FALSE(std::filesystem::exists(lockFile)) << "our lock goes with the port";
    line.setListener(nullptr);
    std::filesystem::remove_all(locks);
}

// A link of exactly `length` characters to `target`, made where nothing else is: the short
// ones straight in /tmp, the longer ones in a folder of their own, as /dev/serial/by-id has.
std::filesystem::path linkOfLength(std::size_t length, const std::filesystem::path& target, const std::filesystem::path& folder)
{
    const std::string base = length < folder.string().size() + 2 ? std::string("/tmp/") : folder.string() + "/";
    for (unsigned tries = 0;; ++tries) {
        std::string name(length - base.size(), 'c');
        const std::string id = std::to_string(tries).substr(0, name.size());
        name.replace(name.size() - id.size(), id.size(), id);
        const std::filesystem::path link = base + name;
        if (::symlink(target.c_str(), link.c_str()) == 0) return link;
        if (errno != EEXIST || tries > 1000) throw std::runtime_error("cannot make " + link.string());
    }
}

TEST(ModemPorts, AModemOnAPortPathOfAnyLengthStartsAnswersAndHangsUp)
{
    VirtualEventLoop loop;
    ModemEmulator emulator(loop, {});
    std::string pattern = (std::filesystem::temp_directory_path() / "corvel-ports-XXXXXX").string();
    const std::filesystem::path folder = ::mkdtemp(pattern.data());
    const std::filesystem::path locks = folder / "locks";
    std::filesystem::create_directory(locks);
    // /dev/serial/by-id links of USB modems are 34 to 55 characters long.
    for (std::size_t length = 8; length <= 80; ++length) {
        SCOPED_TRACE("a port path of " + std::to_string(length) + " characters");
        const std::filesystem::path port = linkOfLength(length, emulator.port(), folder);
        ASSERT_EQ(port.string().size(), length);
        {
            modem::ModemOptions options = EmulatedModemLine::optionsFor(emulator, locks);
            options.ports = {port};
            modem::ModemLine line(loop, options);
            line.setModems({{port, "test", "Conexant", modem::Dialect::V253, false}});
            RecordingLineEvents events{loop};
            line.setListener(&events);
            line.setLineOpen(true);
            loop.runFor(3s);
            ASSERT_TRUE(line.lineOpen());
            ScriptedCall call;
            call.identity = ScriptedCall::Identity::Withheld;
            emulator.placeCall(call);
            loop.runUntil([&] { return events.count("ring 2") > 0; });
            line.answer();
            loop.runUntil([&] { return events.count("connected") > 0; });
            line.setCallActive(false);
            line.drop();
            loop.runFor(2s);
            EXPECT_FALSE(emulator.offHook());
            line.setLineOpen(false);
            line.setListener(nullptr);
        }
        std::filesystem::remove(port);
    }
    std::filesystem::remove_all(folder);
}

TEST(ModemPorts, TheProbeFindsVoiceModemsByWhatTheyCanDoAndSkipsTheRest)
{
    VirtualEventLoop loop;
    ModemEmulator conexant(loop, {});
    ModemEmulator agere(loop, {Persona::Agere, ModemEmulator::Region::NorthAmerica, {}});
    ModemEmulator silent(loop, {Persona::Conexant, ModemEmulator::Region::NorthAmerica, Faults{.deaf = true}});
    ModemEmulator voiceAs80(loop, {Persona::Conexant, ModemEmulator::Region::NorthAmerica, Faults{.voiceClassAs80 = true}});
    std::string lockPattern = (std::filesystem::temp_directory_path() / "corvel-lock-XXXXXX").string();
    const std::filesystem::path locks = ::mkdtemp(lockPattern.data());
    CapturedLog captured;
    modem::ModemOptions options;
    options.ports = {conexant.port(), silent.port(), "/dev/corvel-no-such-port", agere.port(), voiceAs80.port()};
    options.lockFolder = locks;
    modem::ModemLine line(loop, options);
    bool done = false;
    line.probe([&] { done = true; });
    loop.runUntil([&] { return done; });
    const auto devices = line.devices();
    ASSERT_EQ(devices.size(), 3u);
    EXPECT_EQ(devices[0].name, "CX93001-EIS_V0.2013-V92 (" + conexant.port() + ")");
    EXPECT_EQ(line.modems()[0].family, "Conexant");
    EXPECT_EQ(line.modems()[1].family, "Agere/Lucent");
    EXPECT_EQ(line.modems()[2].port, voiceAs80.port());
    EXPECT_TRUE(captured.has("no voice modem on " + silent.port() + ": no modem answers there"));
    EXPECT_TRUE(captured.has("no voice modem on /dev/corvel-no-such-port"));
    EXPECT_TRUE(std::filesystem::is_empty(locks)) << "every lock given back";
    line.setDeviceNumber(1);
    EXPECT_EQ(line.providerName(), "Agere/Lucent");
    std::filesystem::remove_all(locks);
}

} // namespace
} // namespace corvel::testing
