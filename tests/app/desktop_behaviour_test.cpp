// The answer phone as the desktop sees it: start-up, the options, the window's sizes, the tray
// menu, the prompts page, the web link and closing.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "base/log.h"
#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class DesktopTest : public ::testing::Test, protected testing::AnswerPhoneHarness {
protected:
    std::string dataValue(std::string_view key) const { return settings.read("withheld", "data", key, "(none)"); }
    std::string audio(std::string_view key) const { return settings.read("withheld", "audio", key, "(none)"); }
};

TEST_F(DesktopTest, AFirstRunOnAnEmptyStoreShowsEveryDefault)
{
    phone.startUp();
    for (const char* box : {"chk_ansa", "chk_opt1", "chk_opt2", "chk_opt3", "chk_balloon", "chk_effects", "chk_notify"})
        EXPECT_TRUE(view.isChecked(box)) << box;
    for (const char* box : {"chk_allcalls", "chk_opt4", "chk_hide", "chk_noagent", "chk_lww"})
        EXPECT_FALSE(view.isChecked(box)) << box;
    EXPECT_EQ(view.text("txt_rings"), "5");
    EXPECT_EQ(view.text("txt_transfer"), "20");
    EXPECT_EQ(view.text("txt_vol"), "10");
    EXPECT_EQ(view.text("txt_morning"), (data / "goodmorning.wav").string());
    EXPECT_EQ(view.placement.left, 200);
    EXPECT_EQ(view.placement.top, 200);
    EXPECT_EQ(view.listIndexes["SSTab1"], 1) << "the line list's page";
    ASSERT_EQ(view.boxes.size(), 1u);
    EXPECT_THAT(view.boxes[0].text, HasSubstr("you need to select your modem"));
    EXPECT_EQ(dataValue("phonyused"), "1");
    EXPECT_EQ(dataValue("character"), "Phony");
    EXPECT_THAT(spoken(), ElementsAre("You need to set up Corvel for the first time!", "Welcome to corvel!"));
    EXPECT_EQ(view.trayTip, "Corvel, version " CORVEL_VERSION);
    EXPECT_EQ(view.trayMenu.size(), 11u);
    EXPECT_EQ(counter("newcall1", "newcall2"), "00") << "the new-calls counter is never blank";
}

TEST_F(DesktopTest, MessagesBeyondAGapAreCountedFromTheStart)
{
    writeFile("1-2-0123.wav", "RIFF");
    writeFile("1-3-0456.wav", "RIFF");
    phone.startUp();
    EXPECT_EQ(counter("new1", "new2"), "02");
    EXPECT_TRUE(has("1-1-0123.wav"));
}

TEST_F(DesktopTest, AChosenLineIsOpenedAndTheWindowShrunkAtStart)
{
    settings.set("modem", "0");
    settings.set("noagent", "True");
    settings.set("allcalls", "true"); // not exactly "True"
    settings.write("Withheld", "data", "frmx", "450");
    phone.startUp();
    EXPECT_TRUE(view.boxes.empty());
    EXPECT_TRUE(line.lineOpen());
    EXPECT_EQ(view.placement.height, WindowBehaviour::shrunkHeight);
    EXPECT_EQ(view.placement.left, 450);
    EXPECT_FALSE(view.isChecked("chk_allcalls"));
    EXPECT_EQ(dataValue("phonyused"), "(none)") << "no character, nothing remembered about it";
    EXPECT_THAT(agent.calls, ::testing::IsEmpty());
}

TEST_F(DesktopTest, TheStoredLineIsFoundByItsNameAndAnAbsentOneOpensNothing)
{
    settings.set("noagent", "True");
    settings.set("modem", "3"); // where it stood in a longer list
    settings.set("modemname", "Test line");
    line.setLineOpen(false);
    phone.startUp();
    EXPECT_TRUE(line.lineOpen());
    EXPECT_EQ(line.deviceName(), "Test line");
    EXPECT_EQ(view.listIndexes["ComboDevice"], 0);
    EXPECT_TRUE(view.boxes.empty());

    // The modem is unplugged: the list no longer has it.
    settings.set("modem", "0");
    settings.set("modemname", "CX93001-EIS_V0.2013-V92 (/dev/ttyACM0)");
    line.setLineOpen(false);
    phone.startUp();
    EXPECT_FALSE(line.lineOpen()) << "no other line opened in its place";
    ASSERT_EQ(view.boxes.size(), 1u);
    EXPECT_THAT(view.boxes[0].text, HasSubstr("you need to select your modem"));
    EXPECT_EQ(dataValue("modemname"), "CX93001-EIS_V0.2013-V92 (/dev/ttyACM0)") << "kept for when it is back";
    EXPECT_EQ(dataValue("modem"), "0");
}

