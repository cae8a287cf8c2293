#pragma once

#include <filesystem>
#include <string>

namespace corvel {

// Starting Corvel with the desktop session: an XDG autostart entry. Switching it off keeps the
// entry, marked hidden, so that the desktop remembers the choice.
class Autostart {
public:
    // $XDG_CONFIG_HOME/autostart/corvel.desktop, or ~/.config/autostart/corvel.desktop.
    static std::filesystem::path defaultEntry();

    Autostart(std::filesystem::path entry, std::string command);

    bool enabled() const;
    void setEnabled(bool on);

private:
    std::filesystem::path entry_;
    std::string command_;
};

} // namespace corvel
