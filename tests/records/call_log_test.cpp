#include "records/call_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using ::testing::ElementsAre;

class CallLogTest : public ::testing::Test, protected testing::AnswerPhoneHarness {};

TEST_F(CallLogTest, RecentCallsShowNewestFirstOrNoCallData)
{
    EXPECT_EQ(phone.callLog.recentCalls(), "No call data");
    writeFile("calls.txt", "first\r\n keyed - 012, on x\r\nlast\r\n");
    EXPECT_EQ(phone.callLog.recentCalls(), "last\r\n keyed - 012, on x\r\nfirst\r\n");
}

TEST_F(CallLogTest, ResetAsksFirstAndNoKeepsTheLog)
{
    writeFile("calls.txt", "a call\r\n");
    view.yesNoAnswers = {false, true};
    phone.callLog.reset();
    EXPECT_EQ(readFile("calls.txt"), "a call\r\n");
    EXPECT_EQ(view.text("txt_reccalls"), "a call\r\n");
    phone.callLog.reset();
    EXPECT_FALSE(has("calls.txt"));
    EXPECT_EQ(view.text("txt_reccalls"), "No call data");
    EXPECT_THAT(spoken(), ElementsAre("Are you sure about this?", "Are you sure about this?"));
    EXPECT_EQ(view.questions[0], "Are you sure you want to delete this information?");
}

TEST_F(CallLogTest, TheNewCallsCounterShowsTwoPlaces)
{
    std::vector<std::string> shown;
    for (int call = 1; call <= 100; ++call) {
        phone.newCalls.count();
        if (call == 9 || call == 10 || call == 100) shown.push_back(counter("newcall1", "newcall2"));
    }
    phone.newCalls.reset();
    shown.push_back(counter("newcall1", "newcall2"));
    EXPECT_THAT(shown, ElementsAre("09", "10", "10", "00"));
}

TEST_F(CallLogTest, TheTimeIsOnATwelveHourClockWithTheLocalesDesignators)
{
    const testing::FixedLocale english;
    using std::chrono::hh_mm_ss;
    using std::chrono::seconds;
    EXPECT_EQ(timeWithDesignator(hh_mm_ss<seconds>(seconds{0}), english), "12:00:00 AM");
    EXPECT_EQ(timeWithDesignator(hh_mm_ss<seconds>(seconds{12 * 3600 + 5}), english), "12:00:05 PM");
    EXPECT_EQ(timeWithDesignator(hh_mm_ss<seconds>(seconds{21 * 3600 + 5 * 60 + 3}), english), "9:05:03 PM");
}

} // namespace
} // namespace corvel
