// Picking and loading the character, switching it off and on, and its three commands, on the
// whole answer phone with a recording character.

#include "character/character_loading.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
namespace fs = std::filesystem;

class CharacterLoadingTest : public ::testing::Test, protected testing::AnswerPhoneHarness {
protected:
    std::string saved(std::string_view key) const { return settings.read("withheld", "data", key, "(none)"); }
    void pick(std::string file)
    {
        view.selected = std::move(file);
        agent.calls.clear();
        phone.characters.command27Clicked();
    }
    // The agent's calls from the first that starts with `prefix` on.
    std::vector<std::string> callsFrom(std::string_view prefix) const
    {
        auto it = std::find_if(agent.calls.begin(), agent.calls.end(), [&](const std::string& c) { return c.starts_with(prefix); });
        return {it, agent.calls.end()};
    }
};

TEST_F(CharacterLoadingTest, PickingAFileLoadsItsCharacterWithTheThreeCommands)
{
    pick("Owl.acs");
    EXPECT_EQ(saved("character"), "Owl");
    ASSERT_GE(agent.calls.size(), 8u);
    EXPECT_THAT(agent.calls[7], ::testing::StartsWith("MoveTo ")) << "stood beside the window";
    EXPECT_THAT(std::vector(agent.calls.begin(), agent.calls.begin() + 7),
                ElementsAre("Unload Phony", "Load Owl", "Command Properties|Alter Character Properties|[Character] Properties",
                            "Command Introduce|Introducing |(Introduction | Introduce)", "Command exit|Exit Corvel|[Exit] Ombrel",
                            "SoundEffects on", "Show"));
    EXPECT_THAT(spoken(), ElementsAre("Welcome to corvel!"));

    pick("a.b.acs");
    EXPECT_EQ(saved("character"), "a");
    EXPECT_THAT(agent.calls, Contains("Unload Owl"));
    EXPECT_THAT(agent.calls, Contains("Load a"));
}

TEST_F(CharacterLoadingTest, TheNameIsSavedEvenWhenTheCharacterWillNotLoad)
{
    agent.loads = false;
    pick("Broken.acs");
    EXPECT_EQ(saved("character"), "Broken");
    EXPECT_THAT(spoken(), ElementsAre("Welcome to corvel!"));
}

TEST_F(CharacterLoadingTest, LoadingWhileSwitchedOffOnlyShowsTheBox)
{
    settings.set("noagent", "True");
    settings.set("character", "Owl");
    pick("Robot.acs");
    EXPECT_THAT(agent.calls, IsEmpty());
    EXPECT_EQ(saved("character"), "Owl");
    ASSERT_EQ(view.boxes.size(), 1u);
    EXPECT_EQ(view.boxes[0].icon, MessageIcon::Information);
    EXPECT_EQ(view.boxes[0].text, "You have disable the character. Please enable the character before trying to load a new one");
}

TEST_F(CharacterLoadingTest, NothingPickedIsSaidSo)
{
    pick("");
    EXPECT_THAT(spoken(), ElementsAre("You didnt select a character"));
    EXPECT_THAT(agent.calls, ::testing::Not(Contains(::testing::StartsWith("Load"))));
    pick("x");
    EXPECT_THAT(spoken(), ElementsAre("You didnt select a character"));
}

TEST_F(CharacterLoadingTest, SwitchingTheCharacterOffAndOnUnloadsAndReloadsTheSavedOne)
{
    settings.set("character", "Owl");
    view.setChecked("chk_noagent", true);
    phone.options.checkBoxClicked("chk_noagent");
    EXPECT_EQ(saved("noagent"), "True");
    EXPECT_THAT(agent.calls, ElementsAre("Unload Owl"));

    agent.calls.clear();
    view.setChecked("chk_noagent", false);
    phone.options.checkBoxClicked("chk_noagent");
    EXPECT_EQ(saved("noagent"), "False");
    EXPECT_EQ(agent.calls.front(), "Load Owl");
    EXPECT_THAT(agent.calls, Contains("Show"));
    EXPECT_THAT(spoken(), IsEmpty()) << "switched back on without a welcome";
}

