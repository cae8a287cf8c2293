#include "prompts/prompt_files.h"

#include <algorithm>

namespace corvel {

// The buttons were numbered as they were placed on the page, not in the prompts' order; each
// stays paired with its own prompt.
const std::vector<PromptFiles::Prompt> PromptFiles::prompts{
    {"Good morning", "morning", "txt_morning", "goodmorning.wav", "Command11", "Command18"},
    {"Good afternoon", "afternoon", "txt_afternoon", "goodafternoon.wav", "Command12", "Command24"},
    {"Good evening", "evening", "txt_evening", "goodevening.wav", "Command16", "Command23"},
    {"Enter your number", "number", "txt_number", "askfornumber.wav", "Command15", "Command22"},
    {"Trying to connect you", "connect", "txt_connect", "pleasewait.wav", "Command14", "Command21"},
    {"Nobody available message", "nobody", "txt_nobody", "nobodyavailable.wav", "Command13", "Command20"},
    {"Please leave a message", "leavemessage", "txt_leavemessage", "leavemessage.wav", "Command17", "Command19"},
    // Played to a blocked caller before Corvel hangs up on them.
    {"Blocked caller", "blocked", "txt_blocked", "blocked.wav", "cmd_blockedchange", "cmd_blockedplay"},
};

PromptFiles::PromptFiles(const DataFolder& folder, View& view, SettingsStore& settings, SoundOutput& speaker,
                         Shell& shell, CharacterSpeech& speech)
    : folder_(folder), view_(view), settings_(settings), speaker_(speaker), shell_(shell), speech_(speech)
{
}

void PromptFiles::loadIntoFields()
{
    for (const Prompt& prompt : prompts) {
        view_.setText(prompt.field, settings_.read(settings::application, settings::audio, prompt.key,
                                                   (folder_.root() / prompt.shipped).string()));
    }
}

void PromptFiles::clicked(std::string_view button)
{
    for (const Prompt& prompt : prompts) {
        if (button == prompt.change) change(prompt);
        if (button == prompt.play) speaker_.playfile(view_.text(prompt.field));
    }
}

void PromptFiles::change(const Prompt& prompt)
{
    // The notes on recording prompts open first, whatever the user then picks.
    shell_.openFile(folder_.root() / "notes.txt");
    const std::string chosen = view_.openFileDialog("Wav files (*.wav)|*.wav", {});
    if (chosen.size() < 2) {
        speech_.say("You did not select a file!");
        view_.messageBox(MessageIcon::Information, applicationTitle, "You didn`t select a file. Please try again!");
        return;
    }
    settings_.write(settings::application, settings::audio, prompt.key, chosen);
    view_.setText(prompt.field, chosen);
}

} // namespace corvel
