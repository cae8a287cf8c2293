#include "app/autostart.h"

#include <cstdlib>
#include <fstream>
#include <iterator>

#include "app/data_folder.h"
#include "app/log.h"
#include "app/text.h"

namespace corvel {

std::filesystem::path Autostart::defaultEntry()
{
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && config[0] == '/')
        return std::filesystem::path(config) / "autostart" / "corvel.desktop";
    const char* home = std::getenv("HOME");
    return std::filesystem::path(home && *home ? home : ".") / ".config" / "autostart" / "corvel.desktop";
}

Autostart::Autostart(std::filesystem::path entry, std::string command)
    : entry_(std::move(entry)), command_(std::move(command))
{
}

bool Autostart::enabled() const
{
    std::ifstream in(entry_);
    const std::string text = text::lower(std::string(std::istreambuf_iterator<char>(in), {}));
    return text.find("\nexec=") != std::string::npos && text.find("corvel") != std::string::npos &&
           text.find("\nhidden=true") == std::string::npos;
}

void Autostart::setEnabled(bool on)
{
    const std::string entry = "[Desktop Entry]\n"
                              "Type=Application\n"
                              "Name=Corvel\n"
                              "Comment=Intelligent answer phone\n"
                              "Exec=" + command_ + "\n"
                              "Icon=corvel\n"
                              "Terminal=false\n"
                              "Hidden=" + std::string(on ? "false" : "true") + "\n";
    std::error_code error;
    std::filesystem::create_directories(entry_.parent_path(), error);
    if (!replaceFile(entry_, entry)) log::warning("could not change the autostart entry " + entry_.string());
}

} // namespace corvel
