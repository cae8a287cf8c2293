#include "character/character_speech.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/memory_settings_store.h"
#include "support/recording_agent.h"
#include "support/recording_view.h"
#include "support/virtual_event_loop.h"

namespace corvel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

class CharacterSpeechTest : public ::testing::Test {
protected:
    testing::VirtualEventLoop loop;
    testing::MemorySettingsStore settings;
    testing::RecordingAgent agent;
    testing::RecordingView view;
    CharacterSpeech speech{agent, settings, loop, view};

    std::vector<std::string> gesturesOfSayings(int count)
    {
        std::vector<std::string> gestures;
        for (int i = 0; i < count; ++i) {
            agent.calls.clear();
            speech.say("Hello");
            gestures.push_back(agent.calls.back().starts_with("Play ") ? agent.calls.back().substr(5) : "");
        }
        return gestures;
    }

    int hidesWithin(std::chrono::milliseconds span)
    {
        agent.calls.clear();
        loop.runFor(span);
        return static_cast<int>(std::count(agent.calls.begin(), agent.calls.end(), "Hide"));
    }
};

TEST_F(CharacterSpeechTest, SpeaksWithBalloonVolumeAndGestureInThatOrder)
{
    settings.set("vol", "7");
    gesturesOfSayings(1);
    agent.calls.clear();
    speech.say("Hello");
    EXPECT_THAT(agent.calls, ElementsAre("BalloonStyle 35389453", "Stop", "Show",
                                         "Speak \\Vol=35535\\Hello", "Play Acknowledge"));
}

TEST_F(CharacterSpeechTest, VolumeStepsAreMatchedAsExactText)
{
    EXPECT_EQ(CharacterSpeech::volumeTag("10"), "65535");
    EXPECT_EQ(CharacterSpeech::volumeTag("5"), "15535");
    EXPECT_EQ(CharacterSpeech::volumeTag("4"), "9000");
    EXPECT_EQ(CharacterSpeech::volumeTag("1"), "1000");
    for (const char* unmatched : {"0", "11", "", "07", " 7"}) {
        settings.set("vol", unmatched);
        speech.say("Hi");
        EXPECT_THAT(agent.calls, ::testing::Contains("Speak \\Vol=\\Hi")) << '"' << unmatched << '"';
        agent.calls.clear();
    }
}

TEST_F(CharacterSpeechTest, BalloonIsOnOnlyForExactTrue)
{
    settings.set("balloon", "true");
    speech.say("a");
    settings.set("balloon", "False");
    speech.say("b");
    EXPECT_EQ(agent.calls[0], "BalloonStyle 35389452");
    EXPECT_THAT(agent.calls, ::testing::Contains("BalloonStyle 35389452").Times(2));
    EXPECT_EQ(CharacterSpeech::balloonOn, 35389453u);
}

TEST_F(CharacterSpeechTest, GesturesRotateAfterASilentFirstSpeech)
{
    EXPECT_THAT(gesturesOfSayings(7), ElementsAre("", "Acknowledge", "Announce", "Congratulate",
                                                  "GestureDown", "GestureUp", "Acknowledge"));
}

TEST_F(CharacterSpeechTest, SwitchedOffCharacterIsLeftEntirelyAlone)
{
    settings.set("noagent", "True");
    settings.set("charhide", "True");
    speech.say("Hello");
    speech.geniemove();
    EXPECT_THAT(agent.calls, IsEmpty());
    EXPECT_EQ(hidesWithin(30s), 0) << "the auto-hide timer must not have been armed";

    settings.set("noagent", "False");
    EXPECT_THAT(gesturesOfSayings(2), ElementsAre("", "Acknowledge"))
        << "the gesture rotation must not have moved on";
}

TEST_F(CharacterSpeechTest, RequestDoneIsClearedBySayAndSetByAnyCompletedRequest)
{
    speech.say("Hello");
    EXPECT_FALSE(speech.requestdone());
    agent.completeRequest(speech.lastrequest());
    EXPECT_TRUE(speech.requestdone());
}

TEST_F(CharacterSpeechTest, HidesEveryTenSecondsCountedFromTheLastSpeech)
{
    settings.set("charhide", "True");
    speech.say("one");
    loop.runFor(6s);
    speech.say("two"); // a fresh ten seconds
    EXPECT_EQ(hidesWithin(9999ms), 0);
    EXPECT_EQ(hidesWithin(1ms), 1);
    EXPECT_EQ(hidesWithin(20s), 2) << "the timer keeps firing until the next speech";

    settings.set("charhide", "False");
    EXPECT_EQ(hidesWithin(30s), 0);
    EXPECT_THROW(loop.yield(), testing::VirtualLoopStalled) << "with nothing to hide the timer sleeps";
    settings.set("charhide", "True");
    speech.say("Okay!"); // as ticking "charhide" on the options page does
    EXPECT_EQ(hidesWithin(10s), 1);
}

// geniemove, in twips at 15 twips a pixel, with a 128 x 128 pixel character.
class GeniemoveTest : public CharacterSpeechTest {
protected:
    std::string moveFor(WindowPlacement window)
    {
        view.placement = window;
        agent.calls.clear();
        speech.geniemove();
        return agent.calls.empty() ? "" : agent.calls.back();
    }
};

TEST_F(GeniemoveTest, StandsOnTheRightUnlessTheMarginRunsPastTheScreenEdge)
{
    // Right edge 5000 + 500 + 128 * 15 = 7420: exactly the screen width keeps the right side.
    EXPECT_EQ(moveFor({1000, 3000, 4000, 2590, 7420, 15}), "MoveTo 340 245");
    // One twip narrower: the character goes to the left, its right edge 100 twips before the window.
    EXPECT_EQ(moveFor({1000, 3000, 4000, 2590, 7419, 15}), "MoveTo -68 245");
}

TEST_F(GeniemoveTest, RoundsHalvesToTheEvenNeighbour)
{
    // x = (left + width + 100) / 15 and y = (top + height - 1920) / 15 land on halves.
    EXPECT_EQ(moveFor({0, 0, 57.5, 2077.5, 100000, 15}), "MoveTo 10 10");
    EXPECT_EQ(moveFor({0, 0, 72.5, 2092.5, 100000, 15}), "MoveTo 12 12");
}

} // namespace
} // namespace corvel
