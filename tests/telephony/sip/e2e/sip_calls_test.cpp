// Whole calls to a headless Corvel on its SIP line, from SIPp (and baresip), checked by the
// files Corvel writes, its log and the audio the caller receives.

#include <unistd.h>

#include <csignal>
#include <thread>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sip_call_harness.h"
#include "support/wave_files.h"

namespace corvel::e2e {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;
using std::chrono::milliseconds;
namespace fs = std::filesystem;

constexpr milliseconds transferWait{1500}; // "transfer" is 2: the countdown runs out after 1 to 2 s

class SipCallTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!findProgram("sipp")) GTEST_SKIP() << "SIPp is not installed (Debian package sip-tester): no SIP call is tried";
        corvel.set("data", "rings", "1");
        corvel.set("data", "transfer", "2");
        corvel.set("data", "ansall", "False"); // a delivered number is read back, not asked for
        corvel.set("sip", "ringinterval", "300");
    }

    milliseconds prompt(const std::string& file) const { return corvel.promptLength(file); }

    static std::string explain(const SippResult& result) { return "SIPp said:\n" + result.output; }

    Corvel corvel;
};

TEST_F(SipCallTest, AWithheldCallerKeysTheirNumberHearsItReadBackAndLeavesAMessage)
{
    ASSERT_TRUE(corvel.start()) << corvel.log();
    RtpSink ear;
    Sipp caller(corvel);
    caller.fill("from", "\"Anonymous\" <sip:anonymous@anonymous.invalid>");
    caller.fill("headers", "Privacy: id\n");
    caller.fill("rtp_port", std::to_string(ear.port()));
    const milliseconds readBack = prompt("from.wav") + prompt("0.wav") + prompt("1.wav") + prompt("2.wav");
    std::vector<Step> steps{pause(1500ms), key('0'), key('1'), key('2'), key('#'), pause(readBack + transferWait)};
    for (const Step& step : leaveAMessage(prompt("nobodyavailable.wav"), prompt("leavemessage.wav"))) steps.push_back(step);
    caller.fill("steps", stepsXml(steps));
    caller.fill("caller_hangs_up", "0");
    caller.fill("bye_within", "10000");

    const SippResult result = caller.run("answered_call.xml", 90s);
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();

    const auto calls = corvel.calls();
    ASSERT_EQ(calls.size(), 2u) << corvel.log();
    EXPECT_THAT(calls[0], StartsWith("Withheld, on "));
    EXPECT_THAT(calls[1], StartsWith(" keyed - 012, on "));

    const WaveFacts message = waveFacts(corvel.data() / "1-1-012.wav");
    ASSERT_TRUE(message.readable) << corvel.log();
    EXPECT_EQ(message.rate, 8000);
    EXPECT_EQ(message.channels, 1);
    EXPECT_TRUE(message.pcm16);
    EXPECT_TRUE(message.headerSizesRight);
    EXPECT_GT(message.seconds, 3.0) << "the caller spoke for 7 s";
    EXPECT_GT(message.rms, 300) << "the message holds the caller's speech, not silence";

    // The caller heard the prompts: the greeting, the request, the read-back and the rest.
    const auto heard = ear.samples();
    EXPECT_GT(static_cast<double>(heard.size()) / 8000, (readBack + prompt("nobodyavailable.wav")).count() / 1000.0);
    EXPECT_GT(rms(heard), 300);
}

