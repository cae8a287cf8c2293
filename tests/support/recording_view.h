#pragma once

#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "base/view.h"

namespace corvel::testing {

// Keeps what the windows would show and answers the dialogs from a script: the answers are
// taken in order from `yesNoAnswers`, `inputAnswers` and `fileAnswers` (No, "" and "" when
// they run out).
class RecordingView final : public View {
public:
    struct Box {
        MessageIcon icon;
        std::string title;
        std::string text;
    };

    std::vector<Box> boxes;
    std::vector<std::string> events; // "busy", "idle", "unload frm_display", "show frm_display", ...
    std::vector<std::string> questions; // the text of every dialog asked, in order
    LineLamps lamps;
    WindowPlacement placement{3000, 3000, 4000, 2590, 19200, 15, 10800};
    bool busy = false;
    bool displayShown = false;
    bool pickupShown = false;
    std::vector<std::string> pickupCaptions;
    int beeps = 0;
    int windowMoves = 0;
    double shiftedTwips = 0; // where shaking has left the main window
    bool programEnded = false;
    bool downloadShown = false;
    std::vector<std::string> downloadTexts;
    std::map<std::string, int, std::less<>> listIndexes; // also the selected tab of a tab control
    std::map<std::string, bool, std::less<>> checked;
    std::vector<double> heights; // every height the main window was given, in order
    bool windowVisible = true;
    bool windowMinimised = false;
    int visibilitySets = 0; // each one shows and raises the real window, or hides it
    std::vector<TrayMenuEntry> trayMenu;
    std::string trayTip;
    bool trayShown = false;
    bool notificationArea = true; // false: the desktop shows no tray icon
    std::map<std::string, std::filesystem::path, std::less<>> pictures;
    std::map<std::string, std::string, std::less<>> texts;
    std::map<std::string, std::vector<std::string>, std::less<>> lists;
    std::string selected;
    std::deque<bool> yesNoAnswers;
    std::deque<std::string> inputAnswers;
    std::deque<std::string> fileAnswers;

    // The name of the picture file a control shows ("" when none).
    std::string picture(std::string_view control) const
    {
        const auto found = pictures.find(control);
        return found == pictures.end() ? "" : found->second.filename().string();
    }

    void setBusyCursor(bool on) override
    {
        busy = on;
        events.emplace_back(on ? "busy" : "idle");
    }
    bool busyCursor() const override { return busy; }
    void showLamps(const LineLamps& shown) override { lamps = shown; }
    // Shows files that start as GIF pictures do; anything else fails to load.
    bool loadPicture(std::string_view control, const std::filesystem::path& file) override
    {
        std::ifstream in(file, std::ios::binary);
        char magic[4] = {};
        if (!in.read(magic, 4) || std::string_view(magic, 4) != "GIF8") return false;
        pictures[std::string(control)] = file;
        return true;
    }
    void setText(std::string_view control, std::string_view text) override { texts[std::string(control)] = text; }
    std::string text(std::string_view control) const override
    {
        const auto found = texts.find(control);
        return found == texts.end() ? "" : found->second;
    }
    void setListItems(std::string_view control, const std::vector<std::string>& items) override
    {
        lists[std::string(control)] = items;
    }
    std::string selectedItem(std::string_view) const override { return selected; }
    void setListIndex(std::string_view control, int index) override { listIndexes[std::string(control)] = index; }
    void selectTab(std::string_view control, int index) override { listIndexes[std::string(control)] = index; }
    bool isChecked(std::string_view box) const override
    {
        const auto found = checked.find(box);
        return found != checked.end() && found->second;
    }
    void setChecked(std::string_view box, bool ticked) override { checked[std::string(box)] = ticked; }
    void moveMainWindow(double left, double top) override
    {
        placement.left = left;
        placement.top = top;
    }
    void setMainWindowHeight(double twips) override
    {
        placement.height = twips;
        heights.push_back(twips);
    }
    void setMainWindowVisible(bool visible) override
    {
        windowVisible = visible;
        ++visibilitySets;
    }
    bool mainWindowVisible() const override { return windowVisible; }
    void minimiseMainWindow() override { windowMinimised = true; }
    void showTrayIcon(const std::vector<TrayMenuEntry>& menu, std::string_view tip) override
    {
        trayMenu = menu;
        trayTip = tip;
        trayShown = notificationArea;
    }
    void releaseTrayIcon() override { trayShown = false; }
    bool trayIconShown() const override { return trayShown; }
    void shiftMainWindowDown(double twips) override
    {
        shiftedTwips += twips;
        ++windowMoves;
    }
    void showCallerPicture() override
    {
        displayShown = true;
        events.emplace_back("show frm_display");
    }
    void unloadCallerPicture() override
    {
        displayShown = false;
        events.emplace_back("unload frm_display");
    }
    void showPickup() override
    {
        pickupShown = true;
        events.emplace_back("show frm_pickup");
    }
    void setPickupCaption(std::string_view text) override { pickupCaptions.emplace_back(text); }
    void unloadPickup() override
    {
        pickupShown = false;
        events.emplace_back("unload frm_pickup");
    }
    void showDesktopCall(std::string_view caller) override { events.push_back("show desktop call " + std::string(caller)); }
    void closeDesktopCall() override { events.emplace_back("close desktop call"); }
    WindowPlacement mainWindowPlacement() const override { return placement; }
    void messageBox(MessageIcon icon, std::string_view title, std::string_view text) override
    {
        boxes.push_back({icon, std::string(title), std::string(text)});
    }
    bool askYesNo(std::string_view, std::string_view text) override { return answer(yesNoAnswers, text, false); }
    std::string inputBox(std::string_view prompt, std::string_view) override
    {
        return answer(inputAnswers, prompt, std::string());
    }
    std::string openFileDialog(std::string_view filter, const std::filesystem::path&) override
    {
        return answer(fileAnswers, filter, std::string());
    }
    void showDownload() override { downloadShown = true; }
    void setDownloadText(std::string_view text) override { downloadTexts.emplace_back(text); }
    void setDownloadShapeVisible(bool) override {}
    void closeDownload() override { downloadShown = false; }
    void beep() override { ++beeps; }
    void endProgram() override { programEnded = true; }

private:
    template <typename T> T answer(std::deque<T>& script, std::string_view question, T otherwise)
    {
        questions.emplace_back(question);
        if (script.empty()) return otherwise;
        T next = script.front();
        script.pop_front();
        return next;
    }
};

} // namespace corvel::testing