TEST_F(CharacterLoadingTest, EffectsOffSwitchesThemOffAndLeavesTheBox)
{
    settings.set("effects", "False");
    phone.characters.load("Owl");
    EXPECT_THAT(agent.calls, Contains("SoundEffects off"));
    EXPECT_FALSE(view.isChecked("chk_effects"));
    settings.set("effects", "True");
    phone.characters.load("Owl");
    EXPECT_TRUE(view.isChecked("chk_effects"));
}

TEST_F(CharacterLoadingTest, IntroduceSpeaksTheDescriptionWithTheGestureRotation)
{
    phone.speech.say("first");
    agent.calls.clear();
    agent.chooseCommand("Introduce");
    EXPECT_THAT(agent.calls, ElementsAre("Stop", "BalloonStyle 35389453", "Stop", "Show",
                                         "Speak \\Vol=65535\\A recorded character.", "Play Acknowledge"));
}

TEST_F(CharacterLoadingTest, PropertiesOpensTheSheetAndOtherNamesDoNothing)
{
    agent.chooseCommand("Properties");
    EXPECT_THAT(agent.calls, ElementsAre("Stop", "PropertySheet"));
    agent.calls.clear();
    agent.chooseCommand("properties");
    agent.chooseCommand("Hide");
    EXPECT_THAT(agent.calls, IsEmpty());
}

TEST_F(CharacterLoadingTest, ExitEndsTheProgramWithoutAWord)
{
    agent.chooseCommand("exit");
    EXPECT_THAT(agent.calls, ElementsAre("Stop"));
    EXPECT_TRUE(view.programEnded);
    EXPECT_FALSE(view.trayShown);
    EXPECT_TRUE(view.boxes.empty());
}

TEST_F(CharacterLoadingTest, StartUpLoadsTheSavedCharacterAndListsTheFiles)
{
    fs::create_directories(data / "characters");
    for (const char* name : {"Zed.acs", "owl.ACS", "Phony.acs", "notes.txt"}) std::ofstream(data / "characters" / name) << "x";
    settings.set("modem", "0");
    settings.set("phonyused", "1");
    settings.set("character", "Owl");
    phone.startUp();
    EXPECT_THAT(callsFrom("Load"), ::testing::IsSupersetOf({"Load Owl", "Show", "Play Alert"}));
    EXPECT_EQ(callsFrom("Load")[0], "Load Owl");
    EXPECT_THAT(view.lists["File1"], ElementsAre("owl.ACS", "Phony.acs", "Zed.acs"));
}

TEST(CharacterFolders, DataFolderFirstThenTheSharedDataDirectories)
{
    EXPECT_THAT(characterFolders("/home/me/.local/share/corvel", "/opt/share:relative:/usr/share:/opt/share"),
                ElementsAre("/home/me/.local/share/corvel/characters", "/opt/share/corvel/characters",
                            "/usr/share/corvel/characters"));
    EXPECT_THAT(characterFolders("/d", nullptr),
                ElementsAre("/d/characters", "/usr/local/share/corvel/characters", "/usr/share/corvel/characters"));
}

TEST(CharacterFolders, AFileIsFoundInTheFirstFolderSpeltExactlyOrInAnotherCase)
{
    testing::AnswerPhoneHarness scratch; // for its fresh folder
    const fs::path first = scratch.top / "first", second = scratch.top / "second";
    fs::create_directories(first);
    fs::create_directories(second);
    std::ofstream(first / "PHONY.ACS") << "x";
    std::ofstream(second / "Phony.acs") << "x";
    EXPECT_EQ(findCharacterFile({first, second}, "Phony"), first / "PHONY.ACS");
    EXPECT_EQ(findCharacterFile({second, first}, "Phony"), second / "Phony.acs");
    EXPECT_EQ(findCharacterFile({first}, "Owl"), std::nullopt);
    std::ofstream(scratch.top / "escape.acs") << "x";
    EXPECT_EQ(findCharacterFile({first}, "../escape"), std::nullopt);
    EXPECT_EQ(findCharacterFile({first}, ""), std::nullopt);
    EXPECT_THAT(listCharacterFiles({first, second}), ElementsAre("PHONY.ACS", "Phony.acs"));
}

} // namespace
} // namespace corvel