TEST_F(SipCallTest, ACallersNumberIsReadBackBeforeTheyLeaveAMessage)
{
    corvel.useOwnPrompts();
    corvel.set("data", "allcalls", "True");
    ASSERT_TRUE(corvel.start()) << corvel.log();
    RtpSink ear;
    Sipp caller(corvel);
    caller.fill("from", "\"Jo Bloggs\" <sip:01234@127.0.0.1>");
    caller.fill("rtp_port", std::to_string(ear.port()));
    const milliseconds readBack = 800ms + prompt("from.wav") + prompt("0.wav") + prompt("1.wav") + prompt("2.wav") +
                                  prompt("3.wav") + prompt("4.wav");
    std::vector<Step> steps{pause(readBack)};
    for (const Step& step : leaveAMessage(1500ms, 1000ms)) steps.push_back(step);
    caller.fill("steps", stepsXml(steps));
    caller.fill("caller_hangs_up", "0");
    caller.fill("bye_within", "10000");

    const SippResult result = caller.run("answered_call.xml", 60s);
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
    EXPECT_THAT(corvel.calls(), ::testing::ElementsAre(StartsWith("01234, on ")));
    EXPECT_THAT(corvel.log(), HasSubstr("say: ")) << "the caller was announced";

    const WaveFacts message = waveFacts(corvel.data() / "1-1-01234.wav");
    ASSERT_TRUE(message.readable) << corvel.log();
    EXPECT_TRUE(message.pcm16 && message.rate == 8000 && message.channels == 1 && message.headerSizesRight);
    EXPECT_GT(message.seconds, 3.0);
    EXPECT_GT(message.rms, 300);

    // The user's own prompts went out converted: A-law and a float file at 44.1 kHz.
    std::size_t converted = 0;
    for (const auto& entry : fs::recursive_directory_iterator(corvel.root() / "cache")) {
        converted += entry.path().parent_path().filename() == "prompts";
    }
    EXPECT_EQ(converted, 2u);
    EXPECT_GT(static_cast<double>(ear.samples().size()) / 8000, readBack.count() / 1000.0);
}

TEST_F(SipCallTest, ACallerWhoHangsUpWhileRecordingLeavesACompleteMessage)
{
    corvel.useOwnPrompts();
    corvel.set("data", "allcalls", "True");
    ASSERT_TRUE(corvel.start()) << corvel.log();
    Sipp caller(corvel);
    caller.fill("from", "<sip:0987@127.0.0.1>");
    const milliseconds readBack = 800ms + prompt("from.wav") + prompt("0.wav") + prompt("9.wav") + prompt("8.wav") +
                                  prompt("7.wav");
    caller.fill("steps", stepsXml({pause(readBack + 1500ms + 3000ms), key('1'), pause(1000ms + 1000ms), speech(),
                                   pause(4000ms)}));
    caller.fill("caller_hangs_up", "1");
    caller.fill("bye_within", "0");

    const SippResult result = caller.run("answered_call.xml", 60s);
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
    ASSERT_TRUE(corvel.waitForLog("the SIP caller hung up", 5s)) << corvel.log();
    ASSERT_TRUE(eventually([&] { return waveFacts(corvel.data() / "1-1-0987.wav").readable; }, 5s)) << corvel.log();
    const WaveFacts message = waveFacts(corvel.data() / "1-1-0987.wav");
    EXPECT_TRUE(message.pcm16 && message.rate == 8000 && message.channels == 1);
    EXPECT_TRUE(message.headerSizesRight) << "a player finds the whole sound and nothing past it";
    EXPECT_GT(message.seconds, 1.5);
    EXPECT_GT(message.rms, 300);
    EXPECT_TRUE(corvel.running());
}

// Made to end while a caller speaks (the session ending, the service stopped, Ctrl+C), Corvel
// ends as a close does: the caller is hung up on and the message so far is kept whole.
TEST_F(SipCallTest, ASignalToEndWhileACallerSpeaksHangsUpAndKeepsTheMessage)
{
    corvel.useOwnPrompts();
    corvel.set("data", "allcalls", "True");
    ASSERT_TRUE(corvel.start()) << corvel.log();
    Sipp caller(corvel);
    caller.fill("from", "<sip:0555@127.0.0.1>");
    const milliseconds readBack = 800ms + prompt("from.wav") + prompt("0.wav") + 3 * prompt("5.wav");
    caller.fill("steps", stepsXml({pause(readBack + 1500ms + 3000ms), key('1'), pause(1000ms + 500ms), speech()}));
    caller.fill("caller_hangs_up", "0");
    caller.fill("bye_within", "20000");
    caller.start("answered_call.xml", 60s);
    ASSERT_TRUE(corvel.waitForLog("the SIP caller keyed 1", 30s)) << corvel.log();
    std::this_thread::sleep_for(3500ms); // the leave-a-message prompt, then two seconds of speech

    EXPECT_EQ(corvel.signal(SIGTERM, 10s), 0) << corvel.log();
    const SippResult result = caller.finish();
    EXPECT_EQ(result.exitCode, 0) << "a BYE came: " << explain(result) << corvel.log();
    const WaveFacts message = waveFacts(corvel.data() / "1-1-0555.wav");
    EXPECT_TRUE(message.readable && message.headerSizesRight) << corvel.log();
    EXPECT_GT(message.seconds, 1.0);
    EXPECT_TRUE(corvel.logHas("Corvel was asked to end (TERM)"));
    EXPECT_TRUE(corvel.logHas("Corvel ends"));
}

