// The modem driver on the emulator: rings and caller ID, the caller's keys, the caller hanging
// up, and handing the call over or hanging it up.

#include "modem_line_fixture.h"
#include "support/ignoring_line_events.h"
#include "telephony/modem/voice_codec.h"

namespace corvel::testing {
namespace {

// --- Rings and caller ID ---

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
    struct StopOnKey : IgnoringLineEvents {
        Line* line = nullptr;
        RecordingLineEvents* log = nullptr;
        void ring(std::int32_t count) override { log->ring(count); }
        void connected() override { log->connected(); }
        void digitReceived(char16_t) override { line->setPlaying(false); }
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

TEST_F(ModemLineTest, AModemThatStopsAnsweringInACallGivesUpTheCallAndTheLineComesBack)
{
    answerCall();
    play((folder / "one.wav").string());
    loop.runFor(100ms);
    modem().faults().deaf = true;
    line.setPlaying(false); // the end of the prompt is the next command it does not answer
    loop.runFor(30s);
    EXPECT_EQ(events.count("callerHungUp"), 1) << "the call is given up";
    EXPECT_TRUE(captured.has("does not answer"));

    modem().faults().deaf = false;
    loop.runFor(60s);
    ScriptedCall next;
    next.identity = ScriptedCall::Identity::Withheld;
    line.placeCall(next);
    loop.runFor(20s);
    EXPECT_EQ(events.count("ring 2"), 2) << "the line was opened again and the next call rings";
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

} // namespace
} // namespace corvel::testing
