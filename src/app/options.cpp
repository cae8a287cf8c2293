#include "app/options.h"

#include <algorithm>

#include "base/text.h"

namespace corvel {

const std::vector<Options::CheckBox> Options::checkBoxes{
    {"chk_allcalls", "allcalls", "Label7"},  {"chk_ansa", "ansa", "Label9"},
    {"chk_opt1", "answithheld", "Label8"},   {"chk_opt2", "ansunavailable", "Label20"},
    {"chk_opt3", "noid", "Label22"},         {"chk_opt4", "ansall", "Label21"},
    {"chk_balloon", "balloon", "Label41"},   {"chk_hide", "charhide", "Label42"},
    {"chk_effects", "effects", "Label45"},   {"chk_lww", "", "Label3"},
    {"chk_noagent", "noagent", "Label46"},
    {"chk_notify", "notifications", "lab_notify"},
    {"chk_blockwithheld", "blockwithheld", "lab_blockwithheld"},
    {"chk_blockunavailable", "blockunavailable", "lab_blockunavailable"},
    {"chk_trusted", "trusted", "lab_trusted"},
    {"chk_quiet", "quiet", "lab_quiet"},
};

const std::vector<Options::TextField> Options::textFields{
    {"txt_quietfrom", "quietfrom"},
    {"txt_quietto", "quietto"},
    {"txt_messagecommand", "messagecommand"},
};

const std::vector<Options::Stepper> Options::steppers{
    {"txt_rings", "rings", "Command2", "Command5", 1, 100},
    {"txt_transfer", "transfer", "Command3", "Command6", 1, std::nullopt}, // no upper bound, on purpose
    {"txt_vol", "vol", "Command25", "Command26", 1, 10},
};

Options::Options(View& view, SettingsStore& settings, Agent& agent, CharacterSpeech& speech,
                 CharacterLoading& characters, Autostart& autostart)
    : view_(view), settings_(settings), agent_(agent), speech_(speech), characters_(characters), autostart_(autostart)
{
}

void Options::checkBoxClicked(std::string_view box)
{
    const auto option = std::find_if(checkBoxes.begin(), checkBoxes.end(), [&](const CheckBox& c) { return c.box == box; });
    if (option == checkBoxes.end()) return;
    const bool ticked = view_.isChecked(box);
    if (!option->key.empty()) settings::writeData(settings_, option->key, ticked ? "True" : "False");

    if (box == "chk_ansa" && ticked && !view_.isChecked("chk_allcalls")) {
        view_.setChecked("chk_allcalls", true);
        checkBoxClicked("chk_allcalls");
    } else if (box == "chk_balloon" || box == "chk_hide") {
        speech_.say("Okay!");
    } else if (box == "chk_effects") {
        agent_.setSoundEffects(ticked);
    } else if (box == "chk_lww") {
        autostart_.setEnabled(ticked);
    } else if (box == "chk_noagent") {
        characters_.noagentClicked(ticked);
    }
}

void Options::textEdited(std::string_view field)
{
    const auto option = std::find_if(textFields.begin(), textFields.end(), [&](const TextField& f) { return f.field == field; });
    if (option == textFields.end()) return;
    // One line, whatever was pasted in: the settings file keeps one value a line.
    settings::writeData(settings_, option->key, text::fromLine(view_.text(field), 1000));
}

void Options::captionClicked(std::string_view caption)
{
    const auto option =
        std::find_if(checkBoxes.begin(), checkBoxes.end(), [&](const CheckBox& c) { return c.caption == caption; });
    if (option == checkBoxes.end()) return;
    view_.setChecked(option->box, !view_.isChecked(option->box));
    checkBoxClicked(option->box);
}

void Options::stepClicked(std::string_view button)
{
    const auto stepper = std::find_if(steppers.begin(), steppers.end(),
                                      [&](const Stepper& s) { return s.down == button || s.up == button; });
    if (stepper == steppers.end()) return;
    const long long value = text::leadingNumber(view_.text(stepper->field));
    if (button == stepper->down && value > stepper->lowest) view_.setText(stepper->field, std::to_string(value - 1));
    if (button == stepper->up && (!stepper->highest || value < *stepper->highest))
        view_.setText(stepper->field, std::to_string(value + 1));
    // Said and saved even at a bound, so the user hears where the value stands.
    const std::string shown = view_.text(stepper->field);
    settings::writeData(settings_, stepper->key, shown);
    agent_.stop();
    speech_.say(shown);
}

} // namespace corvel