TEST_F(SipCallTest, InterruptAndHangUpSignalsEndAnIdleCorvelCleanly)
{
    for (const int number : {SIGINT, SIGHUP}) {
        Corvel idle;
        ASSERT_TRUE(idle.start()) << idle.log();
        ASSERT_TRUE(idle.waitForLog("Welcome to corvel!", 10s)) << idle.log();
        EXPECT_EQ(idle.signal(number, 10s), 0) << idle.log();
        EXPECT_TRUE(idle.logHas("Corvel ends")) << idle.log();
    }
}

TEST_F(SipCallTest, AStarDuringTheGreetingHangsUpAtOnce)
{
    corvel.set("data", "allcalls", "True");
    ASSERT_TRUE(corvel.start()) << corvel.log();
    Sipp caller(corvel);
    caller.fill("from", "<sip:0555@127.0.0.1>");
    caller.fill("steps", stepsXml({pause(700ms), key('*')}));
    caller.fill("caller_hangs_up", "0");
    caller.fill("bye_within", "4000");

    const SippResult result = caller.run("answered_call.xml", 30s);
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
    EXPECT_THAT(corvel.calls(), ::testing::ElementsAre(StartsWith("0555, on ")));
    EXPECT_FALSE(fs::exists(corvel.data() / "1-1-0555.wav"));
}

TEST_F(SipCallTest, ACallerWhoGivesUpBeforeTheAnswerIsLoggedAndTheLineTakesTheNextCall)
{
    ASSERT_TRUE(corvel.start()) << corvel.log();
    for (const char* number : {"0111", "0222"}) {
        Sipp caller(corvel);
        caller.fill("from", std::string("<sip:") + number + "@127.0.0.1>");
        caller.fill("ring_for", "1200");
        const SippResult result = caller.run("cancelled_call.xml", 20s);
        EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
        ASSERT_TRUE(corvel.waitForLog("gave up before the answer", 3s));
    }
    EXPECT_THAT(corvel.calls(), ::testing::ElementsAre(StartsWith("0111, on "), StartsWith("0222, on ")));
}

TEST_F(SipCallTest, ASecondCallerDuringACallHearsBusy)
{
    corvel.set("data", "allcalls", "True");
    ASSERT_TRUE(corvel.start()) << corvel.log();
    Sipp first(corvel);
    first.fill("from", "<sip:0100@127.0.0.1>");
    first.fill("steps", stepsXml({pause(5000ms)}));
    first.fill("caller_hangs_up", "1");
    first.fill("bye_within", "0");
    first.start("answered_call.xml", 30s);
    ASSERT_TRUE(corvel.waitForLog("answering the SIP call", 10s)) << corvel.log();

    Sipp second(corvel);
    second.fill("from", "<sip:0200@127.0.0.1>");
    second.fill("refusal", "486");
    const SippResult busy = second.run("refused_call.xml", 15s);
    EXPECT_EQ(busy.exitCode, 0) << explain(busy) << corvel.log();
    const SippResult answered = first.finish();
    EXPECT_EQ(answered.exitCode, 0) << explain(answered) << corvel.log();
    EXPECT_THAT(corvel.calls(), ::testing::ElementsAre(StartsWith("0100, on ")));
}

