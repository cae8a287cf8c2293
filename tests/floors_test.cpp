// The source tree's floors: a folder includes only its own floor and those below it, so that
// the ground floor stands on its own and the parts never reach into the shell that wires them.

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace corvel {
namespace {

namespace fs = std::filesystem;

const std::map<std::string, int> floorOf = {
    {"base", 0},      {"character", 1}, {"messages", 1}, {"prompts", 1}, {"records", 1},
    {"telephony", 1}, {"update", 1},    {"app", 2},      {"ui", 3},
};

TEST(Floors, NoFolderIncludesAFloorAboveIt)
{
    const fs::path source = fs::path(CORVEL_SOURCE_DIR) / "src";
    const std::regex include(R"(^\s*#\s*include\s+"([a-z_]+)/)");
    std::vector<std::string> upward;
    for (const auto& entry : fs::recursive_directory_iterator(source)) {
        if (!entry.is_regular_file()) continue;
        const fs::path relative = fs::relative(entry.path(), source);
        if (relative.begin() == relative.end() || std::next(relative.begin()) == relative.end()) continue; // main.cpp
        const auto own = floorOf.find(relative.begin()->string());
        ASSERT_NE(own, floorOf.end()) << relative << " is in a folder with no floor";
        std::ifstream file(entry.path());
        std::string line;
        for (std::smatch match; std::getline(file, line);) {
            if (!std::regex_search(line, match, include)) continue;
            const auto target = floorOf.find(match[1]);
            if (target == floorOf.end() || target->second > own->second) upward.push_back(relative.string() + ": " + line);
        }
    }
    EXPECT_THAT(upward, ::testing::IsEmpty());
}

} // namespace
} // namespace corvel
