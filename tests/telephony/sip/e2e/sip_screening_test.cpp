// Screening on the SIP line, whole calls from SIPp: blocked callers refused with 603 Decline
// before anything is answered, trusted callers left ringing for the user, quiet hours taking
// every call for a message, and the command run for each message.

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sip_call_harness.h"

namespace corvel::e2e {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using std::chrono::milliseconds;
namespace fs = std::filesystem;

class SipScreeningTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!findProgram("sipp")) GTEST_SKIP() << "SIPp is not installed (Debian package sip-tester): no SIP call is tried";
        // Without screening every caller here would be answered on the first ring.
        corvel.set("data", "rings", "1");
        corvel.set("data", "allcalls", "True");
        corvel.set("data", "ansall", "False");
        corvel.set("sip", "ringinterval", "300");
    }

    void writeData(const std::string& file, const std::string& text) const
    {
        std::ofstream(corvel.data() / file, std::ios::binary) << text;
    }

    // A caller refused unanswered: 603 Decline, acknowledged, and nothing else.
    void expectDeclined(const std::string& from, const std::string& headers = "")
    {
        Sipp caller(corvel);
        caller.fill("from", from);
        caller.fill("headers", headers);
        caller.fill("refusal", "603");
        const SippResult result = caller.run("refused_call.xml", 20s);
        EXPECT_EQ(result.exitCode, 0) << "SIPp said:\n" << result.output << corvel.log();
        EXPECT_THAT(caller.messages(), HasSubstr("SIP/2.0 603 Decline"));
        EXPECT_THAT(caller.messages(), Not(HasSubstr("SIP/2.0 200 OK")));
    }

    // A caller who is answered and presses "*" during the greeting, which ends the call.
    void expectAnswered(const std::string& from)
    {
        Sipp caller(corvel);
        caller.fill("from", from);
        caller.fill("steps", stepsXml({pause(700ms), key('*')}));
        caller.fill("caller_hangs_up", "0");
        caller.fill("bye_within", "5000");
        const SippResult result = caller.run("answered_call.xml", 30s);
        EXPECT_EQ(result.exitCode, 0) << "SIPp said:\n" << result.output << corvel.log();
    }

    // The message files in the data folder.
    std::vector<fs::path> messages() const
    {
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(corvel.data())) {
            if (entry.path().extension() == ".wav" && entry.path().filename().string().starts_with("1-")) {
                found.push_back(entry.path());
            }
        }
        return found;
    }

    Corvel corvel;
};

TEST_F(SipScreeningTest, ABlockedNumberIsDeclinedUnansweredAndKeptApartFromTheCallLog)
{
    writeData("blocklist.txt", "0123456,the double-glazing people\r\n");
    ASSERT_TRUE(corvel.start()) << corvel.log();
    // Delivered with a dash, blocked by its digits.
    expectDeclined("\"Sales\" <sip:0123-456@127.0.0.1>");

    ASSERT_TRUE(eventually([&] { return !corvel.records("blocked.txt").empty(); }, 5s)) << corvel.log();
    EXPECT_THAT(corvel.records("blocked.txt"), ElementsAre(StartsWith("0123-456, on ")));
    EXPECT_THAT(corvel.calls(), IsEmpty());
    EXPECT_FALSE(corvel.logHas("answering the SIP call")) << corvel.log();
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_TRUE(corvel.running());
}

TEST_F(SipScreeningTest, ABlockedPrefixDeclinesTheNumbersItStartsAndNoOthers)
{
    writeData("blocklist.txt", "0870*\r\n");
    ASSERT_TRUE(corvel.start()) << corvel.log();
    expectDeclined("<sip:08701234@127.0.0.1>");
    // The line is free again at once, and a number outside the prefix is answered as usual.
    expectAnswered("<sip:08711234@127.0.0.1>");

    EXPECT_THAT(corvel.records("blocked.txt"), ElementsAre(StartsWith("08701234, on ")));
    EXPECT_THAT(corvel.calls(), ElementsAre(StartsWith("08711234, on ")));
}

