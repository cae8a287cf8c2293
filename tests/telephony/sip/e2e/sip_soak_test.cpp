// A short soak: thirty calls of every kind a caller makes, one after another, to one Corvel.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sip_soak.h"

namespace corvel::e2e {
namespace {

TEST(SipSoak, ThirtyCallsOfEveryKindLoseNothingAndKeepTheDescriptorsFlat)
{
    if (!findProgram("sipp")) GTEST_SKIP() << "SIPp is not installed (Debian package sip-tester): no SIP call is tried";
    Corvel corvel;
    prepareForSoak(corvel);
    ASSERT_TRUE(corvel.start()) << corvel.log();

    const SoakReport report = soak(corvel, 30, 30, [](int, const std::string&) {});
    EXPECT_TRUE(report.corvelAlive);
    EXPECT_EQ(report.calls, 30);
    EXPECT_THAT(report.failures, ::testing::IsEmpty()) << corvel.log();
    EXPECT_LE(report.descriptorsAtEnd, report.descriptorsAfterFirst + 2) << "most " << report.descriptorsMost;
}

} // namespace
} // namespace corvel::e2e
