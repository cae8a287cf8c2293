#include "base/data_folder.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace corvel {
namespace {

namespace fs = std::filesystem;

class DataFolderTest : public ::testing::Test {
protected:
    ~DataFolderTest() override { fs::remove_all(top); }

    void write(const fs::path& path) const { std::ofstream(path) << "GIF89a"; }

    const fs::path top = [] {
        std::string pattern = (fs::temp_directory_path() / "corvel-folder-XXXXXX").string();
        return fs::path(::mkdtemp(pattern.data()));
    }();
    const fs::path root = [this] {
        fs::create_directories(top / "data");
        return top / "data";
    }();
    DataFolder folder{root};
};

TEST_F(DataFolderTest, NamesCompareInLowerCase)
{
    write(root / "withheld.gif");
    EXPECT_EQ(folder.file("Withheld.gif"), root / "withheld.gif");
    EXPECT_TRUE(folder.exists("WITHHELD.GIF"));
    EXPECT_EQ(folder.file("default.gif"), root / "default.gif") << "a new file takes the name given";
    EXPECT_FALSE(folder.exists("default.gif"));

    write(root / "Withheld.gif");
    EXPECT_EQ(folder.file("Withheld.gif"), root / "Withheld.gif") << "the exact name first";
    write(root / "0123.gif");
    EXPECT_FALSE(folder.rename("0123.gif", "WITHHELD.gif")) << "never over a file of the same name";
}

TEST_F(DataFolderTest, ANameThatIsNoPlainFileNameReachesNothingEvenInOtherLetters)
{
    write(top / "secret.gif");
    for (const char* name : {"../secret.gif", "../SECRET.GIF", "/etc/passwd", "..", "."})
        EXPECT_EQ(folder.file(name), std::nullopt) << name;
}

TEST_F(DataFolderTest, OnlyScratchFilesAreSweptAway)
{
    for (const char* name : {"1-3-0123.wav.part", "piclist.txt.part", "TempDir.txt", "part.txt", "1-1-0123.wav"}) write(root / name);
    fs::create_directory(root / "folder.part");
    EXPECT_EQ(folder.removeScratchFiles({"tempdir.txt"}), 3);
    std::vector<std::string> left;
    for (const auto& entry : fs::directory_iterator(root)) left.push_back(entry.path().filename());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{"1-1-0123.wav", "folder.part", "part.txt"}));
}

} // namespace
} // namespace corvel