TEST_F(DesktopTest, TickingTakeAMessageAlsoTicksAnswerAllCalls)
{
    view.setChecked("chk_ansa", true);
    phone.options.checkBoxClicked("chk_ansa");
    EXPECT_TRUE(view.isChecked("chk_allcalls"));
    EXPECT_EQ(dataValue("ansa"), "True");
    EXPECT_EQ(dataValue("allcalls"), "True");
    view.setChecked("chk_ansa", false);
    phone.options.checkBoxClicked("chk_ansa");
    EXPECT_TRUE(view.isChecked("chk_allcalls"));
    EXPECT_EQ(dataValue("ansa"), "False");
}

TEST_F(DesktopTest, ACaptionClickedTwiceRestoresItsBoxAndKey)
{
    view.setChecked("chk_opt4", false);
    phone.options.captionClicked("Label21");
    EXPECT_EQ(dataValue("ansall"), "True");
    phone.options.captionClicked("Label21");
    EXPECT_FALSE(view.isChecked("chk_opt4"));
    EXPECT_EQ(dataValue("ansall"), "False");
    phone.options.captionClicked("Label41");
    EXPECT_THAT(spoken(), ElementsAre("Okay!"));
}

TEST_F(DesktopTest, SteppersStopAtTheirBoundsButTheTransferTimeHasNone)
{
    view.setText("txt_rings", "1");
    phone.options.stepClicked("Command2");
    view.setText("txt_vol", "10");
    phone.options.stepClicked("Command26");
    view.setText("txt_transfer", "20");
    phone.options.stepClicked("Command6");
    phone.options.stepClicked("Command6");
    EXPECT_EQ(dataValue("rings"), "1");
    EXPECT_EQ(dataValue("vol"), "10");
    EXPECT_EQ(dataValue("transfer"), "22");
    EXPECT_THAT(spoken(), ElementsAre("1", "10", "21", "22")) << "the value is said even at a bound";
    EXPECT_EQ(std::count(agent.calls.begin(), agent.calls.end(), "Stop"), 8) << "each press stops the character";
}

TEST_F(DesktopTest, ExpandingNearTheBottomMovesUpAndShrinkingMovesBack)
{
    view.placement.top = 200;
    phone.window.expand();
    EXPECT_EQ(view.placement.top, 200) << "room enough: no move";
    EXPECT_FALSE(phone.window.expanded());
    EXPECT_EQ(view.heights.front(), 2590);
    EXPECT_EQ(view.heights.back(), WindowBehaviour::expandedHeight);
    phone.window.shrink();
    EXPECT_EQ(view.placement.top, 200);

    view.placement.top = 9000; // 9000 + 6135 runs past the 10800-twip screen
    phone.window.expand();
    EXPECT_EQ(view.placement.top, 10800 - 6135);
    EXPECT_EQ(settings.read("withheld", "data", "frmy", ""), "4665");
    phone.window.toggleSize();
    EXPECT_EQ(view.placement.height, WindowBehaviour::shrunkHeight);
    EXPECT_EQ(view.placement.top, 9000);
    EXPECT_EQ(settings.read("withheld", "data", "frmy", ""), "9000");
}

TEST_F(DesktopTest, TheTrayMenuHidesShowsTogglesAndExits)
{
    view.trayShown = true;
    phone.trayMenuClicked("min");
    EXPECT_FALSE(view.windowVisible);
    EXPECT_EQ(dataValue("hide"), "True");
    phone.trayMenuClicked("menu");
    EXPECT_TRUE(view.windowVisible);
    EXPECT_EQ(dataValue("hide"), "False");
    EXPECT_EQ(view.placement.height, WindowBehaviour::expandedHeight);
    phone.trayMenuClicked("menu");
    EXPECT_EQ(view.placement.height, WindowBehaviour::shrunkHeight);
    phone.trayMenuClicked("about");
    EXPECT_EQ(view.listIndexes["SSTab1"], 7);
    phone.trayMenuClicked("exit");
    EXPECT_THAT(spoken(), ::testing::Contains("Please wait!"));
    EXPECT_TRUE(view.programEnded);
}

TEST_F(DesktopTest, TheHideTimerTouchesTheWindowOnlyWhenHideSaysOtherwise)
{
    using namespace std::chrono_literals;
    http.connected = false;
    view.trayShown = true;
    loop.runFor(3min + 1s);
    EXPECT_EQ(view.visibilitySets, 0) << "a shown window is not raised over the user's work every minute";
    settings.set("hide", "True");
    loop.runFor(3min);
    EXPECT_FALSE(view.windowVisible);
    EXPECT_EQ(view.visibilitySets, 1);
    settings.set("hide", "False");
    loop.runFor(3min);
    EXPECT_TRUE(view.windowVisible);
    EXPECT_EQ(view.visibilitySets, 2);
}

