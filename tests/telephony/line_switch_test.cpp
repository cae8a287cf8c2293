#include "telephony/line_switch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/recording_line_events.h"
#include "support/virtual_event_loop.h"
#include "telephony/testline/test_line.h"

namespace corvel {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

TEST(LineSwitch, TheChosenDeviceTakesTheOperationsAndOnlyItsEventsPassOn)
{
    testing::VirtualEventLoop loop;
    TestLine first(loop), second(loop);
    LineSwitch lines({&first, &second});
    testing::RecordingLineEvents events(loop);
    lines.setListener(&events);

    ASSERT_EQ(lines.devices().size(), 2u);
    EXPECT_EQ(lines.devices()[1].number, 1);
    lines.setLineOpen(true);
    lines.setDeviceNumber(1);
    EXPECT_FALSE(first.lineOpen()) << "the line left behind is closed";
    lines.setLineOpen(true);
    lines.setDigitMonitoring(true);
    EXPECT_TRUE(second.lineOpen());
    EXPECT_TRUE(second.digitMonitoring());
    EXPECT_EQ(lines.deviceNumber(), 1);

    first.setLineOpen(true);
    first.placeCall({});
    second.placeCall({});
    loop.runFor(1s);
    EXPECT_THAT(events.names(), ElementsAre("ring 1")) << "one ring: the chosen line's";
    lines.answer();
    EXPECT_TRUE(second.callActive());
    EXPECT_FALSE(first.callActive());

    lines.setDeviceNumber(7);
    EXPECT_EQ(lines.deviceNumber(), 1) << "no such device: nothing changes";
}

} // namespace
} // namespace corvel
