// Bringing Corvel up, in the order its parts depend on one another.

#include <algorithm>

#include "app/answer_phone.h"
#include "base/log.h"
#include "base/text.h"

namespace corvel {
namespace {

// The options the start-up fills into the controls, in its order, with the defaults it reads
// them with. "Flase" is deliberate: anything but "True" leaves the box clear.
struct Filled {
    std::string_view control;
    std::string_view key;
    std::string_view fallback;
};
constexpr Filled answeringOptions[] = {
    {"chk_allcalls", "allcalls", "Flase"}, {"txt_rings", "rings", "5"}, {"chk_ansa", "ansa", "True"}};
constexpr Filled moreOptions[] = {
    {"chk_noagent", "noagent", "False"},   {"chk_hide", "charhide", "False"},    {"chk_balloon", "balloon", "True"},
    {"txt_vol", "vol", "10"},              {"chk_opt1", "answithheld", "True"}, {"chk_opt2", "ansunavailable", "True"},
    {"chk_opt3", "noid", "True"},          {"chk_opt4", "ansall", "False"},      {"txt_transfer", "transfer", "20"},
    {"chk_notify", "notifications", "True"},
    {"chk_blockwithheld", "blockwithheld", "False"}, {"chk_blockunavailable", "blockunavailable", "False"},
    {"chk_trusted", "trusted", "False"},   {"chk_quiet", "quiet", "False"},      {"txt_quietfrom", "quietfrom", "22:00"},
    {"txt_quietto", "quietto", "07:00"},   {"txt_messagecommand", "messagecommand", ""}};

// Where the line chosen before stands in today's list: found by its name, since the list holds
// the devices present; by its number only when no name was kept.
std::optional<int> storedLine(const std::vector<std::string>& names, const std::string& name, const std::string& number)
{
    if (name.empty()) {
        const long long index = text::leadingNumber(number);
        if (index >= 0 && index < static_cast<long long>(names.size())) return static_cast<int>(index);
        return std::nullopt;
    }
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) return std::nullopt;
    return static_cast<int>(found - names.begin());
}

std::vector<std::string> lineNames(const Line& line)
{
    std::vector<std::string> names;
    for (const LineDevice& device : line.devices()) names.push_back(device.name);
    return names;
}

} // namespace

void AnswerPhone::listLines()
{
    const std::string shown = ports.view.selectedItem("ComboDevice");
    const std::vector<std::string> names = lineNames(ports.line);
    ports.view.setListItems("ComboDevice", names);
    const auto at = std::find(names.begin(), names.end(), shown);
    if (!shown.empty() && at != names.end()) ports.view.setListIndex("ComboDevice", static_cast<int>(at - names.begin()));
}

void AnswerPhone::startUp(std::optional<int> chosenLine)
{
    View& view = ports.view;
    SettingsStore& settings = ports.settings;
    const auto fill = [&](const Filled& option) {
        const std::string value = settings::readData(settings, option.key, option.fallback);
        if (option.control.starts_with("chk_")) view.setChecked(option.control, settings::isSet(value));
        else view.setText(option.control, value);
    };

    const auto position = [&](std::string_view key) {
        return static_cast<double>(text::leadingNumber(settings.read("Withheld", settings::data, key, "200")));
    };
    view.moveMainWindow(position("frmx"), position("frmy"));

    const std::vector<std::string> names = lineNames(ports.line);
    view.setListItems("ComboDevice", names);
    if (chosenLine) handling.chooseDevice(*chosenLine);

    const auto firstRun = [&] {
        view.selectTab("SSTab1", 1);
        speech.say("You need to set up Corvel for the first time!");
        view.messageBox(MessageIcon::Exclamation, applicationTitle,
                        "Before you can use this software, you need to select your modem from the modems list in "
                        "the window that will appear. When you have done this, you are ready to accept calls!");
    };
    const std::string modem = settings::readData(settings, "modem", "");
    const std::string modemName = settings::readData(settings, "modemname", "");
    if (modem.empty()) {
        firstRun();
    } else if (const auto stored = storedLine(names, modemName, modem)) {
        ports.line.setDeviceNumber(*stored);
        view.setListIndex("ComboDevice", ports.line.deviceNumber());
        // The stored line is opened as START opens it, so that calls are taken from the start.
        if (!chosenLine) handling.start();
        window.shrink();
    } else {
        // The list holds the devices present, so an unplugged modem is missing, not moved:
        // nothing else is opened in its place, and the choice is kept for its return.
        log::warning("the line \"" + modemName + "\" chosen before is not here; no line is open until it is back or another is chosen");
        firstRun();
    }

    for (const Filled& option : answeringOptions) fill(option);
    view.setChecked("chk_lww", ports.autostart.enabled());
    // A crash in the middle of a write leaves its scratch file; nothing else would ever delete it.
    if (const int removed = ports.folder.removeScratchFiles({Directory::scratchName, CallerPictures::scratchName}))
        log::warning("deleted " + std::to_string(removed) + " scratch files left by writes cut short");
    messages.closeGaps(); // before the first count, which stops at a gap
    loadRecords();
    for (const Filled& option : moreOptions) fill(option);
    promptFiles.loadIntoFields();

    if (!settings::dataFlag(settings, "noagent", "False")) {
        if (settings::readData(settings, "phonyused", "0") == "0") {
            settings::writeData(settings, "phonyused", "1");
            settings::writeData(settings, "character", "Phony");
        }
        // Loading shows the character and stands it beside the window; "effects" ticks chk_effects.
        characters.load(settings::readData(settings, "character", "Phony"));
        ports.loop.processPending();
        ports.agent.play("Alert");
        ports.loop.processPending();
    }
    characters.listCharacters();
    speech.say("Welcome to corvel!");
    view.showTrayIcon(trayMenu(), "Corvel, version " CORVEL_VERSION);
    window.applyHide();
}

} // namespace corvel