TEST_F(SipScreeningTest, WithheldCallersAreDeclinedWhenTheyAreBlockedAsAWhole)
{
    corvel.set("data", "blockwithheld", "True");
    ASSERT_TRUE(corvel.start()) << corvel.log();
    expectDeclined("\"Anonymous\" <sip:anonymous@anonymous.invalid>", "Privacy: id\n");
    // Hidden by the Privacy header alone, behind an ordinary looking From.
    expectDeclined("\"Jo\" <sip:0555@127.0.0.1>", "Privacy: user;id\n");

    ASSERT_TRUE(eventually([&] { return corvel.records("blocked.txt").size() == 2; }, 5s)) << corvel.log();
    EXPECT_THAT(corvel.records("blocked.txt"), ElementsAre(StartsWith("Withheld, on "), StartsWith("Withheld, on ")));
    EXPECT_THAT(corvel.calls(), IsEmpty());
    // A caller who shows their number is not touched by the option.
    expectAnswered("<sip:0777@127.0.0.1>");
    EXPECT_THAT(corvel.calls(), ElementsAre(StartsWith("0777, on ")));
}

TEST_F(SipScreeningTest, ATrustedCallerIsAnnouncedAndLeftRingingEvenWithAllCalls)
{
    writeData("directory.ini", "0123456,Jane\r\n");
    corvel.set("data", "trusted", "True");
    ASSERT_TRUE(corvel.start()) << corvel.log();
    // Start-up speaks its welcome after the line listens; what is said of the call comes after.
    ASSERT_TRUE(corvel.waitForLog("Welcome to corvel!", 10s)) << corvel.log();
    const std::size_t started = corvel.log().size();
    {
        // About a dozen rings, none of them answered: cancelled_call.xml fails on a 200.
        Sipp jane(corvel);
        jane.fill("from", "\"Jane\" <sip:0123456@127.0.0.1>");
        jane.fill("ring_for", "4000");
        const SippResult result = jane.run("cancelled_call.xml", 20s);
        EXPECT_EQ(result.exitCode, 0) << "SIPp said:\n" << result.output << corvel.log();
    }
    EXPECT_TRUE(corvel.waitForLog("gave up before the answer", 3s)) << corvel.log();
    EXPECT_THAT(corvel.log().substr(started), HasSubstr("say: ")) << "Jane was announced";
    EXPECT_FALSE(corvel.logHas("answering the SIP call"));
    EXPECT_THAT(corvel.calls(), ElementsAre(StartsWith("0123456, on ")));

    // A number that merely holds Jane's is a stranger, answered as "allcalls" says.
    expectAnswered("<sip:01234567@127.0.0.1>");
    EXPECT_THAT(corvel.calls(), ElementsAre(StartsWith("0123456, on "), StartsWith("01234567, on ")));
}

// Quiet hours around the present minute, since the real clock cannot be moved: from five
// minutes ago to an hour ahead (across midnight when the test runs late in the evening).
// Every call is taken for a message and the message command, started without a shell, gets
// the message, the caller and the time. It is touch: the marker, then its three arguments as
// files in Corvel's working folder.
class SipQuietHoursTest : public SipScreeningTest {
protected:
    void SetUp() override
    {
        SipScreeningTest::SetUp();
        if (IsSkipped()) return;
        const auto touch = findProgram("touch");
        if (!touch) GTEST_SKIP() << "no touch program on PATH";
        corvel.useOwnPrompts();
        corvel.set("data", "allcalls", "False"); // quiet hours answer calls on their own
        corvel.set("data", "quiet", "True");
        corvel.set("data", "quietfrom", clockTime(-5));
        corvel.set("data", "quietto", clockTime(60));
        corvel.set("data", "messagecommand", touch->string() + " \"" + marker().string() + "\"");
    }

