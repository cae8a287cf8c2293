// Bringing Corvel up, in the order its parts depend on one another.

#include "app/answer_phone.h"
#include "app/text.h"

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
    {"chk_opt3", "noid", "True"},          {"chk_opt4", "ansall", "False"},      {"txt_transfer", "transfer", "20"}};

} // namespace

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

    std::vector<std::string> devices;
    for (const LineDevice& device : ports.line.devices()) devices.push_back(device.name);
    view.setListItems("ComboDevice", devices);
    if (chosenLine) handling.chooseDevice(*chosenLine);

    const std::string modem = settings::readData(settings, "modem", "");
    if (modem.empty()) {
        view.selectTab("SSTab1", 1);
        speech.say("You need to set up Corvel for the first time!");
        view.messageBox(MessageIcon::Exclamation, applicationTitle,
                        "Before you can use this software, you need to select your modem from the modems list in "
                        "the window that will appear. When you have done this, you are ready to accept calls!");
    } else {
        ports.line.setDeviceNumber(static_cast<std::int32_t>(text::leadingNumber(modem)));
        view.setListIndex("ComboDevice", ports.line.deviceNumber());
        // The stored line is opened as START opens it, so that calls are taken from the start.
        if (!chosenLine) handling.start();
        window.shrink();
    }

    for (const Filled& option : answeringOptions) fill(option);
    view.setChecked("chk_lww", ports.autostart.enabled());
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
