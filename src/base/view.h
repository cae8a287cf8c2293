#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "base/line_lamps.h"

namespace corvel {

// The title of message boxes that name no title of their own.
inline constexpr std::string_view applicationTitle = "Corvel";

enum class MessageIcon { None, Stop, Question, Exclamation, Information };

// Where the main window stands, in twips, and the screen it stands on.
struct WindowPlacement {
    double left = 0;
    double top = 0;
    double width = 0;
    double height = 0;
    double screenWidth = 0;
    double twipsPerPixel = 15;
    double screenHeight = 0;
};

// An entry of the tray icon's menu; a caption of "-" is a separator.
struct TrayMenuEntry {
    std::string caption;
    std::string key;
};

// What the windows show and what the dialogs ask, as the behaviour sees them. Controls are
// addressed by their names (`txt_reccalls`, `new1`, `photo`, ...).
class View {
public:
    virtual ~View() = default;

    virtual void setBusyCursor(bool busy) = 0;
    virtual bool busyCursor() const = 0;
    virtual void showLamps(const LineLamps& lamps) = 0;

    // Shows the picture in a picture control; false when the file is no picture it can show,
    // and then the control keeps what it showed.
    virtual bool loadPicture(std::string_view control, const std::filesystem::path& picture) = 0;
    virtual void setText(std::string_view control, std::string_view text) = 0;
    virtual std::string text(std::string_view control) const = 0;
    virtual void setListItems(std::string_view control, const std::vector<std::string>& items) = 0;
    virtual std::string selectedItem(std::string_view control) const = 0;
    virtual void setListIndex(std::string_view control, int index) = 0;
    virtual bool isChecked(std::string_view box) const = 0;
    // Ticks or clears a check box without running its click handling.
    virtual void setChecked(std::string_view box, bool ticked) = 0;
    virtual void selectTab(std::string_view control, int index) = 0;
    // False for a line appliance, which has no window to move or shake.
    virtual bool hasMainWindow() const { return true; }
    // Moves the main window down (up for a negative distance) by so many twips.
    virtual void shiftMainWindowDown(double twips) = 0;
    virtual void moveMainWindow(double left, double top) = 0; // twips
    virtual void setMainWindowHeight(double twips) = 0;
    // Showing the main window also raises it and gives it the focus.
    virtual void setMainWindowVisible(bool visible) = 0;
    virtual bool mainWindowVisible() const = 0;
    // Down to the task bar: where there is no tray icon, a hidden window could not be found again.
    virtual void minimiseMainWindow() = 0;
    // The notification-area icon with its menu and tip; its clicks come back to the answer phone.
    virtual void showTrayIcon(const std::vector<TrayMenuEntry>& menu, std::string_view tip) = 0;
    virtual void releaseTrayIcon() = 0;
    // Whether the icon shows: a desktop without a notification area has none.
    virtual bool trayIconShown() const = 0;

    // frm_display, the caller's picture with its label, shown without holding anything up.
    virtual void showCallerPicture() = 0;
    virtual void unloadCallerPicture() = 0;
    // frm_pickup, asking the user to take the caller on the telephone; stays on top.
    virtual void showPickup() = 0;
    virtual void setPickupCaption(std::string_view text) = 0;
    virtual void unloadPickup() = 0;
    // The call the user took on the computer's microphone and speaker, with a way to hang up.
    virtual void showDesktopCall(std::string_view caller) = 0;
    virtual void closeDesktopCall() = 0;
    // frm_download, the progress of an update's download: its text and its blinking shape.
    virtual void showDownload() = 0;
    virtual void setDownloadText(std::string_view text) = 0;
    virtual void setDownloadShapeVisible(bool visible) = 0;
    virtual void closeDownload() = 0;
    virtual WindowPlacement mainWindowPlacement() const = 0;

    virtual void messageBox(MessageIcon icon, std::string_view title, std::string_view text) = 0;
    virtual bool askYesNo(std::string_view title, std::string_view text) = 0;
    // The text typed, or "" when cancelled.
    virtual std::string inputBox(std::string_view prompt, std::string_view title) = 0;
    // The chosen file, or "" when cancelled. `filter` is "Description|pattern".
    virtual std::string openFileDialog(std::string_view filter, const std::filesystem::path& folder) = 0;
    // The file to write, or "" when cancelled; `suggested` is the name offered. Without
    // windows nothing is ever written where nobody chose.
    virtual std::string saveFileDialog(std::string_view filter, const std::filesystem::path& suggested)
    {
        (void)filter;
        (void)suggested;
        return {};
    }
    virtual void beep() = 0;
    // Ends the program once the current handler returns.
    virtual void endProgram() = 0;
};

} // namespace corvel
