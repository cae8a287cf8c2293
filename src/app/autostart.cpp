#include "app/autostart.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

#include "base/data_folder.h"
#include "base/log.h"
#include "base/text.h"

namespace corvel {
namespace fs = std::filesystem;

namespace {

bool isProgram(const fs::path& file)
{
    std::error_code error;
    return fs::is_regular_file(file, error) && ::access(file.c_str(), X_OK) == 0;
}

// The program as an Exec value of a desktop entry: quoted when it holds a character the
// entry's command line reserves, then written with the escapes of every string value.
std::string execValue(const std::string& program)
{
    static constexpr std::string_view reserved = " \t\n\"'\\><~|&;$*?#()`";
    std::string argument = program;
    if (program.find_first_of(reserved) != std::string::npos) {
        argument = "\"";
        for (const char c : program) {
            if (c == '"' || c == '`' || c == '$' || c == '\\') argument += '\\';
            argument += c;
        }
        argument += '"';
    }
    std::string value;
    for (const char c : argument) {
        if (c == '%') value += "%%"; // a single % would start a field code
        else if (c == '\\') value += "\\\\";
        else if (c == '\n') value += "\\n";
        else if (c == '\t') value += "\\t";
        else if (c == '\r') value += "\\r";
        else value += c;
    }
    return value;
}

} // namespace

fs::path Autostart::program(const fs::path& running, std::string_view path, const fs::path& installedBin)
{
    std::vector<fs::path> folders;
    while (!path.empty()) {
        const auto colon = path.find(':');
        const fs::path folder(std::string(path.substr(0, colon)));
        // Only absolute folders: a relative one would depend on where the session starts.
        if (folder.is_absolute()) folders.push_back(folder);
        path.remove_prefix(colon == std::string_view::npos ? path.size() : colon + 1);
    }
    if (!installedBin.empty()) folders.push_back(installedBin);
    std::error_code error;
    for (const fs::path& folder : folders)
        if (fs::equivalent(folder, running.parent_path(), error)) return running;
    for (const fs::path& folder : folders)
        if (isProgram(folder / "corvel")) return folder / "corvel";
    return running;
}

fs::path Autostart::defaultEntry()
{
    if (const char* config = std::getenv("XDG_CONFIG_HOME"); config && config[0] == '/')
        return fs::path(config) / "autostart" / "corvel.desktop";
    const char* home = std::getenv("HOME");
    return fs::path(home && *home ? home : ".") / ".config" / "autostart" / "corvel.desktop";
}

Autostart::Autostart(fs::path entry, fs::path program) : entry_(std::move(entry)), program_(std::move(program))
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
                              "Exec=" + execValue(program_.string()) + "\n"
                              "Icon=org.corvel.Corvel\n"
                              "Terminal=false\n"
                              "Hidden=" + std::string(on ? "false" : "true") + "\n";
    std::error_code error;
    fs::create_directories(entry_.parent_path(), error);
    if (!replaceFile(entry_, entry)) log::warning("could not change the autostart entry " + entry_.string());
}

} // namespace corvel
