#include "character/voice_grammar.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "character/character_loading.h"

namespace corvel {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

VoiceGrammar grammar(std::string_view text)
{
    auto parsed = VoiceGrammar::parse(text);
    EXPECT_TRUE(parsed.has_value()) << text;
    return parsed ? *parsed : *VoiceGrammar::parse("nothing");
}

TEST(VoiceGrammar, TheCharactersCommandsAreHeardAsWritten)
{
    const VoiceGrammar properties = grammar("[Character] Properties");
    EXPECT_TRUE(properties.matches("properties"));
    EXPECT_TRUE(properties.matches("Character properties."));
    EXPECT_FALSE(properties.matches("character"));
    EXPECT_FALSE(properties.matches("properties character"));

    const VoiceGrammar introduce = grammar("(Introduction | Introduce)");
    EXPECT_TRUE(introduce.matches("introduction"));
    EXPECT_TRUE(introduce.matches("INTRODUCE!"));
    EXPECT_FALSE(introduce.matches("introduce introduction"));

    const VoiceGrammar exit = grammar("[Exit] Ombrel");
    EXPECT_TRUE(exit.matches("exit ombrel"));
    EXPECT_TRUE(exit.matches("Ombrel"));
    EXPECT_FALSE(exit.matches("exit corvel"));
}

TEST(VoiceGrammar, RepeatsNestingAndAnyWords)
{
    EXPECT_TRUE(grammar("[please] (call | ring) [(my | the) (office | home)]").matches("please ring the office"));
    EXPECT_FALSE(grammar("[please] (call | ring) [(my | the) (office | home)]").matches("ring the"));
    const VoiceGrammar again = grammar("hello+ (there | you)*");
    EXPECT_TRUE(again.matches("hello hello hello"));
    EXPECT_TRUE(again.matches("hello there you there"));
    EXPECT_FALSE(again.matches("there"));
    const VoiceGrammar spotting = grammar("... weather ...");
    EXPECT_TRUE(spotting.matches("what is the weather like today"));
    EXPECT_TRUE(spotting.matches("weather"));
    EXPECT_FALSE(spotting.matches("what is it like"));
}

TEST(VoiceGrammar, NumbersAreTheirWords)
{
    EXPECT_TRUE(grammar("line 2").matches("line two"));
    EXPECT_TRUE(grammar("line two").matches("Line 2"));
    EXPECT_EQ(spellNumber(0), "zero");
    EXPECT_EQ(spellNumber(21), "twenty one");
    EXPECT_EQ(spellNumber(1999), "one thousand nine hundred ninety nine");
    EXPECT_THAT(normaliseWords("Don't call, 12-ish!"), ElementsAre("don't", "call", "twelve", "ish"));
}

TEST(VoiceGrammar, DamagedOrSilentGrammarsAreRefused)
{
    for (const char* bad : {"", "[Character", "(a | b", "a)", "( | a)", "a |", "* a", "[maybe]", "[a] [b]*", "()"})
        EXPECT_FALSE(VoiceGrammar::parse(bad).has_value()) << bad;
}

TEST(VoiceGrammar, CompilesTheCommandsToOneJsgfGrammar)
{
    std::vector<VoiceGrammar> grammars;
    for (const AgentCommand& command : CharacterLoading::commands) grammars.push_back(grammar(command.voice));
    EXPECT_EQ(compileJsgf(grammars),
              "#JSGF V1.0;\n"
              "grammar corvel;\n"
              "public <command> = <c0> | <c1> | <c2>;\n"
              "<c0> = ( [ character ] properties );\n"
              "<c1> = ( introduction | introduce );\n"
              "<c2> = ( [ exit ] ombrel );\n");
    const std::string spotting = compileJsgf({grammar("... (weather | news)+")});
    EXPECT_THAT(spotting, HasSubstr("<c0> = ( <filler>* ( ( weather | news ) )+ );"));
    EXPECT_THAT(spotting, HasSubstr("<filler> = ( weather | news );"));
}

} // namespace
} // namespace corvel
