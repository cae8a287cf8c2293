#include "character/acs/character_info.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <unistd.h>

#include "character/acs/writer.h"
#include "sample_character.h"

namespace corvel::acs {
namespace {

using ::testing::HasSubstr;
namespace fs = std::filesystem;

class CharacterInfo : public ::testing::Test {
protected:
    fs::path folder = fs::temp_directory_path() / ("corvel-acs-info-" + std::to_string(::getpid()));
    std::ostringstream out, err;

    void SetUp() override { fs::create_directories(folder); }
    void TearDown() override { fs::remove_all(folder); }
};

TEST_F(CharacterInfo, ListsNameSizeAnimationsAndStates)
{
    const fs::path file = folder / "Ringer.acs";
    writeCharacterFile(testing::sampleCharacter(), file);
    EXPECT_EQ(printCharacterInfo(file, out, err), 0);
    EXPECT_EQ(out.str(), "Name: Ringer\n"
                         "Description: A telephone (2)\n"
                         "Frame size: 16 x 12\n"
                         "Animations: 3\n"
                         "  Wave: 3 frames\n"
                         "  WaveReturn: 1 frame\n"
                         "  Nod: 2 frames\n"
                         "States: 2\n"
                         "  SHOWING: Wave\n"
                         "  IDLINGLEVEL1: Wave, WaveReturn\n");
    EXPECT_EQ(err.str(), "");
}

TEST_F(CharacterInfo, SaysWhyAFileCannotBeRead)
{
    const fs::path file = folder / "Broken.acs";
    std::ofstream(file) << "not a character";
    EXPECT_EQ(printCharacterInfo(file, out, err), 1);
    EXPECT_THAT(err.str(), HasSubstr("Broken.acs: not a character file"));
    EXPECT_EQ(printCharacterInfo(folder / "Missing.acs", out, err), 1);
    EXPECT_THAT(err.str(), HasSubstr("Missing.acs: cannot be read: No such file or directory"));
    EXPECT_EQ(out.str(), "");
}

} // namespace
} // namespace corvel::acs
