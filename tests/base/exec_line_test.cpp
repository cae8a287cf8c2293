#include "base/exec_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "messages/message_hook.h"
#include "telephony/call_screening.h"

namespace corvel {
namespace {

using ::testing::ElementsAre;

TEST(ExecLine, SplitsAtBlanksKeepsQuotedBlanksAndDropsFieldCodes)
{
    EXPECT_THAT(*splitExecLine("  notify-send  -u low "), ElementsAre("notify-send", "-u", "low"));
    EXPECT_THAT(*splitExecLine(R"(/opt/my\ tool "a b" "say \"hi\" \$HOME \\ \`" "")"),
                ElementsAre(R"(/opt/my\)", "tool", "a b", R"(say "hi" $HOME \ `)", ""));
    EXPECT_THAT(*splitExecLine("mail %f 100%% %U"), ElementsAre("mail", "100%"));
    EXPECT_THAT(*splitExecLine("x\"y z\"w"), ElementsAre("xy zw"));
    EXPECT_EQ(splitExecLine("say \"open"), std::nullopt);
    EXPECT_EQ(splitExecLine("   "), std::nullopt);
    EXPECT_EQ(splitExecLine("%f"), std::nullopt);
}

TEST(MessageHook, ACallerTextNeverBecomesAnOptionNorBreaksALine)
{
    EXPECT_EQ(MessageHook::callerArgument("--exec=rm -rf"), "exec=rm -rf");
    EXPECT_EQ(MessageHook::callerArgument(" - -0123"), "0123");
    EXPECT_EQ(MessageHook::callerArgument("---"), "Unknown");
    EXPECT_EQ(MessageHook::callerArgument("12\n--x"), "12--x");
}

TEST(QuietHours, TimesOfDayAndPeriodsThatCrossMidnight)
{
    EXPECT_EQ(CallScreening::minuteOfDay("22:30"), 22 * 60 + 30);
    EXPECT_EQ(CallScreening::minuteOfDay(" 7:05 "), 7 * 60 + 5);
    for (const char* bad : {"24:00", "7:5", "07:60", "ab:cd", "", "7", "-1:00"})
        EXPECT_EQ(CallScreening::minuteOfDay(bad), std::nullopt) << bad;
    EXPECT_TRUE(CallScreening::within(23 * 60, 22 * 60, 7 * 60));
    EXPECT_TRUE(CallScreening::within(0, 22 * 60, 7 * 60));
    EXPECT_FALSE(CallScreening::within(7 * 60, 22 * 60, 7 * 60)) << "the end is outside";
    EXPECT_TRUE(CallScreening::within(12 * 60, 9 * 60, 17 * 60));
    EXPECT_FALSE(CallScreening::within(12 * 60, 9 * 60, 9 * 60)) << "an empty period";
}

} // namespace
} // namespace corvel
