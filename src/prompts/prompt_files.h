#pragma once

#include <string_view>
#include <vector>

#include "base/data_folder.h"
#include "base/settings_store.h"
#include "base/shell.h"
#include "base/sound_output.h"
#include "base/view.h"
#include "character/character_speech.h"

namespace corvel {

// The seven prompts played to callers: each is a wave file the user may replace, shown in a
// text box with a Change and a Play button beside it.
class PromptFiles {
public:
    struct Prompt {
        std::string_view caption;
        std::string_view key; // in section "audio"
        std::string_view field;
        std::string_view shipped; // the file Corvel ships, in the data folder
        std::string_view change;
        std::string_view play;
    };
    static const std::vector<Prompt> prompts;

    PromptFiles(const DataFolder& folder, View& view, SettingsStore& settings, SoundOutput& speaker, Shell& shell,
                CharacterSpeech& speech);

    // Start-up: each prompt's file into its text box.
    void loadIntoFields();
    // A Change or a Play button.
    void clicked(std::string_view button);

private:
    void change(const Prompt& prompt);

    const DataFolder& folder_;
    View& view_;
    SettingsStore& settings_;
    SoundOutput& speaker_;
    Shell& shell_;
    CharacterSpeech& speech_;
};

} // namespace corvel
