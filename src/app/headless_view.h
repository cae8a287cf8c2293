#pragma once

#include <functional>
#include <map>
#include <string>

#include "base/view.h"

namespace corvel {

// The system without windows, for a line appliance and for end-to-end tests: what would be
// shown is kept or written to the log, every message box and spoken question is logged with
// its title and text, and every question is answered at once, so that nothing ever waits for
// a person.
class HeadlessView final : public View {
public:
    // `quit` ends the program's event loop.
    explicit HeadlessView(std::function<void()> quit) : quit_(std::move(quit)) {}

    void setBusyCursor(bool busy) override { busy_ = busy; }
    bool busyCursor() const override { return busy_; }
    void showLamps(const LineLamps&) override {}
    bool loadPicture(std::string_view, const std::filesystem::path&) override { return true; }
    void setText(std::string_view control, std::string_view text) override { texts_[std::string(control)] = text; }
    std::string text(std::string_view control) const override;
    void setListItems(std::string_view, const std::vector<std::string>&) override {}
    std::string selectedItem(std::string_view) const override { return {}; }
    void setListIndex(std::string_view, int) override {}
    bool isChecked(std::string_view box) const override;
    void setChecked(std::string_view box, bool ticked) override { checked_[std::string(box)] = ticked; }
    void selectTab(std::string_view, int) override {}
    bool hasMainWindow() const override { return false; }
    void shiftMainWindowDown(double) override {}
    void moveMainWindow(double left, double top) override;
    void setMainWindowHeight(double twips) override { placement_.height = twips; }
    void setMainWindowVisible(bool visible) override { visible_ = visible; }
    bool mainWindowVisible() const override { return visible_; }
    void minimiseMainWindow() override {}
    void showTrayIcon(const std::vector<TrayMenuEntry>&, std::string_view) override {}
    void releaseTrayIcon() override {}
    bool trayIconShown() const override { return false; }
    void showCallerPicture() override {}
    void unloadCallerPicture() override {}
    // Without a window to click, the user takes the call and hangs up from the command line.
    void showPickup() override;
    void setPickupCaption(std::string_view) override {}
    void unloadPickup() override {}
    void showDesktopCall(std::string_view caller) override;
    void closeDesktopCall() override;
    void showDownload() override {}
    void setDownloadText(std::string_view) override {}
    void setDownloadShapeVisible(bool) override {}
    void closeDownload() override {}
    WindowPlacement mainWindowPlacement() const override { return placement_; }
    void messageBox(MessageIcon icon, std::string_view title, std::string_view text) override;
    // No: unattended, nothing is downloaded, installed or deleted on a question nobody read.
    bool askYesNo(std::string_view title, std::string_view text) override;
    std::string inputBox(std::string_view prompt, std::string_view title) override;
    std::string openFileDialog(std::string_view filter, const std::filesystem::path& folder) override;
    void beep() override {}
    void endProgram() override;

private:
    std::function<void()> quit_;
    bool busy_ = false;
    bool visible_ = false;
    std::map<std::string, std::string, std::less<>> texts_;
    std::map<std::string, bool, std::less<>> checked_;
    // A screen of 1920 by 1080 pixels at 15 twips a pixel, so the window arithmetic has one.
    WindowPlacement placement_{0, 0, 5400, 2590, 28800, 15, 16200};
};

} // namespace corvel