TEST_F(SipCallTest, KeysSentAsSipInfoAreTaken)
{
    ASSERT_TRUE(corvel.start()) << corvel.log();
    Sipp caller(corvel);
    caller.fill("from", "\"Anonymous\" <sip:anonymous@anonymous.invalid>");
    caller.fill("steps", stepsXml({pause(1500ms), info("application/dtmf-relay", "Signal=0\nDuration=160"),
                                   info("application/dtmf-relay", "Signal=1\nDuration=160"),
                                   info("application/dtmf", "2"), info("application/dtmf", "#"), pause(1000ms)}));
    caller.fill("caller_hangs_up", "1");
    caller.fill("bye_within", "0");
    const SippResult result = caller.run("answered_call.xml", 30s);
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
    EXPECT_THAT(corvel.calls(), ::testing::ElementsAre(StartsWith("Withheld, on "), StartsWith(" keyed - 012, on ")));
}

TEST_F(SipCallTest, ACallWhoseSoundStopsEndsAsLost)
{
    corvel.set("data", "allcalls", "True");
    corvel.set("sip", "medialoss", "2");
    ASSERT_TRUE(corvel.start()) << corvel.log();
    Sipp caller(corvel);
    caller.fill("from", "<sip:0333@127.0.0.1>");
    caller.fill("steps", "");
    caller.fill("caller_hangs_up", "0");
    caller.fill("bye_within", "10000");
    const SippResult result = caller.run("answered_call.xml", 30s);
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
    EXPECT_TRUE(corvel.waitForLog("the SIP call was lost", 3s)) << corvel.log();
    EXPECT_TRUE(corvel.running());
}

TEST_F(SipCallTest, HostileCallerIdIsNeitherTrustedNorLetIntoTheLog)
{
    ASSERT_TRUE(corvel.start()) << corvel.log();
    {
        Sipp hostile(corvel);
        hostile.fill("from", "\"" + std::string(3000, 'A') + "\\\"\x1b[31m\" <sip:12%0A34@127.0.0.1>");
        hostile.fill("headers", "P-Asserted-Identity: \"Bank\" <sip:0800123456@127.0.0.1>, <<<" +
                                    std::string(5000, '<') + "\nPrivacy: ;;;,,," + std::string(3000, ';') + "\n");
        hostile.fill("ring_for", "800");
        hostile.run("cancelled_call.xml", 20s); // answered with 487 or refused outright: either is fine
    }
    Sipp next(corvel);
    next.fill("from", "<sip:0444@127.0.0.1>");
    next.fill("ring_for", "800");
    const SippResult result = next.run("cancelled_call.xml", 20s);
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
    EXPECT_TRUE(corvel.running());

    const auto calls = corvel.calls();
    EXPECT_THAT(calls, Contains(StartsWith("0444, on ")));
    // The asserted number came from nobody trusted: it was not believed.
    EXPECT_THAT(calls, Not(Contains(HasSubstr("0800123456"))));
    for (const std::string& line : calls) {
        EXPECT_LT(line.size(), 400u);
        EXPECT_EQ(line.find('\x1b'), std::string::npos);
    }
    EXPECT_EQ(corvel.log().find('\x1b'), std::string::npos);
}

TEST_F(SipCallTest, AnAccountRegistersWithItsPasswordAndItsServerIsTrusted)
{
    const std::string password = "Wh1sky-T4ngo-" + std::to_string(::getpid());
    Sipp registrar(corvel);
    registrar.fill("user", "corvel");
    registrar.fill("password", password);
    registrar.start("registrar.xml", 30s, true);
    const std::string account = "sip:corvel@127.0.0.1:" + std::to_string(registrar.port());
    corvel.set("sip", "account", account);
    corvel.set("sip", "password", password);
    ASSERT_TRUE(corvel.start("SIP account " + account)) << corvel.log();
    const SippResult registered = registrar.finish();
    EXPECT_EQ(registered.exitCode, 0) << explain(registered) << corvel.log();
    EXPECT_TRUE(corvel.waitForLog(account + " is registered", 5s)) << corvel.log();

    // A call through the account's server: its asserted identity counts.
    Sipp caller(corvel);
    caller.fill("from", "\"Front door\" <sip:door@127.0.0.1>");
    caller.fill("headers", "P-Asserted-Identity: \"Jo\" <sip:0301234@127.0.0.1>\n");
    caller.fill("ring_for", "800");
    const SippResult result = caller.run("cancelled_call.xml", 20s);
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
    EXPECT_THAT(corvel.calls(), ::testing::ElementsAre(StartsWith("0301234, on ")));

    corvel.stop();
    EXPECT_THAT(corvel.log(), Not(HasSubstr(password)));
    for (const auto& entry : fs::recursive_directory_iterator(corvel.root() / "cache")) {
        if (entry.is_regular_file()) {
            EXPECT_THAT(readText(entry.path()), Not(HasSubstr(password))) << entry.path();
        }
    }
}

