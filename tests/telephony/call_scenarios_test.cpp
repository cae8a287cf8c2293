// Whole calls on the test line, from the first ring to the line back at rest.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "support/answer_phone_harness.h"

namespace corvel {
namespace {

using namespace std::chrono;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using Identity = ScriptedCall::Identity;
using Key = ScriptedCall::Key;

// Calls ring at 10:00 unless a test says otherwise; the caller is answered on the fifth ring,
// 24 seconds in, and the times of their keys count from there.
class CallScenarioTest : public ::testing::Test, protected testing::AnswerPhoneHarness {
protected:
    explicit CallScenarioTest(LocalTime start = testing::VirtualEventLoop::defaultStart()) : testing::AnswerPhoneHarness(start)
    {
        readyForCalls();
        testing::writeTone(top / "voice.wav", 3.0);
    }

    ScriptedCall caller(Identity identity, std::vector<Key> keys, std::string number = "")
    {
        ScriptedCall call;
        call.identity = identity;
        call.number = std::move(number);
        call.keys = std::move(keys);
        call.speech = top / "voice.wav";
        call.speechAt = 34s;
        return call;
    }
    // Places the call and runs until the line is back at rest.
    void run(const ScriptedCall& call)
    {
        line.placeCall(call);
        loop.runUntil([&] { return line.ringCount() >= 5 && !line.callActive() && !line.ringing() && !view.busy; });
        loop.runFor(2s);
    }
    std::vector<std::string> logRecords() const
    {
        std::vector<std::string> records;
        for (const std::string& line : folder.readLines("calls.txt")) records.push_back(line.substr(0, line.find(", on ")));
        return records;
    }
    void expectAtRest() const
    {
        const CallState& call = phone.calls.state();
        EXPECT_FALSE(line.callActive());
        EXPECT_FALSE(line.recording());
        EXPECT_TRUE(line.lineOpen());
        EXPECT_FALSE(call.callInProgress);
        EXPECT_EQ(call.callphase, CallPhase::Idle);
        EXPECT_TRUE(call.callover);
        EXPECT_FALSE(view.pickupShown);
    }
    // How loud a stretch of a recording is, as the root mean square of its samples.
    static double loudness(const testing::Wave& wave, double fromSecond, double toSecond)
    {
        double sum = 0;
        const auto first = static_cast<std::size_t>(fromSecond * 8000), last = static_cast<std::size_t>(toSecond * 8000);
        for (std::size_t i = first; i < last && i < wave.samples.size(); ++i) sum += double(wave.samples[i]) * wave.samples[i];
        return std::sqrt(sum / double(last - first));
    }
};

TEST_F(CallScenarioTest, AWithheldCallerKeysTheirNumberWaitsAndLeavesAMessage)
{
    run(caller(Identity::Withheld, {{4s, '0'}, {5s, '1'}, {6s, '2'}, {7s, '#'}, {31s, '1'}, {39s, '9'}}));

    EXPECT_THAT(logRecords(), ElementsAre("Withheld", " keyed - 012"));
    EXPECT_THAT(heard(), ElementsAre("goodmorning.wav", "askfornumber.wav", "from.wav", "0.wav", "1.wav", "2.wav",
                                     "pleasewait.wav", "nobodyavailable.wav", "leavemessage.wav"));
    EXPECT_THAT(view.pickupCaptions, ::testing::Contains("012 - 20"));
    const testing::Wave message = testing::readWave(data / "1-1-012.wav");
    ASSERT_EQ(message.rate, 8000);
    EXPECT_EQ(message.channels, 1);
    // Recording starts when the prompt ends, about 32.5 s in; the caller speaks from 34 s to 37 s.
    EXPECT_GT(loudness(message, 2.0, 4.0), 1000.0) << "the caller's speech is in the message";
    EXPECT_LT(loudness(message, 5.0, 6.0), 1.0);
    EXPECT_EQ(counter("new1", "new2"), "01");
    expectAtRest();
}

TEST_F(CallScenarioTest, ADeliveredNumberIsReadBackWithoutDashesThenTakesAMessageOrWaits)
{
    settings.set("allcalls", "True");
    settings.set("ansall", "False");
    run(caller(Identity::Number, {{10s, '1'}, {20s, '#'}}, "0123-45"));
    EXPECT_THAT(heard(), ElementsAre("goodmorning.wav", "from.wav", "0.wav", "1.wav", "2.wav", "3.wav", "4.wav",
                                     "5.wav", "nobodyavailable.wav", "leavemessage.wav"));
    EXPECT_TRUE(has("1-1-012345.wav")) << "the caller is known by the digits alone";

    settings.set("ansa", "False");
    run(caller(Identity::Number, {}, "0123-45"));
    EXPECT_THAT(heard(), ElementsAre("goodmorning.wav", "from.wav", "0.wav", "1.wav", "2.wav", "3.wav", "4.wav",
                                    "5.wav", "pleasewait.wav", "nobodyavailable.wav"));
    EXPECT_THAT(view.pickupCaptions, ::testing::Contains("012345 - 20"));
    expectAtRest();
}

TEST_F(CallScenarioTest, WhoIsAnsweredFollowsTheOptionsAndTheCallerId)
{
    // A delivered number with "allcalls" clear rings out unanswered, and still counts as new.
    run(caller(Identity::Number, {}, "0123"));
    EXPECT_THAT(heard(), IsEmpty());
    EXPECT_EQ(line.ringCount(), 10);
    EXPECT_EQ(counter("newcall1", "newcall2"), "01");

    // No caller ID at all: left to ring without "allcalls"; with it, answered on the fifth
    // ring and, "noid" being set, asked for the number.
    run(caller(Identity::None, {}));
    EXPECT_THAT(heard(), IsEmpty());
    settings.set("allcalls", "True");
    run(caller(Identity::None, {}));
    EXPECT_EQ(line.ringCount(), 5);
    EXPECT_THAT(heard(), ElementsAre("goodmorning.wav", "askfornumber.wav"));
    EXPECT_EQ(counter("newcall1", "newcall2"), "03");
}

TEST_F(CallScenarioTest, AKeyedNumberIsAnnouncedByItsDirectoryNameAndOnlyItsDigitsReadBack)
{
    writeFile("directory.ini", "01A2D,Jane\r\n");
    run(caller(Identity::Withheld, {{4s, '1'}, {4500ms, 'A'}, {5s, '2'}, {5500ms, 'D'}, {6s, '#'}}));
    EXPECT_THAT(logRecords(), ElementsAre("Withheld", " keyed - 1A2D"));
    EXPECT_THAT(spoken(), ::testing::Contains("Jane, 1 A 2 D "));
    EXPECT_THAT(heard(), ElementsAre("goodmorning.wav", "askfornumber.wav", "from.wav", "1.wav", "2.wav",
                                     "pleasewait.wav", "nobodyavailable.wav"));
}

TEST_F(CallScenarioTest, AReadBackThatDoesNotEndInTwentySecondsHangsUp)
{
    testing::writeTone(data / "from.wav", 25.0, 700);
    bool upAt22 = false;
    bool upAt28 = true;
    loop.schedule(24s + 22s, [&] { upAt22 = line.callActive(); });
    loop.schedule(24s + 28s, [&] { upAt28 = line.callActive(); });
    run(caller(Identity::Withheld, {{4s, '4'}, {5s, '#'}}));
    EXPECT_TRUE(upAt22);
    EXPECT_FALSE(upAt28) << "twenty seconds after the read-back began";
    EXPECT_THAT(heard(), ElementsAre("goodmorning.wav", "askfornumber.wav", "from.wav"));

    settings.set("allcalls", "True");
    settings.set("ansall", "False");
    run(caller(Identity::Number, {}, "0123"));
    EXPECT_THAT(heard(), ElementsAre("goodmorning.wav", "from.wav"));
    EXPECT_FALSE(has("1-1-0123.wav"));
    expectAtRest();
}

// Any key but "1" would stop the waiting prompt, which reads as the user having taken the
// call: the caller would be left in silence until the call timer ran out.
TEST_F(CallScenarioTest, KeysOtherThanOneDuringTheWaitAreIgnored)
{
    run(caller(Identity::Withheld, {{4s, '3'}, {5s, '#'}, {10s, '5'}, {12s, '#'}, {14s, '9'}}));
    EXPECT_THAT(heard(), ElementsAre("goodmorning.wav", "askfornumber.wav", "from.wav", "3.wav", "pleasewait.wav",
                                     "nobodyavailable.wav"));
    EXPECT_THAT(view.pickupCaptions, ::testing::Contains("3 - 1")) << "the whole transfer time";
    EXPECT_THAT(logRecords(), ElementsAre("Withheld", " keyed - 3"));
    expectAtRest();
}

TEST_F(CallScenarioTest, ThePickUpCaptionCountsDownOnceASecond)
{
    std::string at10;
    std::string at13;
    loop.schedule(24s + 10s, [&] { at10 = view.pickupCaptions.back(); });
    loop.schedule(24s + 13s, [&] { at13 = view.pickupCaptions.back(); });
    run(caller(Identity::Withheld, {{4s, '3'}, {5s, '#'}}));
    std::vector<std::string> shown;
    for (const std::string& caption : view.pickupCaptions)
        if (shown.empty() || shown.back() != caption) shown.push_back(caption);
    std::vector<std::string> expected = {"3"};
    for (int left = 20; left >= 1; --left) expected.push_back("3 - " + std::to_string(left));
    EXPECT_EQ(shown, expected);
    const auto secondsLeft = [](const std::string& caption) { return std::stoi(caption.substr(caption.rfind(' '))); };
    EXPECT_EQ(secondsLeft(at10) - secondsLeft(at13), 3);
}

TEST_F(CallScenarioTest, AKeyEndsTheRecordingAtOnceAndWithoutOneItRunsThirtySeconds)
{
    testing::writeTone(top / "talk.wav", 45.0, 250);
    // When the recording began, from the end of the leave-a-message prompt.
    const auto recordingStart = [&] {
        for (const HeardPrompt& prompt : line.transcript())
            if (std::filesystem::path(prompt.file).filename() == "leavemessage.wav") return prompt.startedAt + prompt.heard;
        return Milliseconds{0};
    };
    const auto seconds = [&](const std::string& name) {
        return static_cast<double>(testing::readWave(data / name).samples.size()) / 8000;
    };
    ScriptedCall keyed = caller(Identity::Withheld, {{4s, '3'}, {5s, '#'}, {29s, '1'}, {40s, '7'}});
    keyed.speech = top / "talk.wav";
    keyed.speechAt = 29s;
    run(keyed);
    const double untilKey = std::chrono::duration<double>(40s - recordingStart()).count();
    EXPECT_NEAR(seconds("1-1-3.wav"), untilKey, 0.25);

    ScriptedCall talking = keyed;
    talking.keys.pop_back();
    run(talking);
    // Thirty ticks of the one-second call timer, the first of them due within the first second.
    EXPECT_NEAR(seconds("1-2-3.wav"), 29.5, 0.75);
    expectAtRest();
}

TEST_F(CallScenarioTest, ACallerWhoKeysThreeHundredDigitsStillLeavesAMessage)
{
    std::vector<Key> keys;
    for (int i = 0; i < 300; ++i) keys.push_back({4s + i * 50ms, static_cast<char>('0' + i % 10)});
    keys.push_back({20s, '#'});
    keys.push_back({53s, '1'});
    keys.push_back({58s, '8'});
    run(caller(Identity::Withheld, keys));
    std::string kept;
    for (int i = 0; i < 32; ++i) kept += static_cast<char>('0' + i % 10);
    EXPECT_THAT(logRecords(), ElementsAre("Withheld", " keyed - " + kept));
    EXPECT_TRUE(has("1-1-" + kept + ".wav"));
    expectAtRest();
}

TEST_F(CallScenarioTest, StarHangsUpInEveryPhase)
{
    // While asked for the number, while waiting to be put through, and while recording.
    for (const auto& keys : std::vector<std::vector<Key>>{
             {{2s, '*'}}, {{4s, '5'}, {5s, '#'}, {12s, '*'}}, {{4s, '5'}, {5s, '#'}, {26s, '1'}, {33s, '*'}}}) {
        run(caller(Identity::Withheld, keys));
        expectAtRest();
    }
    EXPECT_THAT(logRecords(), ElementsAre("Withheld", "Withheld", " keyed - 5", "Withheld", " keyed - 5"));
    EXPECT_TRUE(has("1-1-5.wav")) << "the message so far is kept";
    EXPECT_FALSE(has("1-2-5.wav"));
}

TEST_F(CallScenarioTest, ACallerWhoKeysNothingIsHungUpOn)
{
    bool upAt12 = false;
    bool upAt14 = true;
    loop.schedule(24s + 12s, [&] { upAt12 = line.callActive(); });
    loop.schedule(24s + 14s, [&] { upAt14 = line.callActive(); });
    run(caller(Identity::Withheld, {}));
    EXPECT_TRUE(upAt12) << "the request and ten seconds more";
    EXPECT_FALSE(upAt14);
    EXPECT_THAT(logRecords(), ElementsAre("Withheld"));
    EXPECT_THAT(heard(), ElementsAre("goodmorning.wav", "askfornumber.wav"));
}

TEST_F(CallScenarioTest, FiveQuietSecondsEndTheNumberAndASecondHashDoesNothing)
{
    run(caller(Identity::Withheld, {{4s, '7'}}));
    EXPECT_THAT(logRecords(), ElementsAre("Withheld", " keyed - 7"));
    EXPECT_THAT(heard(), ::testing::IsSupersetOf({"from.wav", "7.wav"}));

    run(caller(Identity::Withheld, {{4s, '4'}, {5s, '#'}, {6s, '#'}}));
    EXPECT_THAT(logRecords(), ElementsAre("Withheld", " keyed - 7", "Withheld", " keyed - 4"));
}

TEST_F(CallScenarioTest, OneDuringTheWaitGoesStraightToTheMessage)
{
    loop.schedule(24s + 15s, [&] { EXPECT_EQ(phone.calls.state().callphase, CallPhase::TakingMessage); });
    run(caller(Identity::Withheld, {{4s, '3'}, {5s, '#'}, {9s, '1'}, {13s, '1'}, {20s, '2'}}));
    EXPECT_TRUE(has("1-1-3.wav"));
    expectAtRest();
}

TEST_F(CallScenarioTest, ClickingThePickUpWindowHandsTheCallerToTheUser)
{
    loop.schedule(24s + 12s, [&] { phone.handling.pickupClicked(); });
    run(caller(Identity::Withheld, {{4s, '3'}, {5s, '#'}}));
    EXPECT_TRUE(line.handedOver());
    EXPECT_FALSE(phone.messages.fileInSlot(MessageStore::Kind::New, 1)) << "nothing recorded";
    expectAtRest();
}

TEST_F(CallScenarioTest, TheCallIsTakenFromOutsideTheWindowOnlyWhileTheCallerWaits)
{
    loop.schedule(24s + 3s, [&] {
        phone.handling.takeCall(); // still asking for the number
        EXPECT_FALSE(line.handedOver());
        EXPECT_EQ(phone.calls.state().callphase, CallPhase::Interrogating);
    });
    loop.schedule(24s + 12s, [&] { phone.handling.takeCall(); });
    run(caller(Identity::Withheld, {{4s, '3'}, {5s, '#'}}));
    EXPECT_TRUE(line.handedOver());
    expectAtRest();
}

TEST_F(CallScenarioTest, AMessagePlayedWhileAnotherIsRecordedLeavesNoGapUnderIt)
{
    writeFile("1-1-111.wav", "RIFF");
    writeFile("1-2-222.wav", "RIFF");
    loop.schedule(24s + 36s, [&] { // the caller speaks into slot 3
        ASSERT_TRUE(line.recording());
        phone.playback.playNew();
    });
    run(caller(Identity::Withheld, {{4s, '0'}, {5s, '1'}, {6s, '2'}, {7s, '#'}, {31s, '1'}, {39s, '9'}}));
    EXPECT_TRUE(has("2-1-111.wav"));
    EXPECT_TRUE(has("1-1-222.wav"));
    EXPECT_TRUE(has("1-2-012.wav")) << "moved down beside the other new message";
    EXPECT_EQ(phone.messages.count(MessageStore::Kind::New), 2);
    EXPECT_EQ(counter("new1", "new2"), "02");
}

TEST_F(CallScenarioTest, TheNinetyNinthMessageFindsNoRoom)
{
    for (int slot = 1; slot <= 98; ++slot) writeFile("1-" + std::to_string(slot) + "-0.wav", "RIFF");
    run(caller(Identity::Withheld, {{4s, '3'}, {5s, '#'}, {30s, '1'}}));
    EXPECT_THAT(spoken(), ::testing::Contains("No more room left for messages!"));
    ASSERT_FALSE(view.boxes.empty());
    EXPECT_EQ(view.boxes.back().text, "No more room for messages, sorry!");
    EXPECT_FALSE(has("1-99-3.wav"));
    expectAtRest();
}

TEST_F(CallScenarioTest, AnotherProgramsCallIsLeftAloneAndTheWarningShownOnce)
{
    ScriptedCall call = caller(Identity::Withheld, {});
    call.ownerApplication = "OtherPhone.exe";
    call.hangUpAt = 5s;
    run(call);
    run(call);
    ASSERT_EQ(view.boxes.size(), 1u);
    EXPECT_THAT(view.boxes[0].text, HasSubstr("The application that has control of this call is OtherPhone.exe. "
                                              "You won`t see this message again!"));
    EXPECT_EQ(settings.read("withheld", "data", "warning1", ""), "True");
    EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(CallScenarioTest, APromptThatCannotBePlayedEndsTheCall)
{
    std::filesystem::remove(data / "goodmorning.wav");
    run(caller(Identity::Withheld, {}));
    ASSERT_EQ(view.boxes.size(), 1u);
    EXPECT_EQ(view.boxes[0].title, "Error!");
    EXPECT_EQ(view.boxes[0].text, "Sorry, there was an error whilst playing the goodmorning.wav file so I`m quitting!");
    expectAtRest();
}

TEST_F(CallScenarioTest, RingsDuringAnAnsweredCallOnlyAlertTheCharacter)
{
    loop.schedule(24s + 20s, [&] {
        const int moves = view.windowMoves;
        agent.calls.clear();
        phone.handling.ring(6);
        EXPECT_THAT(agent.calls, ElementsAre("Show", "Play Alert"));
        EXPECT_EQ(view.windowMoves, moves) << "no shake";
        EXPECT_EQ(phone.calls.state().idleCountdown, 180);
    });
    run(caller(Identity::Withheld, {{4s, '3'}, {5s, '#'}}));
    EXPECT_EQ(counter("newcall1", "newcall2"), "01");
}

// Follows the calls as the desktop's notifications and the session bus do, one line an event.
struct RecordingFollower final : CallEvents {
    std::vector<std::string> events;
    void ringing(std::int32_t count) override { events.push_back("ring " + std::to_string(count)); }
    void callerAnnounced(const AnnouncedCaller& caller) override
    {
        events.push_back("announced " + caller.caller + " as " + caller.said + ", " + caller.picture.filename().string());
    }
    void callerWaiting(std::string_view caller) override { events.push_back("waiting " + std::string(caller)); }
    void messageRecorded(const std::filesystem::path& file, std::string_view caller) override
    {
        events.push_back("message " + file.filename().string() + " from " + std::string(caller) +
                         (std::filesystem::exists(file) ? "" : " (missing)"));
    }
    void callEnded() override { events.push_back("ended"); }
    void countsChanged() override { ++counts; }
    int counts = 0;
};

class CallEventsTest : public CallScenarioTest {
protected:
    CallEventsTest() { phone.events.add(follower); }
    ~CallEventsTest() override { phone.events.remove(follower); }
    RecordingFollower follower;
};

TEST_F(CallEventsTest, FollowersHearTheCallFromTheFirstRingToItsEnd)
{
    loop.schedule(24s + 12s, [&] { phone.handling.takeCall(); });
    run(caller(Identity::Withheld, {{4s, '3'}, {5s, '#'}}));
    EXPECT_THAT(follower.events, ElementsAre("ring 1", "announced Withheld as Withheld, withheld.gif", "ring 2", "ring 3",
                                             "ring 4", "ring 5", "announced 3 as 3, default.gif", "waiting 3", "ended"));
    EXPECT_GT(follower.counts, 0) << "the new call was counted";

    follower.events.clear();
    writeFile("directory.ini", "01632960123,Ann Smith\r\n");
    ScriptedCall known = caller(Identity::Number, {}, "01632-960123");
    known.ringsBeforeGivingUp = 2; // nobody answers: the call ends when the caller gives up
    line.placeCall(known);
    loop.runFor(200s);
    EXPECT_THAT(follower.events, ElementsAre("ring 1", "announced 01632-960123 as Ann Smith, default.gif", "ring 2", "ended"));
}

TEST_F(CallEventsTest, AMessageTakenFromOutsideTheWindowIsRecordedAndTold)
{
    loop.schedule(24s + 3s, [&] { phone.handling.takeMessage(); }); // nobody waits yet: nothing happens
    loop.schedule(24s + 12s, [&] { phone.handling.takeMessage(); });
    run(caller(Identity::Withheld, {{4s, '3'}, {5s, '#'}, {15s, '1'}, {40s, '9'}}));
    EXPECT_THAT(follower.events, ::testing::Contains("message 1-1-3.wav from 3"));
    EXPECT_EQ(std::count(follower.events.begin(), follower.events.end(), "ended"), 1);
    EXPECT_EQ(counter("new1", "new2"), "01");
    expectAtRest();
}

TEST_F(CallEventsTest, HangingUpFromOutsideEndsTheAnsweredCall)
{
    phone.handling.hangUp(); // no call: nothing to end
    loop.schedule(24s + 3s, [&] { phone.handling.hangUp(); });
    run(caller(Identity::Withheld, {{4s, '3'}, {5s, '#'}}));
    EXPECT_THAT(heard(), ElementsAre("goodmorning.wav", "askfornumber.wav"));
    EXPECT_THAT(logRecords(), ElementsAre("Withheld"));
    EXPECT_EQ(follower.events.back(), "ended");
    expectAtRest();
}

class GreetingTest : public CallScenarioTest, public ::testing::WithParamInterface<std::pair<minutes, const char*>> {
protected:
    // The call is answered 24 s after it starts ringing, at the hour to test.
    GreetingTest() : CallScenarioTest(local_days{year{2026} / 5 / 4} + GetParam().first - 24s) {}
};

TEST_P(GreetingTest, TheGreetingFollowsTheHour)
{
    run(caller(Identity::Withheld, {}));
    ASSERT_FALSE(heard().empty());
    EXPECT_EQ(heard().front(), GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(Hours, GreetingTest,
                         ::testing::Values(std::pair{11h + 59min, "goodmorning.wav"},
                                           std::pair{12h + 0min, "goodafternoon.wav"},
                                           std::pair{18h + 0min, "goodevening.wav"}));

TEST_F(CallScenarioTest, ALineThatWillNotCloseIsForgottenAndTheProgramEnds)
{
    line.failNextClose(5);
    phone.handling.chooseDevice(0);
    EXPECT_THAT(spoken(), ElementsAre("Sorry, your modem does not seem to be compatible. Please try to get the latest drivers!"));
    EXPECT_EQ(settings.read("withheld", "data", "modem", "none"), "none");
    EXPECT_EQ(settings.read("withheld", "data", "modemname", "none"), "none");
    EXPECT_TRUE(view.programEnded);

    agent.calls.clear();
    phone.handling.chooseDevice(0);
    EXPECT_THAT(spoken(), ElementsAre("The modem you selected, is okay!"));
    EXPECT_EQ(settings.read("withheld", "data", "modemname", ""), "Test line");
}

} // namespace
} // namespace corvel
