#include "records/caller_id.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "messages/message_store.h"
#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using namespace std::chrono;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using Identity = ScriptedCall::Identity;

// A call rings at 21:05:00 on 14 November 2026; its caller ID comes three seconds later.
class CallerIdTest : public ::testing::Test, protected testing::AnswerPhoneHarness {
protected:
    CallerIdTest() : testing::AnswerPhoneHarness(local_days{year{2026} / 11 / 14} + 21h + 5min) {}

    void ring(Identity identity, std::string number = "", std::string name = "")
    {
        ScriptedCall call;
        call.identity = identity;
        call.number = std::move(number);
        call.name = std::move(name);
        line.placeCall(call);
        loop.runFor(4s);
        line.drop();
    }
    std::vector<std::string> logLines() const { return folder.readLines("calls.txt"); }

    CallState& call = phone.calls.state();
};

TEST_F(CallerIdTest, ADirectoryNameIsSpokenAndTheNumberLoggedAsDelivered)
{
    writeFile("directory.ini", "01234567890,Jane\r\n");
    ring(Identity::Number, "01234-567-890", "J SMITH");
    EXPECT_THAT(spoken(), ElementsAre("Jane"));
    EXPECT_THAT(logLines(), ElementsAre("01234-567-890, on 14 November 2026, at 9:05:03 PM"));
    EXPECT_EQ(view.text("lab_number"), "01234-567-890");
    EXPECT_EQ(view.text("txt_reccalls"), "01234-567-890, on 14 November 2026, at 9:05:03 PM\r\n");
    EXPECT_EQ(call.currentCaller, "01234-567-890");
    EXPECT_TRUE(call.callerIdReceived);
    EXPECT_FALSE(call.noCallerNumber);
}

TEST_F(CallerIdTest, WithoutADirectoryEntryTheNetworkNameOrTheDigitsAreSpoken)
{
    writeFile("directory.ini", "999,Someone else\r\n");
    ring(Identity::Number, "0123", "Bob Jones");
    ring(Identity::Number, "0123", "PrIvAtE caller");
    ring(Identity::Number, "0123", "");
    EXPECT_THAT(spoken(), ElementsAre(", Bob Jones", ", 0 1 2 3 ", ", 0 1 2 3 "));
}

TEST_F(CallerIdTest, AShortNumberShowsAndLogsTheLowerCasedName)
{
    call.currentCaller = "before";
    ring(Identity::Number, "12", "ACME Ltd");
    EXPECT_EQ(view.text("lab_number"), "acme ltd");
    EXPECT_THAT(logLines(), ElementsAre("acme ltd, on 14 November 2026, at 9:05:03 PM"));
    EXPECT_EQ(call.currentCaller, "before");
}

TEST_F(CallerIdTest, WithheldAndUnavailableCallersAreLoggedAndLabelledWithheld)
{
    ring(Identity::Withheld);
    EXPECT_EQ(view.picture("photo"), "withheld.gif");
    EXPECT_EQ(call.currentCaller, "Withheld");
    ring(Identity::Unavailable);
    EXPECT_EQ(view.picture("photo"), "default.gif");
    EXPECT_EQ(view.text("lab_number"), "Withheld");
    EXPECT_EQ(call.currentCaller, "Unavailable");
    EXPECT_TRUE(call.noCallerNumber);
    EXPECT_THAT(spoken(), ElementsAre(", Withheld!", ", Number Unavailable!"));
    EXPECT_THAT(logLines(), ElementsAre("Withheld, on 14 November 2026, at 9:05:03 PM",
                                        "Unavailable, on 14 November 2026, at 9:05:07 PM"));
    EXPECT_EQ(view.text("txt_reccalls").substr(0, 11), "Unavailable") << "newest first";
}

TEST_F(CallerIdTest, TheCallersPictureShowsWhenItLoadsAndTheDefaultOtherwise)
{
    writeFile("0123456.gif", "GIF89a caller");
    writeFile("0777.gif", "not a picture");
    ring(Identity::Number, "0123-456", "");
    EXPECT_EQ(view.picture("photo"), "0123456.gif");
    ring(Identity::Number, "0777", "");
    EXPECT_EQ(view.picture("photo"), "default.gif");
}

TEST_F(CallerIdTest, DuringAnAnsweredCallOnlyTheCharacterAndTheCallTimerReact)
{
    call.callInProgress = true;
    call.currentCaller = "0123";
    ring(Identity::Withheld);
    EXPECT_THAT(agent.calls, ElementsAre("Show", "Play Alert", "Show")) << "the ring, then the caller ID";
    EXPECT_GE(call.idleCountdown, 179) << "restarted at 180 by the caller ID a second ago";
    EXPECT_EQ(call.currentCaller, "0123");
    EXPECT_FALSE(has("calls.txt"));
}

// The number and name come from a stranger: nothing they hold may reach outside the data
// folder, break the log or make an impossible file name.
TEST_F(CallerIdTest, HostileCallerTextStaysInsideTheDataFolderAndOnOneLogLine)
{
    const std::vector<std::string> hostile = {
        "../../../etc/passwd", "/tmp/x", std::string("12\0/..", 6), "0123\r\nWithheld, on forged", "\x1b[2J\x07",
        "\xff\xfe\xc3", std::string(10000, '9'), "..",
        // NEL, the line and paragraph separators and a right-to-left override: line breaks
        // and reversals to anything that reads text the Unicode way.
        "0123\xc2\x85Withheld", "Jane\xe2\x80\xa8Withheld, on forged", "0123\xe2\x80\xa9x", "\xe2\x80\xae" "0987",
    };
    writeFile("directory.ini", "5555,Carol\r\n");
    std::size_t calls = 0;
    for (const std::string& text : hostile) {
        SCOPED_TRACE(text.substr(0, 20));
        ring(Identity::Number, text, text);
        EXPECT_EQ(logLines().size(), ++calls) << "one call, one line";
        for (const char* lineBreak : {"\r", "\n", "\xc2\x85", "\xe2\x80\xa8", "\xe2\x80\xa9", "\xe2\x80\xae"}) {
            EXPECT_EQ(logLines().back().find(lineBreak), std::string::npos);
            EXPECT_EQ(view.text("lab_number").find(lineBreak), std::string::npos);
        }
        EXPECT_LE(call.currentCaller.size(), CallerId::maxNumberBytes);
        const std::string message = MessageStore::fileName(MessageStore::Kind::New, 98, call.currentCaller);
        EXPECT_LE(message.size(), DataFolder::maxNameBytes);
        EXPECT_EQ(message.find('/'), std::string::npos);
        EXPECT_TRUE(std::ofstream(data / (message + ".part")).good()) << "a message from this caller can be recorded";
        std::filesystem::remove(data / (message + ".part"));
        for (const std::string& said : spoken()) EXPECT_EQ(said.find('\\'), std::string::npos);
    }
    std::vector<std::string> beside;
    for (const auto& entry : std::filesystem::directory_iterator(top)) beside.push_back(entry.path().filename());
    EXPECT_THAT(beside, ElementsAre("data")) << "nothing was written outside the data folder";
    EXPECT_EQ(MessageStore::fileName(MessageStore::Kind::New, 1, "012"), "1-1-012.wav");
}

} // namespace
} // namespace corvel
