#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/event_loop.h"
#include "base/settings_store.h"
#include "base/view.h"
#include "character/agent.h"
#include "character/character_speech.h"

namespace corvel {

// The folders characters are looked for in, in this order: "characters" in the data folder, then
// "corvel/characters" under each entry of `xdgDataDirs` (as $XDG_DATA_DIRS; empty or unset means
// /usr/local/share:/usr/share). Relative entries are ignored, as the base directory rules say.
std::vector<std::filesystem::path> characterFolders(const std::filesystem::path& dataFolder,
                                                    const char* xdgDataDirs);

// The file of the character `name`: `name` + ".acs" in the first folder that holds it, spelt
// exactly, else differing only in letter case. None for a name that is no plain file name.
std::optional<std::filesystem::path> findCharacterFile(const std::vector<std::filesystem::path>& folders,
                                                       std::string_view name);

// The "*.acs" files of the folders (extension in any case), each file name once, ordered by
// name without regard to case.
std::vector<std::string> listCharacterFiles(const std::vector<std::filesystem::path>& folders);

// Picking, loading and switching off the character, and its three commands: the property
// sheet, introducing itself and quitting Corvel.
class CharacterLoading final : private AgentEvents {
public:
    static const std::vector<AgentCommand> commands;

    CharacterLoading(Agent& agent, SettingsStore& settings, View& view, EventLoop& loop, CharacterSpeech& speech,
                     std::vector<std::filesystem::path> folders, std::function<void()> endProgram);
    ~CharacterLoading();
    CharacterLoading(const CharacterLoading&) = delete;
    CharacterLoading& operator=(const CharacterLoading&) = delete;

    // Loads the character `name`, gives it the commands, applies "effects", shows it and stands
    // it beside the main window. A character that cannot be loaded is passed over.
    void load(std::string_view name);
    // Command27: loads the character picked in File1 and remembers it.
    void command27Clicked();
    // chk_noagent: switches the character off (ticked) or back on.
    void noagentClicked(bool ticked);
    // Fills File1 with the character files.
    void listCharacters();

    const std::vector<std::filesystem::path>& folders() const { return folders_; }

private:
    void requestComplete(AgentRequest) override {}
    void command(std::string_view name) override;
    std::string savedCharacter() const;

    Agent& agent_;
    SettingsStore& settings_;
    View& view_;
    EventLoop& loop_;
    CharacterSpeech& speech_;
    std::vector<std::filesystem::path> folders_;
    std::function<void()> endProgram_;
};

} // namespace corvel
