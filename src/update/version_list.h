#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace corvel {

// What the version list offers Corvel: a line "corvel:<version>", optionally followed by a
// blank and "sha256=<64 hex digits>", the installer's digest.
struct OfferedVersion {
    std::string version;
    std::optional<std::string> sha256;
};
// Reads the list without regard to case or blanks around a line; none when no line begins with
// "corvel:" or the version there is empty.
std::optional<OfferedVersion> offeredVersion(std::string_view list);
// Whether `offered` is a later major.minor.revision than `running`, number by number; a version
// that is not dot-separated numbers is never later.
bool isNewerVersion(std::string_view offered, std::string_view running);

} // namespace corvel
