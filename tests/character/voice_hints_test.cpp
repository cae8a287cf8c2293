#include "character/voice_hints.h"

#include <gtest/gtest.h>

namespace corvel {
namespace {

TEST(VoiceHints, TheCharactersHintsChooseTheVoice)
{
    EXPECT_EQ(chooseVoice({0x409, 1, 150, 170}), (EngineVoice{"en-us+f3", 170, 38}));
    EXPECT_EQ(chooseVoice({0x809, 2, 0, 0xFFFFFFFF}), (EngineVoice{"en+m3", 175, 50}));
    EXPECT_EQ(chooseVoice({0x407, 0, 150, 20}).name, "de");
    EXPECT_EQ(chooseVoice({0x407, 0, 150, 20}).rate, 80) << "slowest the engine goes";
    EXPECT_EQ(chooseVoice({0x7FF, 0, 0, 0xFFFFFFFF}).name, "en-us") << "a language without a voice";
}

TEST(VoiceHints, TagValuesInTheEnginesScales)
{
    EXPECT_EQ(engineVolume(65535), 100);
    EXPECT_EQ(engineVolume(35535), 54);
    EXPECT_EQ(engineVolume(1000), 2);
    EXPECT_EQ(engineVolume(0), 0);
    EXPECT_EQ(engineRate(600), 450);
    EXPECT_EQ(enginePitch(115, 2), 50);
    EXPECT_EQ(enginePitch(400, 1), 100);
    EXPECT_EQ(enginePitch(0, 0), 0);
}

TEST(VoiceHints, PhonemesForTheMouthAndTheRecognisersDictionary)
{
    EXPECT_EQ(visemeForPhoneme("_:"), 0);
    EXPECT_EQ(visemeForPhoneme("p"), 21);
    EXPECT_EQ(visemeForPhoneme("'oU"), 8);
    EXPECT_EQ(visemeForPhoneme("tS"), 16);
    EXPECT_EQ(arpabetFromEspeak("'0 m b r @L"), "AA M B R AH L");
    EXPECT_EQ(arpabetFromEspeak("p r '0 p 3 t# i z"), "P R AA P ER T IY Z");
    EXPECT_EQ(arpabetFromEspeak("k 'a r I2 k t 3"), "K AE R IH K T ER");
    EXPECT_EQ(arpabetFromEspeak(""), "");
}

} // namespace
} // namespace corvel
