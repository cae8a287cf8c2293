#include "records/caller_pictures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

class CallerPicturesTest : public ::testing::Test, protected testing::AnswerPhoneHarness {
protected:
    CallerPicturesTest() { std::ofstream(top / "chosen.gif", std::ios::binary) << "GIF89a chosen"; }

    CallerPictures& pictures = phone.pictures;

    void type(std::string number) { view.texts["txt_phone"] = std::move(number); }
    void addChosen(std::string number)
    {
        type(std::move(number));
        view.fileAnswers = {(top / "chosen.gif").string()};
        pictures.add();
    }
};

TEST_F(CallerPicturesTest, AddingCopiesThePictureUnderTheNumberAndPreviewsIt)
{
    addChosen("01234-567");
    EXPECT_EQ(readFile("piclist.txt"), "01234567\r\n");
    EXPECT_EQ(readFile("01234567.gif"), "GIF89a chosen");
    EXPECT_EQ(view.text("txt_phone"), "01234567");
    EXPECT_EQ(view.picture("photo"), "01234567.gif");
    EXPECT_EQ(view.text("lab_number"), "Preview");
    EXPECT_TRUE(view.displayShown);
}

TEST_F(CallerPicturesTest, ALongerNumberContainingTheTypedOneCountsAsItsAssociation)
{
    writeFile("piclist.txt", "01234567\r\n");
    addChosen("1234");
    EXPECT_EQ(readFile("piclist.txt"), "01234567\r\n");
    EXPECT_THAT(spoken(), ElementsAre("There is already an association to this number!"));

    type("1234");
    pictures.remove();
    EXPECT_EQ(readFile("piclist.txt"), "") << "deleting 1234 removes the line 01234567";
    EXPECT_EQ(view.beeps, 1);
}

TEST_F(CallerPicturesTest, NothingTypedOrNothingChosenAddsNothing)
{
    addChosen("");
    view.fileAnswers.clear();
    type("0123");
    pictures.add(); // the file dialog is cancelled
    EXPECT_FALSE(has("piclist.txt"));
    EXPECT_THAT(spoken(), ElementsAre("Please enter a telephone number!", "You did not select a file!"));
    ASSERT_EQ(view.boxes.size(), 2u);
    EXPECT_EQ(view.boxes[0].text, "You didn`t enter a telephone number. Please do this first");
    EXPECT_EQ(view.boxes[1].text, "You didn`t select a file. Please try again!");
}

TEST_F(CallerPicturesTest, DeletingKeepsOtherEntriesAndAStaleScratchFile)
{
    writeFile("piclist.txt", "111\r\n222\r\n333\r\n");
    writeFile("222.gif", "GIF89a");
    writeFile("templist.txt", "stale\r\n"); // left by a delete that was cut short
    type("2-2-2");
    pictures.remove();
    EXPECT_EQ(readFile("piclist.txt"), "stale\r\n111\r\n333\r\n");
    EXPECT_FALSE(has("222.gif"));
    EXPECT_FALSE(has("templist.txt"));

    type("-"); // no number at all: nothing matches, nothing is lost
    pictures.remove();
    EXPECT_EQ(readFile("piclist.txt"), "stale\r\n111\r\n333\r\n");
    EXPECT_EQ(view.boxes.back().text, "The number you entered doesn`t have a picture associated with it, sorry");
}

TEST_F(CallerPicturesTest, SettingAndRemovingByNumberListItOnceAndRefuseWhatCannotNameAFile)
{
    writeFile("piclist.txt", "01234567\r\n");
    EXPECT_TRUE(pictures.set("1234", top / "chosen.gif")) << "a longer listed number is another number";
    EXPECT_TRUE(pictures.set("12-34", top / "chosen.gif"));
    EXPECT_EQ(readFile("piclist.txt"), "01234567\r\n1234\r\n");
    EXPECT_EQ(readFile("1234.gif"), "GIF89a chosen");
    EXPECT_FALSE(pictures.set("555", top / "missing.gif"));
    for (const char* hostile : {"", "..", "../555", "5/5", "5\r\n5"}) {
        EXPECT_FALSE(pictures.set(hostile, top / "chosen.gif")) << hostile;
        EXPECT_FALSE(pictures.remove(hostile)) << hostile;
    }
    EXPECT_EQ(readFile("piclist.txt"), "01234567\r\n1234\r\n");

    writeFile("templist.txt", "1234\r\n"); // a scripted delete starts its scratch file afresh
    EXPECT_TRUE(pictures.remove("1234"));
    EXPECT_FALSE(pictures.remove("1234"));
    EXPECT_EQ(readFile("piclist.txt"), "01234567\r\n");
    EXPECT_FALSE(has("1234.gif"));
}

TEST_F(CallerPicturesTest, BrowsingWrapsAtBothEnds)
{
    writeFile("piclist.txt", "111\r\n222\r\n333\r\n");
    std::vector<std::string> shown;
    const auto step = [&](bool forward) {
        if (forward) pictures.next();
        else pictures.previous();
        shown.push_back(view.text("txt_phone"));
    };
    step(true); // nothing typed: the first
    step(true);
    step(true);
    step(true);
    step(false);
    step(false);
    EXPECT_THAT(shown, ElementsAre("111", "222", "333", "111", "333", "222"));
    EXPECT_EQ(view.text("lab_number"), "222");
}

TEST_F(CallerPicturesTest, ThePopUpClosesAfterFifteenSecondsOrOnAClick)
{
    CallerDisplay& display = phone.display;
    display.show();
    loop.runFor(10s);
    display.show(); // a new showing starts a new period
    loop.runFor(14999ms);
    EXPECT_TRUE(view.displayShown);
    loop.runFor(1ms);
    EXPECT_FALSE(view.displayShown);
    display.show();
    display.clicked();
    EXPECT_FALSE(view.displayShown);

    EXPECT_EQ(displayLayout(1500, 900, 300).width, CallerDisplay::minimumWidth);
    const DisplayLayout wide = displayLayout(4000, 900, 300);
    EXPECT_EQ(wide.width, 4000);
    EXPECT_EQ(wide.labelTop, 900);
    EXPECT_EQ(wide.height, 1200);
}

} // namespace
} // namespace corvel