// The user takes a waiting caller from the command line, as a click on the pick-up window does.
class HandOverTest : public SipCallTest {
protected:
    void SetUp() override
    {
        SipCallTest::SetUp();
        if (IsSkipped()) return;
        corvel.useOwnPrompts();
        corvel.set("data", "allcalls", "True");
        corvel.set("data", "ansa", "False"); // put callers through rather than take a message
        corvel.set("data", "transfer", "30");
    }

    // From the answer to the end of the read-back of "0246".
    milliseconds readBack() const
    {
        return 800ms + prompt("from.wav") + prompt("0.wav") + prompt("2.wav") + prompt("4.wav") + prompt("6.wav");
    }

    // Takes the caller who waits, the first to wait since the log's size was `from`.
    void takeTheCall(std::size_t from = 0)
    {
        ASSERT_TRUE(corvel.waitForLog("a caller waits to be put through", 30s, from)) << corvel.log();
        ASSERT_EQ(corvel.tell("--pick-up"), 0) << corvel.log();
    }

    // Jo Bloggs on 0246, whose sound goes to `ear`, waits to be put through and, once on the
    // desktop, does `after`, then hangs up or waits for the user to.
    static void startDesktopCaller(Sipp& caller, const RtpSink& ear, const std::vector<Step>& after, bool hangsUp)
    {
        caller.fill("from", "\"Jo Bloggs\" <sip:0246@127.0.0.1>");
        caller.fill("rtp_port", std::to_string(ear.port()));
        caller.fill("steps", "");
        caller.fill("after", stepsXml(after));
        caller.fill("caller_hangs_up", hangsUp ? "1" : "0");
        caller.fill("bye_within", "20000");
        caller.start("desktop_call.xml", 60s);
    }

    // Since the marks, the caller's speech came out of the speaker and a second or more of the
    // microphone's tone reached the caller.
    static void expectSoundBothWays(const DesktopSound& desktop, std::size_t heardFrom, const RtpSink& ear,
                                    std::size_t sentFrom)
    {
        const auto heard = desktop.heard();
        EXPECT_GT(rms({heard.begin() + static_cast<long>(std::min(heardFrom, heard.size())), heard.end()}), 300)
            << heard.size() - heardFrom << " samples heard";
        const auto sent = ear.samples();
        ASSERT_GT(sent.size(), sentFrom + DesktopSound::rate);
        EXPECT_GT(toneShare({sent.begin() + static_cast<long>(sentFrom), sent.end()}, DesktopSound::toneHz,
                            DesktopSound::rate),
                  0.5);
    }
};

TEST_F(HandOverTest, TheCallerIsHandedToTheUsersTelephone)
{
    const std::string phone = "sip:0799@127.0.0.1:" + std::to_string(freePort());
    corvel.set("sip", "phone", phone);
    ASSERT_TRUE(corvel.start()) << corvel.log();
    EXPECT_EQ(corvel.tell("--pick-up"), 0);
    EXPECT_TRUE(corvel.waitForLog("no caller waits to be put through", 5s)) << corvel.log();

    Sipp caller(corvel);
    caller.fill("from", "<sip:0246@127.0.0.1>");
    caller.fill("steps", "");
    caller.fill("refer_within", "30000");
    caller.start("transferred_call.xml", 60s);
    takeTheCall();
    const SippResult result = caller.finish();
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
    EXPECT_THAT(caller.messages(), HasSubstr("Refer-To: " + phone));
    EXPECT_TRUE(corvel.waitForLog("the caller has been handed over to " + phone, 5s)) << corvel.log();
    EXPECT_THAT(corvel.calls(), ::testing::ElementsAre(StartsWith("0246, on ")));
    EXPECT_FALSE(fs::exists(corvel.data() / "1-1-0246.wav")) << "a caller who was put through leaves no message";
}

