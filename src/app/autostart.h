#pragma once

#include <filesystem>
#include <string_view>

namespace corvel {

// Starting Corvel with the desktop session: an XDG autostart entry. Switching it off keeps the
// entry, marked hidden, so that the desktop remembers the choice.
class Autostart {
public:
    // $XDG_CONFIG_HOME/autostart/corvel.desktop, or ~/.config/autostart/corvel.desktop.
    static std::filesystem::path defaultEntry();
    // The corvel the session should start: the running one when it is installed (it lives in a
    // folder of `path`, the $PATH list, or in `installedBin`), else an installed corvel found in
    // those folders, else the running one (a build tree with nothing installed).
    static std::filesystem::path program(const std::filesystem::path& running, std::string_view path,
                                         const std::filesystem::path& installedBin);

    Autostart(std::filesystem::path entry, std::filesystem::path program);

    bool enabled() const;
    void setEnabled(bool on);

private:
    std::filesystem::path entry_;
    std::filesystem::path program_;
};

} // namespace corvel
