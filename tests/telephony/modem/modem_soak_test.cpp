// A short soak: thirty calls of every kind over the modem driver and the emulator.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "modem_soak.h"

namespace corvel::testing {
namespace {

TEST(ModemSoak, ThirtyCallsOfEveryKindLoseNothingAndKeepTheDescriptorsFlat)
{
    const ModemSoakReport report = modemSoak(30, 30, [](int, const std::string&) {});
    EXPECT_EQ(report.calls, 30);
    EXPECT_THAT(report.failures, ::testing::IsEmpty());
    EXPECT_LE(report.descriptorsAtEnd, report.descriptorsAfterFirst) << "most " << report.descriptorsMost;
}

} // namespace
} // namespace corvel::testing
