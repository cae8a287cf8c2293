#pragma once

#include "base/shell.h"

namespace corvel {

// The desktop's handlers, as xdg-open and xdg-mime know them.
class QtShell final : public Shell {
public:
    bool openFile(const std::filesystem::path& file) override;
    std::optional<std::string> webBrowser() override;
    bool startBrowser(const std::string& program, const std::string& address) override;
    void startCommand(const std::vector<std::string>& arguments,
                      const std::vector<std::pair<std::string, std::string>>& environment) override;
};

} // namespace corvel
