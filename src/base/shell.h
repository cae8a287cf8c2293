#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace corvel {

// The desktop's way of opening things.
class Shell {
public:
    virtual ~Shell() = default;
    // Opens a file with the program the desktop gives its type (a text editor for notes, the
    // package installer for an update), without waiting; false when nothing could open it.
    virtual bool openFile(const std::filesystem::path& file) = 0;
    // The program the desktop opens web pages with, or nothing when there is none.
    virtual std::optional<std::string> webBrowser() = 0;
    // Starts `program` on `address`; false when it could not be started.
    virtual bool startBrowser(const std::string& program, const std::string& address) = 0;
    // Starts `arguments[0]` with the rest as its arguments, directly and never through a shell,
    // with `environment` added to Corvel's own; does not wait for it. Its output, its end and
    // any failure to start go to the log.
    virtual void startCommand(const std::vector<std::string>& arguments,
                              const std::vector<std::pair<std::string, std::string>>& environment) = 0;
};

} // namespace corvel
