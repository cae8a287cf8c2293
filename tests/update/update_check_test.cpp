#include "update/update_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/headless_view.h"
#include "base/log.h"
#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

const std::string list = "https://corvel.test/versions.txt";
const std::string installer = "https://corvel.test/downloads/corvelupdate.deb";
// The SHA-256 of "installer bytes".
const std::string digest = "1f4d67fb1a3fb2d3dc5ae4ee0fd22a4ee1c96848eea2a7e6f36ceefa9d9b1ef5";

class UpdateCheckTest : public ::testing::Test, protected testing::AnswerPhoneHarness {
protected:
    void offer(const std::string& text) { http.replies[list] = {true, text, "", ""}; }
    // A run of Corvel: its first minute tick checks once.
    void minutePasses()
    {
        loop.runFor(60s);
    }
    std::string version(std::string_view key) const { return settings.read("withheld", "version", key, "0"); }
};

TEST_F(UpdateCheckTest, TheListIsReadWithoutRegardToCaseAndOfferedOnce)
{
    offer("other:2.0\r\nCORVEL:1.7.0\r\n");
    minutePasses();
    minutePasses();
    EXPECT_EQ(http.fetched.size(), 1u) << "once a run";
    ASSERT_EQ(view.questions.size(), 1u);
    EXPECT_EQ(view.questions[0], "There is a new version of Corvel available.\nYou have version " CORVEL_VERSION
                                 ", and the new version number\nis 1.7.0. Do you want me to download it now for you?");
    EXPECT_THAT(spoken(), ElementsAre("There is an update available, do you want to fetch it?"));
    EXPECT_EQ(version("1.7.0"), "1") << "remembered, whatever the answer";

    phone.updates.check(); // said No; the same version again
    EXPECT_EQ(view.questions.size(), 1u);
    offer("corvel:1.7.1");
    phone.updates.check();
    EXPECT_EQ(view.questions.size(), 2u) << "a later version is offered";
}

TEST_F(UpdateCheckTest, NothingIsOfferedWithoutTheKeyTheSameVersionOrAConnection)
{
    offer("ombrel:9.9.9");
    phone.updates.check();
    offer(std::string("corvel:") + CORVEL_VERSION);
    phone.updates.check();
    http.connected = false;
    minutePasses();
    EXPECT_TRUE(view.questions.empty());
    EXPECT_EQ(http.fetched.size(), 2u) << "offline: not even asked";
}

TEST_F(UpdateCheckTest, AVerifiedDownloadIsOpenedAndCorvelCloses)
{
    offer("corvel:1.7.0 sha256=" + digest);
    http.replies[installer] = {true, "installer bytes", digest, ""};
    view.yesNoAnswers = {true};
    phone.updates.check();
    std::ifstream saved(top / "cache" / "corvelupdate.deb");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(saved), {}), "installer bytes");
    EXPECT_THAT(shell.opened, ElementsAre("corvelupdate.deb"));
    EXPECT_THAT(spoken(), ::testing::Contains("Your file has now downloaded"));
    EXPECT_EQ(view.boxes.back().text,
              "The update has now downloaded. I will close this software and then start the update installing.");
    EXPECT_FALSE(phone.downloading);
    EXPECT_TRUE(view.programEnded);
}

TEST_F(UpdateCheckTest, AFailedOrMismatchingDownloadIsNeverStarted)
{
    for (const HttpReply& reply : {HttpReply{false, "", "", "404"}, HttpReply{true, "", "", ""},
                                   HttpReply{true, "something else", "0123", ""}}) {
        offer("corvel:1.7.0 sha256=" + digest);
        settings.deleteKey("withheld", "version", "1.7.0");
        http.replies[installer] = reply;
        view.yesNoAnswers = {true, true};
        phone.updates.check();
        EXPECT_FALSE(std::filesystem::exists(top / "cache" / "corvelupdate.deb"));
        EXPECT_TRUE(shell.opened.empty());
        EXPECT_FALSE(phone.downloading);
        EXPECT_FALSE(view.downloadShown);
        EXPECT_FALSE(view.programEnded);
        EXPECT_EQ(view.questions.back(), "Sorry, there was an error whilst downloading the update file. Do you want "
                                         "to connect to the Internet so that you can download the update file "
                                         "manually?");
    }
    const auto said = spoken();
    EXPECT_EQ(std::count(said.begin(), said.end(), "There was an error whilst downloading!"), 3);
}

TEST_F(UpdateCheckTest, TheDownloadWindowCountsMinutesAndClosingWaitsForIt)
{
    offer("corvel:1.7.0");
    http.replies[installer] = {true, "installer bytes", digest, ""};
    http.delays[installer] = 150s;
    view.yesNoAnswers = {true};
    bool refused = false;
    loop.schedule(90s, [&] { refused = !phone.requestClose(); });
    phone.updates.check();
    EXPECT_TRUE(refused) << "closing waits for the download";
    EXPECT_THAT(view.downloadTexts, ::testing::Contains(downloadText(0)));
    EXPECT_THAT(view.downloadTexts, ::testing::Contains(
                                        "Please wait whilst I download the latest update of Corvel for you. Time elapsed = 1 Minute"));
    EXPECT_THAT(view.downloadTexts, ::testing::Contains(HasSubstr("= 2 Minutes")));
    EXPECT_TRUE(view.programEnded);
}

// Unattended, nobody can agree to an update: a headless Corvel declines the offer, says so
// in its log and goes on running.
TEST(UnattendedUpdateCheck, AHeadlessCorvelDeclinesTheOfferAndFetchesNothingMore)
{
    std::vector<std::string> logged;
    log::setSink([&](log::Level, std::string_view line) { logged.emplace_back(line); });
    testing::VirtualEventLoop loop;
    testing::MemorySettingsStore settings;
    testing::RecordingAgent agent;
    testing::RecordingShell shell;
    testing::ScriptedHttp http;
    http.loop_ = &loop;
    http.replies[list] = {true, "corvel:99.0.0", "", ""};
    bool ended = false;
    HeadlessView view([&] { ended = true; });
    CharacterSpeech speech(agent, settings, loop, view);
    bool downloading = false;
    UpdateCheck updates(loop, http, settings, view, speech, shell, {"https://corvel.test", "/nonexistent"}, downloading,
                        [&] { ended = true; }, [] {});
    loop.runFor(61s); // Timer_hide's first tick checks
    log::setSink(nullptr);
    EXPECT_THAT(http.fetched, ElementsAre(list));
    EXPECT_TRUE(shell.opened.empty());
    EXPECT_FALSE(ended);
    loop.runFor(60s); // the ticks the timers had already asked for fall due, and do nothing
    EXPECT_THROW(loop.yield(), testing::VirtualLoopStalled) << "no window to hide: nothing ticks on";
    EXPECT_THAT(logged, ::testing::Contains(::testing::AllOf(HasSubstr("question \"NewVersion\""), HasSubstr("answered No"))));
}

} // namespace
} // namespace corvel
