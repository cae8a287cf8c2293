// The real character on the offscreen platform: loading, the request queue, speech with its
// balloon and mouth, Stop, moving, hiding, and its commands.

#include "ui/agent/qt_agent.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QImage>
#include <QLabel>

#include "agent_test_support.h"
#include "character/character_speech.h"
#include "support/memory_settings_store.h"
#include "support/recording_view.h"
#include "ui/agent/character_window.h"
#include "ui/agent/property_sheet.h"
#include "ui/agent/speech_stream.h"
#include "ui/agent/word_balloon.h"
#include "ui/qt_event_loop.h"

namespace corvel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::waitFor;

class QtAgentTest : public ::testing::Test {
protected:
    QtAgentTest() { testing::ensureQApplication(); }

    void loadPhony()
    {
        ASSERT_TRUE(agent.load("Phony"));
        agent.moveTo(300, 300);
        agent.show();
        ASSERT_TRUE(waitFor([&] { return agent.queued() == 0; }));
        QCoreApplication::processEvents(); // the reports of those requests
        listener.completed.clear();
    }

    QtAgent agent{testing::phonyOptions()};
    testing::AgentListener listener{agent};
};

TEST_F(QtAgentTest, LoadsPhonyFromTheCharactersFolder)
{
    ASSERT_TRUE(agent.load("phony")) << "names compare without regard to case";
    EXPECT_EQ(agent.width(), 128);
    EXPECT_EQ(agent.height(), 128);
    EXPECT_THAT(agent.description(), HasSubstr("Corvel's telephone"));
    agent.unload("Phony");
    EXPECT_EQ(agent.character(), nullptr);
    EXPECT_EQ(agent.description(), "");
    EXPECT_FALSE(agent.load("Nobody"));
}

TEST_F(QtAgentTest, WithoutACharacterEveryRequestIsOverAtOnce)
{
    const AgentRequest spoken = agent.speak("Hello");
    const AgentRequest moved = agent.moveTo(10, 10);
    agent.show();
    ASSERT_TRUE(waitFor([&] { return listener.done(moved); }));
    EXPECT_TRUE(listener.done(spoken));
    EXPECT_EQ(agent.window(), nullptr);
}

TEST_F(QtAgentTest, ShowsWithItsShowingAnimationWhereItWasPut)
{
    ASSERT_TRUE(agent.load("Phony"));
    agent.moveTo(250, 260);
    agent.show();
    EXPECT_TRUE(agent.visible());
    EXPECT_EQ(agent.window()->pos(), QPoint(250, 260));
    EXPECT_EQ(agent.queued(), 1u) << "the Show animation plays";
    ASSERT_TRUE(waitFor([&] { return agent.queued() == 0; }));
    // Shaped to the character: the corner is not part of the window, the middle is.
    const QRegion shape = agent.window()->shape();
    EXPECT_FALSE(shape.contains(QPoint(0, 0)));
    EXPECT_TRUE(shape.contains(QPoint(64, 80)));
}

TEST_F(QtAgentTest, RequestsRunInTheirOrderAndEachIsReportedOnce)
{
    loadPhony();
    const AgentRequest a = agent.play("Acknowledge");
    const AgentRequest b = agent.speak("Hi.");
    const AgentRequest c = agent.play("NoSuchAnimation");
    const AgentRequest d = agent.play("GestureUp");
    ASSERT_TRUE(waitFor([&] { return listener.done(d); }, 20));
    EXPECT_THAT(listener.completed, ElementsAre(a, b, c, d));
}

TEST_F(QtAgentTest, SpeaksWithTheBalloonWordByWordAndTheMouthMoving)
{
    loadPhony();
    const std::string text = "\\emp\\Hello there, this is Phony speaking to you from the desktop.";
    const AgentRequest said = agent.speak(text);
    ASSERT_TRUE(agent.speaking());
    WordBalloon& balloon = *agent.balloon();
    EXPECT_TRUE(balloon.isVisible());
    EXPECT_EQ(balloon.text(), "Hello there, this is Phony speaking to you from the desktop.");
    bool partly = false, mouthOpen = false;
    const QImage rest = agent.window()->frame();
    ASSERT_TRUE(waitFor([&] {
        partly = partly || (balloon.revealed() > 0 && balloon.revealed() < balloon.text().size());
        const bool open = agent.mouth() && *agent.mouth() != acs::MouthShape::Closed;
        mouthOpen = mouthOpen || (open && agent.window()->frame() != rest);
        return listener.done(said);
    }, 20));
    EXPECT_TRUE(partly) << "auto-pace shows the words as they come";
    EXPECT_TRUE(mouthOpen);
    EXPECT_EQ(balloon.revealed(), balloon.text().size());
    EXPECT_FALSE(agent.mouth().has_value()) << "closed after speaking";
    // Two lines of the file's balloon, the rest scrolled away.
    EXPECT_EQ(balloon.visibleLines().size(), 2);
    EXPECT_EQ(balloon.look().charsPerLine, 32);
    EXPECT_TRUE(balloon.isVisible());
    ASSERT_TRUE(waitFor([&] { return !balloon.isVisible(); }, 5)) << "auto-hide";
}

