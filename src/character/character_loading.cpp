#include "character/character_loading.h"

#include <algorithm>
#include <cctype>
#include <set>

namespace corvel {
namespace fs = std::filesystem;
namespace {

constexpr std::string_view defaultCharacter = "Phony";

std::string lower(std::string_view text)
{
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return out;
}

bool isCharacterFile(const fs::path& file) { return lower(file.extension().string()) == ".acs"; }

// A name from the settings or the list: one plain file name, nothing that climbs out.
bool plainName(std::string_view name)
{
    return !name.empty() && name.size() < 250 && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos && name != "." && name != "..";
}

} // namespace

std::vector<fs::path> characterFolders(const fs::path& dataFolder, const char* xdgDataDirs)
{
    std::vector<fs::path> folders{dataFolder / "characters"};
    std::string_view dirs = xdgDataDirs && *xdgDataDirs ? xdgDataDirs : "/usr/local/share:/usr/share";
    while (!dirs.empty()) {
        const std::size_t colon = dirs.find(':');
        const fs::path dir(dirs.substr(0, colon));
        dirs = colon == std::string_view::npos ? std::string_view{} : dirs.substr(colon + 1);
        if (!dir.is_absolute()) continue;
        fs::path folder = dir / "corvel" / "characters";
        if (std::find(folders.begin(), folders.end(), folder) == folders.end()) folders.push_back(std::move(folder));
    }
    return folders;
}

std::optional<fs::path> findCharacterFile(const std::vector<fs::path>& folders, std::string_view name)
{
    if (!plainName(name)) return std::nullopt;
    const std::string file = std::string(name) + ".acs";
    for (const fs::path& folder : folders) {
        std::error_code error;
        if (fs::is_regular_file(folder / file, error)) return folder / file;
        const std::string wanted = lower(file);
        for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
            if (lower(it->path().filename().string()) == wanted && it->is_regular_file(error)) return it->path();
        }
    }
    return std::nullopt;
}

std::vector<std::string> listCharacterFiles(const std::vector<fs::path>& folders)
{
    std::vector<std::string> files;
    std::set<std::string> seen;
    for (const fs::path& folder : folders) {
        std::error_code error;
        for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
            std::error_code kind;
            if (!isCharacterFile(it->path()) || !it->is_regular_file(kind)) continue;
            std::string name = it->path().filename().string();
            if (seen.insert(name).second) files.push_back(std::move(name));
        }
    }
    std::sort(files.begin(), files.end(), [](const std::string& a, const std::string& b) {
        const std::string la = lower(a), lb = lower(b);
        return la != lb ? la < lb : a < b;
    });
    return files;
}

// The captions and grammars are Corvel's as it has always shipped them: the blank after
// "Introducing" and the other program's name in the exit grammar included.
const std::vector<AgentCommand> CharacterLoading::commands{
    {"Properties", "Alter Character Properties", "[Character] Properties"},
    {"Introduce", "Introducing ", "(Introduction | Introduce)"},
    {"exit", "Exit Corvel", "[Exit] Ombrel"},
};

CharacterLoading::CharacterLoading(Agent& agent, SettingsStore& settings, View& view, EventLoop& loop,
                                   CharacterSpeech& speech, std::vector<fs::path> folders,
                                   std::function<void()> endProgram)
    : agent_(agent), settings_(settings), view_(view), loop_(loop), speech_(speech), folders_(std::move(folders)),
      endProgram_(std::move(endProgram))
{
    agent_.addListener(this);
}

CharacterLoading::~CharacterLoading() { agent_.removeListener(this); }

std::string CharacterLoading::savedCharacter() const
{
    return settings::readData(settings_, "character", defaultCharacter);
}

void CharacterLoading::load(std::string_view name)
{
    // A character that will not load leaves the steps below to fall on nothing, silently.
    agent_.load(name);
    for (const AgentCommand& command : commands) agent_.addCommand(command);
    if (settings::dataFlag(settings_, "effects", "True")) {
        // Ticking the box does what its own click does: the effects come on.
        view_.setChecked("chk_effects", true);
        agent_.setSoundEffects(true);
    } else {
        agent_.setSoundEffects(false);
    }
    agent_.show();
    speech_.geniemove();
}

void CharacterLoading::command27Clicked()
{
    if (settings::dataFlag(settings_, "noagent", "False")) {
        view_.messageBox(MessageIcon::Information, applicationTitle,
                         "You have disable the character. Please enable the character before trying to load a new one");
        return;
    }
    const std::string picked = view_.selectedItem("File1");
    if (picked.size() < 2) {
        speech_.say("You didnt select a character");
        return;
    }
    const std::string name = picked.substr(0, picked.find('.'));
    agent_.unload(savedCharacter());
    // Saved even when the character then fails to load.
    settings::writeData(settings_, "character", name);
    load(name);
    speech_.say("Welcome to corvel!");
}

void CharacterLoading::noagentClicked(bool ticked)
{
    settings::writeData(settings_, "noagent", ticked ? "True" : "False");
    if (ticked) agent_.unload(savedCharacter());
    else load(savedCharacter());
}

void CharacterLoading::listCharacters() { view_.setListItems("File1", listCharacterFiles(folders_)); }

void CharacterLoading::command(std::string_view name)
{
    if (name == "Properties") {
        agent_.stop();
        agent_.showPropertySheet();
    } else if (name == "Introduce") {
        agent_.stop();
        speech_.say(agent_.description());
    } else if (name == "exit") {
        // No farewell: the character is stopped and Corvel closes.
        agent_.stop();
        loop_.processPending();
        if (endProgram_) endProgram_();
    }
}

} // namespace corvel
