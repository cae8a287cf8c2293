#pragma once

#include <string_view>

#include "telephony/line_lamps.h"

namespace corvel {

enum class MessageIcon { None, Stop, Question, Exclamation, Information };

// Where the main window stands, in twips, and the screen it stands on.
struct WindowPlacement {
    double left = 0;
    double top = 0;
    double width = 0;
    double height = 0;
    double screenWidth = 0;
    double twipsPerPixel = 15;
};

// What the windows show and what the dialogs ask, as the behaviour sees them.
class View {
public:
    virtual ~View() = default;

    virtual void setBusyCursor(bool busy) = 0;
    virtual void showLamps(const LineLamps& lamps) = 0;
    virtual void messageBox(MessageIcon icon, std::string_view title, std::string_view text) = 0;
    virtual void unloadCallerPicture() = 0; // frm_display
    virtual void unloadPickup() = 0;        // frm_pickup
    virtual WindowPlacement mainWindowPlacement() const = 0;
};

} // namespace corvel
