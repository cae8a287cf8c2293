// Whole calls on the test line with screening switched on: blocked callers, trusted callers,
// quiet hours and the command run for each message.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using namespace std::chrono;
using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using Identity = ScriptedCall::Identity;

class ScreeningScenarioTest : public ::testing::Test, protected testing::AnswerPhoneHarness {
protected:
    explicit ScreeningScenarioTest(LocalTime start = testing::VirtualEventLoop::defaultStart())
        : testing::AnswerPhoneHarness(start)
    {
        readyForCalls();
        testing::writeTone(data / "blocked.wav", 1.0, 900);
    }

    static ScriptedCall caller(Identity identity, std::string number = "", std::vector<ScriptedCall::Key> keys = {})
    {
        ScriptedCall call;
        call.identity = identity;
        call.number = std::move(number);
        call.keys = std::move(keys);
        return call;
    }
    // Places the call and runs until it is over, answered or not.
    void run(const ScriptedCall& call)
    {
        agent.calls.clear();
        line.placeCall(call);
        loop.runUntil([&] { return !line.ringing() && !line.callActive() && !view.busy; });
        loop.runFor(2s);
    }
    std::vector<std::string> records(std::string_view file) const
    {
        std::vector<std::string> kept;
        for (const std::string& line : folder.readLines(file)) kept.push_back(line.substr(0, line.find(", on ")));
        return kept;
    }
    int alerts() const { return static_cast<int>(std::count(agent.calls.begin(), agent.calls.end(), "Play Alert")); }
};

TEST_F(ScreeningScenarioTest, ABlockedNumberOrPrefixIsTurnedAwayAfterItsFirstRingAndKeptApart)
{
    writeFile("blocklist.txt", "0123456,the double-glazing people\r\n0870*\r\n");
    run(caller(Identity::Number, "0123-456"));
    EXPECT_EQ(line.ringCount(), 1) << "answered at once, so the user's telephone stops ringing";
    EXPECT_THAT(heard(), ElementsAre("blocked.wav"));
    EXPECT_THAT(spoken(), IsEmpty());
    EXPECT_FALSE(view.displayShown);
    EXPECT_EQ(alerts(), 1) << "only the first ring, before anyone knew who it was";
    EXPECT_THAT(records("blocked.txt"), ElementsAre("0123-456"));
    EXPECT_THAT(folder.readLines("blocked.txt").front(), HasSubstr(", on 5 January 2026, at 10:00:0"));
    EXPECT_FALSE(has("calls.txt")) << "the call log keeps its own records only";

    run(caller(Identity::Number, "08701234"));
    EXPECT_THAT(heard(), ElementsAre("blocked.wav"));
    EXPECT_EQ(counter("blocked1", "blocked2"), "02");

    // Outside the prefix: an ordinary caller, announced and left to ring with "allcalls" clear.
    run(caller(Identity::Number, "08711234"));
    EXPECT_THAT(heard(), IsEmpty());
    EXPECT_EQ(line.ringCount(), 10);
    EXPECT_THAT(records("calls.txt"), ElementsAre("08711234"));
    EXPECT_EQ(phone.calls.state().callphase, CallPhase::Idle);
}

TEST_F(ScreeningScenarioTest, WithheldOrUnavailableCallersAreBlockedAsAWholeOnlyWhenTicked)
{
    settings.set("blockwithheld", "True");
    run(caller(Identity::Withheld));
    EXPECT_THAT(heard(), ElementsAre("blocked.wav"));
    EXPECT_THAT(records("blocked.txt"), ElementsAre("Withheld"));

    // Unavailable callers are still asked for their number, as without screening.
    run(caller(Identity::Unavailable, "", {{4s, '5'}, {5s, '#'}}));
    EXPECT_THAT(heard(), AllOf(Contains("askfornumber.wav"), Not(Contains("blocked.wav"))));
    settings.set("blockunavailable", "True");
    run(caller(Identity::Unavailable));
    EXPECT_THAT(heard(), ElementsAre("blocked.wav"));
    EXPECT_THAT(records("blocked.txt"), ElementsAre("Withheld", "Unavailable"));
    EXPECT_THAT(records("calls.txt"), ElementsAre("Unavailable", " keyed - 5"));
}

TEST_F(ScreeningScenarioTest, ATrustedCallerRingsThroughEvenWithAllCallsWhileStrangersAreScreened)
{
    writeFile("directory.ini", "0123456,Jane\r\n");
    settings.set("allcalls", "True");
    settings.set("trusted", "True");
    run(caller(Identity::Number, "0123-456"));
    EXPECT_THAT(heard(), IsEmpty());
    EXPECT_EQ(line.ringCount(), 10);
    EXPECT_THAT(spoken(), Contains("Jane")) << "announced as always";
    EXPECT_THAT(records("calls.txt"), ElementsAre("0123-456"));

    // A number that merely contains Jane's is a stranger.
    run(caller(Identity::Number, "23-45"));
    EXPECT_THAT(heard(), Contains("goodmorning.wav"));
    // Without the option, Jane is answered like everyone else.
    settings.set("trusted", "False");
    run(caller(Identity::Number, "0123-456"));
    EXPECT_THAT(heard(), Contains("goodmorning.wav"));
}

