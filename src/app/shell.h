#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace corvel {

// The desktop's way of opening things.
class Shell {
public:
    virtual ~Shell() = default;
    // Opens a text file in the user's text editor, without waiting; failures are logged.
    virtual void openInTextEditor(const std::filesystem::path& file) = 0;
    // The program the desktop opens web pages with, or nothing when there is none.
    virtual std::optional<std::string> webBrowser() = 0;
    // Starts `program` on `address`; false when it could not be started.
    virtual bool startBrowser(const std::string& program, const std::string& address) = 0;
};

} // namespace corvel
