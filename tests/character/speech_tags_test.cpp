#include "character/speech_tags.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvel {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

SpeechPart words(std::string text, SpeechVoice voice = {}, bool emphasis = false)
{
    return {text, text, 0, emphasis, voice};
}

TEST(SpeechTags, TheVolumeTagOfSayChangesTheVoiceAndIsNeverSpoken)
{
    EXPECT_THAT(parseSpeech("\\Vol=35535\\Hello"), ElementsAre(words("Hello", {35535, {}, {}})));
    // An empty value, as `say` writes for a volume step it does not know, changes nothing.
    EXPECT_THAT(parseSpeech("\\Vol=\\Hello"), ElementsAre(words("Hello")));
    EXPECT_THAT(parseSpeech("\\Vol=99999\\a"), ElementsAre(words("a", {65535, {}, {}})));
}

TEST(SpeechTags, NamesAreCaseBlindButValuesMustBeExact)
{
    EXPECT_THAT(parseSpeech("\\spd=200\\\\PIT=120\\go"), ElementsAre(words("go", {{}, 200, 120})));
    for (const char* damaged : {"\\Spd= 200\\go", "\\Spd=fast\\go", "\\Spd=-5\\go", "\\Spd =200\\go"})
        EXPECT_THAT(parseSpeech(damaged), ElementsAre(words("go"))) << damaged;
}

TEST(SpeechTags, VoiceChangesSplitTheTextAndResetGoesBack)
{
    EXPECT_THAT(parseSpeech("one \\Pit=200\\two \\Rst\\three"),
                ElementsAre(words("one "), words("two ", {{}, {}, 200}), words("three")));
}

TEST(SpeechTags, PausesAreSilenceBetweenWords)
{
    EXPECT_THAT(parseSpeech("Wait\\Pau=500\\ now"),
                ElementsAre(words("Wait"), SpeechPart{"", "", 500, false, {}}, words(" now")));
}

TEST(SpeechTags, EmphasisStressesTheNextWordOnly)
{
    EXPECT_THAT(parseSpeech("\\emp\\I will call you"),
                ElementsAre(words("I", {}, true), words(" will call you")));
    EXPECT_THAT(parseSpeech("\\Vol=65535\\\\emp\\ Hello, there"),
                ElementsAre(words(" ", {65535, {}, {}}), words("Hello,", {65535, {}, {}}, true),
                            words(" there", {65535, {}, {}})));
}

TEST(SpeechTags, MapSaysOneTextAndShowsAnother)
{
    const auto parts = parseSpeech("Call \\Map=\"oh one six three two\"=\"01632\"\\ now");
    EXPECT_THAT(parts, ElementsAre(words("Call "), SpeechPart{"oh one six three two", "01632", 0, false, {}},
                                   words(" now")));
    EXPECT_EQ(shownText(parts), "Call 01632 now");
    // A backslash inside the quotes belongs to the text.
    EXPECT_EQ(shownText(parseSpeech("\\Map=\"a\"=\"C:\\dir\"\\")), "C:\\dir");
}

TEST(SpeechTags, UnknownAndDamagedTagsAreDroppedUnspoken)
{
    EXPECT_THAT(parseSpeech("\\Chr=\"Whisper\"\\\\Ctx=\"Address\"\\\\Mrk=3\\\\Lst\\\\Wave\\Hi"), ElementsAre(words("Hi")));
    EXPECT_THAT(parseSpeech("\\Map=\"broken\\Hi"), ElementsAre(words("Hi")));
    // A backslash that opens nothing is dropped; the words after it are kept.
    EXPECT_THAT(parseSpeech("back\\slash"), ElementsAre(words("backslash")));
    EXPECT_THAT(parseSpeech("trailing\\"), ElementsAre(words("trailing")));
    EXPECT_THAT(parseSpeech("\\Vol=100\\"), IsEmpty());
}

} // namespace
} // namespace corvel