    // The local time `minutes` from now, as hh:mm.
    static std::string clockTime(int minutes)
    {
        const std::time_t when = std::time(nullptr) + minutes * 60;
        std::tm local{};
        ::localtime_r(&when, &local);
        char text[8];
        std::strftime(text, sizeof text, "%H:%M", &local);
        return text;
    }

    fs::path marker() const { return corvel.root() / "message hook ran"; }

    // The greeting, then a message left as usual.
    SippResult leaveMessageFrom(const std::string& from)
    {
        Sipp caller(corvel);
        caller.fill("from", from);
        std::vector<Step> steps{pause(800ms)};
        for (const Step& step : leaveAMessage(1500ms, 1000ms)) steps.push_back(step);
        caller.fill("steps", stepsXml(steps));
        caller.fill("caller_hangs_up", "0");
        caller.fill("bye_within", "10000");
        return caller.run("answered_call.xml", 60s);
    }

    // What the command made in Corvel's working folder besides its own files.
    std::vector<std::string> madeByTheCommand() const
    {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(corvel.root())) {
            if (entry.is_regular_file() && entry.path() != marker() && entry.path().filename() != "corvel.log") {
                names.push_back(entry.path().filename().string());
            }
        }
        return names;
    }
};

TEST_F(SipQuietHoursTest, ACallIsAnsweredAtOnceForAMessageAndTheMessageCommandRuns)
{
    ASSERT_TRUE(corvel.start()) << corvel.log();
    // Start-up speaks its welcome after the line listens; what is said of the call comes after.
    ASSERT_TRUE(corvel.waitForLog("Welcome to corvel!", 10s)) << corvel.log();
    const std::size_t started = corvel.log().size();
    const SippResult result = leaveMessageFrom("\"Jo Bloggs\" <sip:01234@127.0.0.1>");
    EXPECT_EQ(result.exitCode, 0) << "SIPp said:\n" << result.output << corvel.log();

    EXPECT_THAT(corvel.calls(), ElementsAre(StartsWith("01234, on ")));
    EXPECT_THAT(corvel.log().substr(started), Not(HasSubstr("say: "))) << "nobody is disturbed: the caller is not announced";
    const WaveFacts message = waveFacts(corvel.data() / "1-1-01234.wav");
    ASSERT_TRUE(message.readable) << corvel.log();
    EXPECT_GT(message.seconds, 3.0);
    EXPECT_GT(message.rms, 300);

    ASSERT_TRUE(eventually([&] { return fs::exists(marker()); }, 5s)) << corvel.log();
    EXPECT_TRUE(corvel.waitForLog("touch done", 5s)) << corvel.log();
    // Touched in the working folder: the caller and the time, each an argument of its own.
    const auto made = madeByTheCommand();
    EXPECT_THAT(made, ::testing::Contains("01234")) << corvel.log();
    EXPECT_THAT(made, ::testing::Contains(::testing::MatchesRegex("20[0-9][0-9]-[01][0-9]-[0-3][0-9]T.*")));
}

TEST_F(SipQuietHoursTest, ACallersNameNeverReachesTheMessageCommandAsAnOption)
{
    ASSERT_TRUE(corvel.start()) << corvel.log();
    // Two digits are too few to know a caller by: the display name stands for them.
    const SippResult result = leaveMessageFrom("\"--help -x 'me' \\\"you\\\"\" <sip:12@127.0.0.1>");
    EXPECT_EQ(result.exitCode, 0) << "SIPp said:\n" << result.output << corvel.log();
    ASSERT_EQ(messages().size(), 1u) << corvel.log();

    // touch given "--help" or "-x" would print or fail and touch nothing.
    ASSERT_TRUE(eventually([&] { return fs::exists(marker()); }, 5s)) << corvel.log();
    EXPECT_TRUE(corvel.waitForLog("touch done", 5s)) << corvel.log();
    EXPECT_FALSE(corvel.logHas("failed with exit status")) << corvel.log();
    for (const std::string& name : madeByTheCommand()) EXPECT_THAT(name, Not(StartsWith("-")));
}

} // namespace
} // namespace corvel::e2e
