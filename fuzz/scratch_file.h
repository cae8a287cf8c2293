#pragma once

#include <unistd.h>

#include <filesystem>
#include <string>

namespace corvel::fuzzing {

// A file `name` in a temporary folder of this run's own, for targets that read files: each
// input is written there and read back.
inline std::filesystem::path scratchFile(const std::string& name)
{
    std::string pattern = (std::filesystem::temp_directory_path() / "corvel-fuzz-XXXXXX").string();
    return std::filesystem::path(::mkdtemp(pattern.data())) / name;
}

} // namespace corvel::fuzzing
