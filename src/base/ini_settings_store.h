#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/settings_store.h"

namespace corvel {

// The settings in one INI text file that a person can also edit by hand: sections named
// "[application/section]", lines "key=value", comments starting with ";" or "#". A value that
// would not read back as it is (blanks at either end, control characters, a leading quote) is
// written as a quoted string with backslash escapes.
//
// Every read parses the file afresh. Every change rewrites the whole file through a scratch
// file and a rename, so that a crash at any moment leaves either the old file or the new one.
// Lines that make no sense are kept on disk as they are, ignored, and reported once.
class IniSettingsStore final : public SettingsStore {
public:
    static constexpr std::string_view fileName = "corvel.conf";

    explicit IniSettingsStore(std::filesystem::path file);

    // `configDir`/corvel.conf when a folder is given (the --config-dir option), otherwise
    // $XDG_CONFIG_HOME/corvel/corvel.conf, or else $HOME/.config/corvel/corvel.conf.
    static std::filesystem::path defaultPath(const std::filesystem::path& configDir = {});

    const std::filesystem::path& path() const { return file_; }

    std::string read(std::string_view application, std::string_view section,
                     std::string_view key, std::string_view fallback) const override;
    void write(std::string_view application, std::string_view section, std::string_view key,
               std::string_view value) override;
    void deleteKey(std::string_view application, std::string_view section,
                   std::string_view key) override;

private:
    std::filesystem::path file_;
    // Digest of the problems last logged: a broken line is reported once, not on every read.
    mutable std::size_t reportedDigest_;
};

} // namespace corvel