TEST_F(QtAgentTest, TheBalloonStyleSwitchesTheBalloonOff)
{
    loadPhony();
    agent.setBalloonStyle(CharacterSpeech::balloonOff);
    const AgentRequest said = agent.speak("Quiet.");
    EXPECT_FALSE(agent.balloon()->isVisible());
    ASSERT_TRUE(waitFor([&] { return listener.done(said); }));
    agent.setBalloonStyle(CharacterSpeech::balloonOn);
    agent.speak("Loud.");
    EXPECT_TRUE(agent.balloon()->isVisible());
}

TEST_F(QtAgentTest, StopCutsSpeechAndAnimationAtOnceAndReportsEveryDroppedRequest)
{
    loadPhony();
    const AgentRequest said = agent.speak("This is a long sentence that will never be finished, because it is cut off.");
    const AgentRequest gesture = agent.play("Congratulate");
    ASSERT_TRUE(waitFor([&] { return agent.currentSpeech() && agent.currentSpeech()->played() > 0; }));
    const auto stream = agent.currentSpeech();
    agent.stop();
    EXPECT_FALSE(agent.speaking());
    EXPECT_TRUE(stream->cancelled());
    EXPECT_FALSE(agent.balloon()->isVisible());
    EXPECT_FALSE(agent.mouth().has_value());
    EXPECT_EQ(agent.queued(), 0u);
    ASSERT_TRUE(waitFor([&] { return listener.completed.size() == 2; }));
    EXPECT_THAT(listener.completed, ElementsAre(said, gesture));
    // The next speech starts at once.
    agent.speak("Again.");
    EXPECT_TRUE(agent.speaking());
}

TEST_F(QtAgentTest, MovesOverASecondThenRests)
{
    loadPhony();
    const AgentRequest moved = agent.moveTo(500, 300);
    EXPECT_EQ(agent.window()->pos(), QPoint(300, 300)) << "walks, does not jump";
    ASSERT_TRUE(waitFor([&] { return agent.window()->pos().x() > 300 && agent.window()->pos().x() < 500; }));
    ASSERT_TRUE(waitFor([&] { return listener.done(moved); }));
    EXPECT_EQ(agent.window()->pos(), QPoint(500, 300));
}

TEST_F(QtAgentTest, HidesAfterItsHidingAnimation)
{
    loadPhony();
    agent.hide();
    EXPECT_TRUE(agent.visible()) << "still there while the Hiding animation plays";
    ASSERT_TRUE(waitFor([&] { return !agent.visible(); }));
    // Sent somewhere while hidden, it comes back there.
    agent.moveTo(40, 50);
    agent.show();
    EXPECT_EQ(agent.window()->pos(), QPoint(40, 50));
}

TEST_F(QtAgentTest, SayAndGeniemoveWithTheRealCharacter)
{
    QtEventLoop loop;
    testing::MemorySettingsStore settings;
    testing::RecordingView view; // the main window at 3000, 3000 twips, 4000 wide, 2590 high
    CharacterSpeech speech(agent, settings, loop, view);
    ASSERT_TRUE(agent.load("Phony"));
    agent.show();
    speech.geniemove();
    // Beside the main window at once: 100 twips right of it, its bottom edge level with the window's.
    EXPECT_EQ(agent.window()->pos(), QPoint(473, 245));
    speech.say("Hello");
    speech.say("Welcome to corvel!"); // cuts the first, gestures after it
    EXPECT_FALSE(speech.requestdone());
    EXPECT_TRUE(agent.speaking());
    EXPECT_EQ(agent.balloon()->text(), "Welcome to corvel!");
    ASSERT_TRUE(waitFor([&] { return agent.queued() == 0; }, 20));
    EXPECT_TRUE(speech.requestdone());
    EXPECT_EQ(agent.window()->pos(), QPoint(473, 245));

    view.placement.left = 13000; // too near the right edge: the character stands on the left
    speech.geniemove();
    ASSERT_TRUE(waitFor([&] { return agent.queued() == 0; }));
    EXPECT_EQ(agent.window()->pos(), QPoint(732, 245));
}

TEST_F(QtAgentTest, ItsCommandsComeFromTheMenuAndFromWhatIsHeard)
{
    loadPhony();
    agent.addCommand({"Introduce", "Introducing ", "(Introduction | Introduce)"});
    agent.addCommand({"exit", "Exit Corvel", "[Exit] Ombrel"});
    agent.choose("Introduce");
    agent.heard("exit ombrel");
    agent.heard("ombrel exit");
    agent.heard("");
    EXPECT_THAT(listener.commands, ElementsAre("Introduce", "exit"));
    agent.showPropertySheet();
    ASSERT_NE(agent.propertySheet(), nullptr);
    EXPECT_TRUE(agent.propertySheet()->isVisible());
    const QString sheet = agent.propertySheet()->findChild<QLabel*>("properties")->text();
    for (const char* shown : {"Phony", "Corvel's telephone", "en-us+f3", "Scroll Lock", "Exit Corvel: [Exit] Ombrel"})
        EXPECT_TRUE(sheet.contains(shown)) << shown << " in " << sheet.toStdString();
}

} // namespace
} // namespace corvel