// GNOME without its tray extension, or an autostart that runs before the panel.
TEST_F(DesktopTest, WithoutANotificationAreaTheWindowIsNeverHidden)
{
    std::vector<std::string> lines;
    log::setSink([&](log::Level, std::string_view line) { lines.emplace_back(line); });
    view.notificationArea = false;
    view.windowVisible = false; // not shown yet
    settings.set("hide", "True");
    phone.startUp();
    EXPECT_TRUE(view.windowVisible) << "a start with \"hide\" shows the window";
    view.windowMinimised = false;
    phone.window.hideToTray();
    EXPECT_TRUE(view.windowMinimised);
    view.windowMinimised = false;
    phone.trayMenuClicked("min");
    EXPECT_TRUE(view.windowMinimised);
    loop.runFor(std::chrono::minutes(3));
    log::setSink({});
    EXPECT_TRUE(view.windowVisible);
    EXPECT_THAT(lines, Contains(HasSubstr("\"hide\" is set, but there is no notification area")));
    EXPECT_THAT(lines, Contains(HasSubstr("no notification area to bring the window back from: it is minimised")));

    // With a notification area the same start keeps the window hidden.
    view.notificationArea = true;
    view.windowVisible = false;
    phone.startUp();
    EXPECT_FALSE(view.windowVisible);
}

TEST_F(DesktopTest, ClosingIsRefusedWhileDownloadingEveryTime)
{
    phone.downloading = true;
    EXPECT_FALSE(phone.requestClose());
    EXPECT_FALSE(phone.requestClose());
    EXPECT_FALSE(view.programEnded);
    EXPECT_EQ(view.boxes.size(), 2u);
    EXPECT_EQ(view.boxes[0].text, "I`m still downloading. Please wait until I have finished.");
    phone.downloading = false;
    EXPECT_TRUE(phone.requestClose());
    EXPECT_TRUE(view.programEnded);
    EXPECT_FALSE(view.trayShown);
}

TEST_F(DesktopTest, TheAutostartEntryIsKeptHiddenWhenSwitchedOff)
{
    view.setChecked("chk_lww", true);
    phone.options.checkBoxClicked("chk_lww");
    EXPECT_TRUE(autostart.enabled());
    view.setChecked("chk_lww", false);
    phone.options.checkBoxClicked("chk_lww");
    ASSERT_TRUE(std::filesystem::exists(top / "autostart" / "corvel.desktop"));
    std::ifstream entry(top / "autostart" / "corvel.desktop");
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(entry), {}), HasSubstr("\nHidden=true\n"));
    phone.startUp();
    EXPECT_FALSE(view.isChecked("chk_lww"));
}

TEST_F(DesktopTest, ChangingAPromptOpensTheNotesAndKeepsTheOldFileOnCancel)
{
    phone.promptFiles.loadIntoFields();
    phone.promptFiles.clicked("Command16"); // evening's Change; the dialog is cancelled
    EXPECT_THAT(shell.opened, ElementsAre("notes.txt"));
    EXPECT_EQ(audio("evening"), "(none)");
    EXPECT_THAT(spoken(), ElementsAre("You did not select a file!"));

    view.fileAnswers = {"/home/me/My Prompts/good evening.wav"};
    phone.promptFiles.clicked("Command16");
    EXPECT_EQ(audio("evening"), "/home/me/My Prompts/good evening.wav");
    EXPECT_EQ(view.text("txt_evening"), "/home/me/My Prompts/good evening.wav");
    phone.promptFiles.clicked("Command23"); // evening's Play
    EXPECT_THAT(speaker.played, ElementsAre("good evening.wav"));
}

TEST_F(DesktopTest, TheWebLinkNeedsABrowser)
{
    phone.webLinkClicked();
    EXPECT_THAT(shell.opened, ElementsAre("browser.desktop https://corvel.test/corvel.htm"));
    shell.browserStarts = false;
    phone.webLinkClicked();
    shell.browser.reset();
    phone.webLinkClicked();
    ASSERT_EQ(view.boxes.size(), 2u);
    EXPECT_EQ(view.boxes[0].title, "URL FAILED");
    EXPECT_EQ(view.boxes[0].text, "Web Page not Opened");
    EXPECT_EQ(view.boxes[1].title, "BROWSER NOT FOUND");
    EXPECT_EQ(view.boxes[1].text, "Could not find associated browser!");
}

} // namespace
} // namespace corvel
