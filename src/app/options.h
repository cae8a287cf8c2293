#pragma once

#include <optional>
#include <string_view>

#include "app/autostart.h"
#include "base/settings_store.h"
#include "base/view.h"
#include "character/agent.h"
#include "character/character_loading.h"
#include "character/character_speech.h"

namespace corvel {

// The options on the settings pages: check boxes written at once, caption labels that toggle
// them, and the ring, transfer and volume values changed by down and up buttons.
class Options {
public:
    struct CheckBox {
        std::string_view box;
        std::string_view key; // empty for chk_lww, which is the autostart entry
        std::string_view caption;
    };
    struct Stepper {
        std::string_view field;
        std::string_view key;
        std::string_view down;
        std::string_view up;
        long long lowest;
        std::optional<long long> highest; // the transfer time has none
    };
    // A text typed in and kept when the user leaves the field.
    struct TextField {
        std::string_view field;
        std::string_view key;
    };
    static const std::vector<CheckBox> checkBoxes;
    static const std::vector<TextField> textFields;
    static const std::vector<Stepper> steppers;

    Options(View& view, SettingsStore& settings, Agent& agent, CharacterSpeech& speech, CharacterLoading& characters,
            Autostart& autostart);

    void checkBoxClicked(std::string_view box);
    void captionClicked(std::string_view caption);
    void textEdited(std::string_view field);
    void stepClicked(std::string_view button);

private:
    View& view_;
    SettingsStore& settings_;
    Agent& agent_;
    CharacterSpeech& speech_;
    CharacterLoading& characters_;
    Autostart& autostart_;
};

} // namespace corvel
