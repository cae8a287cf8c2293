#include "app/autostart.h"

#include <unistd.h>

#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvel {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;

class AutostartTest : public ::testing::Test {
protected:
    ~AutostartTest() override { fs::remove_all(top); }

    // A corvel in `folder`, executable unless told otherwise.
    fs::path corvel(const fs::path& folder, bool executable = true) const
    {
        fs::create_directories(top / folder);
        std::ofstream(top / folder / "corvel") << "#!/bin/sh\n";
        fs::permissions(top / folder / "corvel", executable ? fs::perms::owner_all : fs::perms::owner_read);
        return top / folder / "corvel";
    }
    std::string entryFor(const fs::path& program) const
    {
        Autostart(top / "corvel.desktop", program).setEnabled(true);
        std::ifstream in(top / "corvel.desktop");
        return {std::istreambuf_iterator<char>(in), {}};
    }

    const fs::path top = [] {
        std::string pattern = (fs::temp_directory_path() / "corvel-autostart-XXXXXX").string();
        return fs::path(::mkdtemp(pattern.data()));
    }();
};

TEST_F(AutostartTest, TheEntryStartsTheInstalledCorvelNotTheBuildTree)
{
    const fs::path built = corvel("build/bin");
    const std::string path = (top / "home/bin").string() + ":relative:" + (top / "usr/bin").string();
    EXPECT_EQ(Autostart::program(built, path, top / "opt/bin"), built) << "nothing installed";

    corvel("home/bin", false); // not a program
    const fs::path prefixed = corvel("opt/bin");
    EXPECT_EQ(Autostart::program(built, path, top / "opt/bin"), prefixed) << "installed under the prefix";
    const fs::path installed = corvel("usr/bin");
    EXPECT_EQ(Autostart::program(built, path, top / "opt/bin"), installed) << "$PATH first";
    EXPECT_EQ(Autostart::program(prefixed, path, top / "opt/bin"), prefixed) << "an installed one runs itself";
}

TEST_F(AutostartTest, ExecIsQuotedAsDesktopEntriesAreRead)
{
    EXPECT_THAT(entryFor("/usr/bin/corvel"), HasSubstr("\nExec=/usr/bin/corvel\n"));
    EXPECT_THAT(entryFor("/home/ann/My $HOME's 100%/corvel"),
                HasSubstr("\nExec=\"/home/ann/My \\\\$HOME's 100%%/corvel\"\n"));
    EXPECT_THAT(entryFor("/home/ann/a\"b\\c/corvel"), HasSubstr("\nExec=\"/home/ann/a\\\\\"b\\\\\\\\c/corvel\"\n"));
}

} // namespace
} // namespace corvel
