#include "messages/message_playback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using ::testing::ElementsAre;

class MessagePlaybackTest : public ::testing::Test, protected testing::AnswerPhoneHarness {
protected:
    MessagePlayback& playback = phone.playback;

    std::vector<std::string> files() const
    {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(data)) {
            const std::string name = entry.path().filename();
            if (name.ends_with(".wav") && name != "space.wav") names.push_back(name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }
};

TEST_F(MessagePlaybackTest, ANewMessageIsPlayedFiledAsOldAndTheRestMoveUp)
{
    writeFile("1-1-0123.wav", "first");
    writeFile("1-2-Withheld.wav", "second");
    writeFile("2-1-0999.wav", "old");
    writeFile("0123.gif", "GIF89a caller");
    phone.newCalls.count();
    playback.playNew();
    EXPECT_THAT(files(), ElementsAre("1-1-Withheld.wav", "2-1-0999.wav", "2-2-0123.wav", "temp.wav"));
    EXPECT_EQ(readFile("temp.wav"), "first");
    EXPECT_THAT(speaker.played, ElementsAre("temp.wav"));
    EXPECT_EQ(view.text("lab_number"), "0123");
    EXPECT_EQ(view.picture("photo"), "0123.gif");
    EXPECT_EQ(counter("new1", "new2"), "01");
    EXPECT_EQ(counter("old1", "old2"), "02");
    EXPECT_EQ(counter("newcall1", "newcall2"), "00");
}

TEST_F(MessagePlaybackTest, AWithheldCallersMessageShowsTheWithheldPicture)
{
    writeFile("1-1-Withheld.wav", "message");
    playback.playNew();
    EXPECT_EQ(view.text("lab_number"), "Withheld");
    EXPECT_EQ(view.picture("photo"), "withheld.gif");
}

TEST_F(MessagePlaybackTest, MessagesBeyondAnEmptyFirstSlotAreNotThere)
{
    writeFile("1-2-0123.wav", "");
    writeFile("2-2-0123.wav", "");
    playback.playNew();
    playback.playOld();
    EXPECT_THAT(spoken(), ElementsAre("You dont have any new messages!", "You dont have any old messages waiting!"));
    EXPECT_THAT(speaker.played, ElementsAre());
}

TEST_F(MessagePlaybackTest, OldMessagesAreDeletedOrKeptOnTheDesktop)
{
    writeFile("2-1-a.wav", "a");
    writeFile("2-2-b.wav", "b");
    writeFile("2-3-c.wav", "c");
    view.yesNoAnswers = {false, false, true};
    playback.playOld();
    playback.playOld();
    EXPECT_EQ(view.questions[0], "Would you like to delete this voice message? Selecting no will place the wave "
                                 "file on to your desktop for future listening.");
    std::ifstream first(desktop / "message1.wav"), second(desktop / "message2.wav");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(first), {}), "a");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(second), {}), "b");
    EXPECT_THAT(files(), ElementsAre("2-1-c.wav", "temp.wav"));

    playback.playOld();
    EXPECT_THAT(files(), ElementsAre("temp.wav"));
    EXPECT_THAT(speaker.played, ElementsAre("temp.wav", "temp.wav", "temp.wav", "space.wav"));
}

TEST_F(MessagePlaybackTest, NothingHappensWhileACallIsBeingEnded)
{
    writeFile("1-1-0123.wav", "");
    view.busy = true;
    playback.playNew();
    playback.playOld();
    EXPECT_THAT(files(), ElementsAre("1-1-0123.wav"));
    EXPECT_TRUE(spoken().empty());
}

} // namespace
} // namespace corvel
