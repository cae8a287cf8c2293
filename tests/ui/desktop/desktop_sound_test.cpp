// Corvel's own sound on the desktop's speaker, played through Qt Multimedia, while the sound
// server is killed and started again: a Corvel with windows (drawn offscreen) on the test line,
// whose caller hears the prompts on the speaker of a PulseAudio server of the test's own. The
// caller is driven over the session bus (the test runs under dbus-run-session) with gdbus, as
// another program drives it.

#include <gtest/gtest.h>

#include "support/wave_files.h"
#include "telephony/sip/e2e/sip_call_harness.h"

namespace corvel::e2e {
namespace {

constexpr double greetingHz = 1000;

// Calls a method of the test line's caller on the session bus; whether it was taken.
bool caller(const Corvel& corvel, std::vector<std::string> method)
{
    static int calls = 0;
    method.insert(method.begin(), {findProgram("gdbus")->string(), "call", "--session", "--dest", "org.corvel.Corvel",
                                   "--object-path", "/org/corvel/Corvel/TestLine", "--method"});
    Process gdbus(method, {}, corvel.root() / ("gdbus-" + std::to_string(++calls) + ".out"));
    return gdbus.wait(10s) == 0;
}

// Since `from`, the greeting's tone came out of the speaker.
bool greetingHeard(const DesktopSound& desktop, std::size_t from)
{
    const auto heard = desktop.heard();
    const std::vector<std::int16_t> since(heard.begin() + static_cast<long>(std::min(from, heard.size())), heard.end());
    return rms(since) > 300 && toneShare(since, greetingHz, DesktopSound::rate) > 0.5;
}

TEST(DesktopSoundTest, PromptsAreHeardAgainAfterTheSoundServerIsKilledMidPromptAndStartedAgain)
{
    if (!findProgram("gdbus")) GTEST_SKIP() << "gdbus is not installed (Debian package libglib2.0-bin): no caller to drive";
    Corvel corvel;
    DesktopSound desktop(corvel);
    if (!desktop.ready()) GTEST_SKIP() << "no PulseAudio server could be started (Debian package pulseaudio): " << desktop.log();
    corvel.set("data", "rings", "1");
    corvel.set("data", "modem", "0");
    corvel.set("data", "noagent", "True"); // the character keeps quiet: the speaker plays the prompts alone
    const auto greeting = corvel.root() / "greeting.wav";
    testing::writeTone(greeting, 4.0, greetingHz);
    for (const char* key : {"morning", "afternoon", "evening"}) corvel.set("audio", key, greeting.string());
    ASSERT_TRUE(corvel.startOnTheDesktop()) << corvel.log();

    ASSERT_TRUE(caller(corvel, {"org.corvel.Corvel.TestLine.Ring", "withheld", "", ""})) << corvel.log();
    ASSERT_TRUE(eventually([&] { return greetingHeard(desktop, 0); }, 30s)) << corvel.log() << desktop.log();
    ASSERT_TRUE(desktop.restart()) << desktop.log(); // within the greeting's four seconds
    const std::size_t restarted = desktop.heard().size();
    EXPECT_TRUE(caller(corvel, {"org.corvel.Corvel.TestLine.HangUp"})) << corvel.log();

    // The next caller hears their greeting; the line reopens after a call, so the ring is tried
    // until it is taken.
    ASSERT_TRUE(eventually([&] { return caller(corvel, {"org.corvel.Corvel.TestLine.Ring", "withheld", "", ""}); }, 15s))
        << corvel.log();
    EXPECT_TRUE(eventually([&] { return greetingHeard(desktop, restarted); }, 30s)) << corvel.log() << desktop.log();
    EXPECT_TRUE(corvel.running()) << corvel.log();
}

} // namespace
} // namespace corvel::e2e