TEST_F(HandOverTest, WithoutATelephoneTheUserTalksToTheCallerFromTheComputerAndHangsUp)
{
    DesktopSound desktop(corvel);
    if (!desktop.ready()) {
        GTEST_SKIP() << "no PulseAudio server could be started (Debian package pulseaudio), so there is no sound to "
                        "move the call to: "
                     << desktop.log();
    }
    ASSERT_TRUE(corvel.start()) << corvel.log();
    EXPECT_EQ(corvel.tell("--hang-up"), 0);
    EXPECT_TRUE(corvel.waitForLog("there is no call to hang up", 5s)) << corvel.log();

    RtpSink ear;
    Sipp caller(corvel);
    startDesktopCaller(caller, ear, {pause(2000ms), speech(), pause(9000ms)}, false);
    takeTheCall();
    ASSERT_TRUE(corvel.waitForLog("the caller talks to the desktop now", 5s)) << corvel.log() << desktop.log();
    const std::size_t heardBefore = desktop.heard().size();
    const std::size_t sentBefore = ear.samples().size();
    EXPECT_TRUE(eventually([&] { return rms(desktop.heard()) > 300; }, 15s)) << corvel.log();
    std::this_thread::sleep_for(2s);
    ASSERT_EQ(corvel.tell("--hang-up"), 0);
    const SippResult result = caller.finish();
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
    expectSoundBothWays(desktop, heardBefore, ear, sentBefore);

    EXPECT_TRUE(corvel.waitForLog("the call on the computer's microphone and speaker is over", 5s)) << corvel.log();
    EXPECT_THAT(corvel.calls(), ::testing::ElementsAre(StartsWith("0246, on ")));
    EXPECT_FALSE(fs::exists(corvel.data() / "1-1-0246.wav"));
}

// The sound server killed during a desktop call and started again, as after its crash: the
// call goes on, is renewed on the sound devices there are now and has sound again, and ends
// cleanly when the caller hangs up; the next caller taken on the desktop has sound too.
TEST_F(HandOverTest, ADesktopCallOutlivesARestartOfTheSoundServerAndSoDoesTheNext)
{
    DesktopSound desktop(corvel);
    if (!desktop.ready()) GTEST_SKIP() << "no PulseAudio server could be started: " << desktop.log();
    ASSERT_TRUE(corvel.start()) << corvel.log();
    {
        RtpSink ear;
        Sipp caller(corvel);
        startDesktopCaller(caller, ear, {pause(1000ms), speech(), renewal(30000ms), pause(500ms), speech(), pause(4000ms)},
                           true);
        takeTheCall();
        ASSERT_TRUE(corvel.waitForLog("the caller talks to the desktop now", 5s)) << corvel.log();
        ASSERT_TRUE(eventually([&] { return rms(desktop.heard()) > 300; }, 15s)) << corvel.log();
        ASSERT_TRUE(desktop.restart()) << desktop.log();
        const std::size_t heardBefore = desktop.heard().size();
        const std::size_t sentBefore = ear.samples().size();
        const SippResult result = caller.finish();
        EXPECT_EQ(result.exitCode, 0) << "the renewal was taken up and the BYE answered: " << explain(result)
                                      << corvel.log();
        expectSoundBothWays(desktop, heardBefore, ear, sentBefore);
        EXPECT_TRUE(corvel.waitForLog("the call on the computer's microphone and speaker is over", 5s)) << corvel.log();
    }

    const std::size_t secondCall = corvel.log().size();
    RtpSink ear;
    Sipp caller(corvel);
    startDesktopCaller(caller, ear, {pause(1000ms), speech(), pause(4000ms)}, true);
    takeTheCall(secondCall);
    ASSERT_TRUE(corvel.waitForLog("the caller talks to the desktop now", 5s, secondCall)) << corvel.log();
    const std::size_t heardBefore = desktop.heard().size();
    const std::size_t sentBefore = ear.samples().size();
    const SippResult result = caller.finish();
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
    expectSoundBothWays(desktop, heardBefore, ear, sentBefore);
    EXPECT_TRUE(corvel.waitForLog("the call on the computer's microphone and speaker is over", 5s, secondCall));
    EXPECT_THAT(corvel.calls(), ::testing::ElementsAre(StartsWith("0246, on "), StartsWith("0246, on ")));
    EXPECT_TRUE(corvel.running());
}

