// Thirty kills of a busy Corvel; the same soak at length runs on demand:
// build/bench/corvel_crash_soak [--kills 1000] [--seed N].

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <iostream>
#include <random>

#include "ui/desktop/crash_soak.h"

namespace corvel::e2e {
namespace {

TEST(CrashSoakTest, AKillAtAnyMomentLosesNothingAcknowledged)
{
    const unsigned seed = std::random_device{}();
    const CrashReport report = crashSoak(30, seed, [](int, const std::string&) {});
    EXPECT_EQ(report.kills, 30) << "seed " << seed;
    EXPECT_EQ(report.faults(), 0) << "seed " << seed;
    for (const std::string& failure : report.failures) ADD_FAILURE() << failure;
}

} // namespace
} // namespace corvel::e2e

int main(int argc, char* argv[])
{
    QCoreApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