// Quiet hours from 22:00 to 07:00, the evening beginning at 23:50.
class QuietHoursTest : public ScreeningScenarioTest {
protected:
    QuietHoursTest() : ScreeningScenarioTest(local_days{2026y / January / 1} + 23h + 50min)
    {
        settings.set("quiet", "True");
        settings.set("quietfrom", "22:00");
        settings.set("quietto", "07:00");
    }
};

TEST_F(QuietHoursTest, EveryCallIsTakenSilentlyForAMessageAcrossMidnightUntilTheyEnd)
{
    run(caller(Identity::Number, "0123-456", {{5s, '1'}, {9s, '#'}}));
    EXPECT_EQ(line.ringCount(), 2) << "the first ring after caller ID";
    EXPECT_THAT(heard(), ElementsAre("goodevening.wav", "nobodyavailable.wav", "leavemessage.wav"));
    EXPECT_TRUE(has("1-1-0123456.wav"));
    EXPECT_THAT(spoken(), IsEmpty());
    EXPECT_EQ(alerts(), 0);
    EXPECT_FALSE(view.displayShown);
    EXPECT_EQ(view.shiftedTwips, 0);
    EXPECT_THAT(records("calls.txt"), ElementsAre("0123-456"));

    loop.runFor(30min); // past midnight, still quiet
    run(caller(Identity::Withheld));
    EXPECT_EQ(line.ringCount(), 2);
    EXPECT_THAT(heard(), ElementsAre("goodmorning.wav", "nobodyavailable.wav"));

    loop.runFor(7h); // the morning: screening as without quiet hours
    run(caller(Identity::Number, "0123-456"));
    EXPECT_THAT(heard(), IsEmpty());
    EXPECT_THAT(spoken(), Contains(", 0 1 2 3 - 4 5 6 "));
}

TEST_F(QuietHoursTest, ATrustedCallerStillRingsThroughAndABlockedOneIsStillTurnedAway)
{
    writeFile("directory.ini", "0123456,Jane\r\n");
    writeFile("blocklist.txt", "0999\r\n");
    settings.set("trusted", "True");
    run(caller(Identity::Number, "0123456"));
    EXPECT_THAT(heard(), IsEmpty());
    EXPECT_EQ(line.ringCount(), 10);
    run(caller(Identity::Number, "0999"));
    EXPECT_THAT(heard(), ElementsAre("blocked.wav"));
}

TEST_F(ScreeningScenarioTest, TheMessageCommandGetsTheFileCallerAndTimeAsSeparateArguments)
{
    settings.set("allcalls", "True");
    settings.set("ansall", "False");
    settings.set("messagecommand", R"(notify-me --urgent "two words" %f)");
    // A caller whose "number" tries to pass for an option and to split into more arguments.
    run(caller(Identity::Number, "--exec=rm -rf ~ x", {{11s, '1'}, {15s, '#'}}));
    ASSERT_EQ(shell.commands.size(), 1u);
    const auto& started = shell.commands.front();
    ASSERT_EQ(started.arguments.size(), 6u);
    EXPECT_THAT(std::vector(started.arguments.begin(), started.arguments.begin() + 3),
                ElementsAre("notify-me", "--urgent", "two words"));
    const std::string& file = started.arguments[3];
    const std::string& callerText = started.arguments[4];
    EXPECT_THAT(file, StartsWith(data.string() + "/1-1-"));
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_THAT(callerText, Not(StartsWith("-")));
    EXPECT_THAT(callerText, HasSubstr(" ")) << "one argument, blanks and all";
    EXPECT_EQ(started.arguments[5], "2026-01-05T10:00:39");
    EXPECT_THAT(started.environment, ElementsAre(std::pair<std::string, std::string>{"CORVEL_MESSAGE", file},
                                                 std::pair<std::string, std::string>{"CORVEL_CALLER", callerText},
                                                 std::pair<std::string, std::string>{"CORVEL_TIME", started.arguments[5]}));

    // No message, no command; and none without a setting.
    run(caller(Identity::Number, "0123"));
    settings.set("messagecommand", "");
    run(caller(Identity::Number, "0123", {{11s, '1'}}));
    EXPECT_EQ(shell.commands.size(), 1u);
}

} // namespace
} // namespace corvel