TEST_F(HandOverTest, ACallerTakenOnTheDesktopWhoHangsUpEndsTheCallThereToo)
{
    // No sound server of the test's own: a computer with no sound at all still takes the call.
    ASSERT_TRUE(corvel.start()) << corvel.log();
    Sipp caller(corvel);
    caller.fill("from", "<sip:0246@127.0.0.1>");
    caller.fill("steps", stepsXml({pause(readBack() + 6000ms)}));
    caller.fill("caller_hangs_up", "1");
    caller.fill("bye_within", "0");
    caller.start("answered_call.xml", 60s);
    takeTheCall();
    const SippResult result = caller.finish();
    EXPECT_EQ(result.exitCode, 0) << explain(result) << corvel.log();
    EXPECT_TRUE(corvel.waitForLog("the call on the computer's microphone and speaker is over", 5s)) << corvel.log();
    EXPECT_EQ(corvel.tell("--hang-up"), 0);
    EXPECT_TRUE(corvel.waitForLog("there is no call to hang up", 5s)) << corvel.log();
    EXPECT_TRUE(corvel.running());
}

TEST_F(SipCallTest, AnotherRealClientIsAnsweredAndItsHangUpEndsTheCall)
{
    const auto baresip = findProgram("baresip");
    if (!baresip) GTEST_SKIP() << "baresip is not installed (Debian package baresip-core): the second client is not tried";
    corvel.set("data", "allcalls", "True");
    ASSERT_TRUE(corvel.start()) << corvel.log();

    // baresip speaks a file and hangs up when it ends.
    const fs::path home = corvel.root() / "baresip";
    fs::create_directories(home);
    testing::writeTone(home / "speech.wav", 4.0);
    std::ofstream(home / "config") << "poll_method epoll\nsip_listen 127.0.0.1:" << freePort() << "\n"
                                   << "sip_transports udp\n"
                                   << "audio_player aufile," << (home / "heard.wav").string() << "\n"
                                   << "audio_alert aufile," << (home / "heard.wav").string() << "\n"
                                   << "audio_source aufile," << (home / "speech.wav").string() << "\n"
                                   << "module_path /usr/lib/baresip/modules\nmodule g711.so\nmodule aufile.so\n"
                                   << "module_app account.so\nmodule_app menu.so\n";
    std::ofstream(home / "accounts") << "\"Bea\" <sip:0777@127.0.0.1>;regint=0\n";
    Process client({baresip->string(), "-4", "-f", home.string(), "-e",
                    "/dial sip:corvel@127.0.0.1:" + std::to_string(corvel.port())},
                   {{"HOME", home.string()}}, home / "baresip.out", home);
    EXPECT_TRUE(corvel.waitForLog("answering the SIP call", 15s)) << readText(home / "baresip.out") << corvel.log();
    EXPECT_TRUE(corvel.waitForLog("the SIP caller hung up", 15s)) << readText(home / "baresip.out") << corvel.log();
    client.terminate();
    EXPECT_THAT(corvel.calls(), ::testing::ElementsAre(StartsWith("0777, on ")));
    EXPECT_TRUE(corvel.running());
}

} // namespace
} // namespace corvel::e2e
