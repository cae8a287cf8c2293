#pragma once

#include <string>
#include <vector>

#include "app/view.h"

namespace corvel::testing {

// Keeps what the windows would show; records message boxes and closed windows in order.
class RecordingView final : public View {
public:
    struct Box {
        MessageIcon icon;
        std::string title;
        std::string text;
    };

    std::vector<Box> boxes;
    std::vector<std::string> events; // "busy", "idle", "unload frm_display", ...
    LineLamps lamps;
    WindowPlacement placement{3000, 3000, 4000, 2590, 19200, 15};
    bool busy = false;

    void setBusyCursor(bool on) override
    {
        busy = on;
        events.emplace_back(on ? "busy" : "idle");
    }
    void showLamps(const LineLamps& shown) override { lamps = shown; }
    void messageBox(MessageIcon icon, std::string_view title, std::string_view text) override
    {
        boxes.push_back({icon, std::string(title), std::string(text)});
    }
    void unloadCallerPicture() override { events.emplace_back("unload frm_display"); }
    void unloadPickup() override { events.emplace_back("unload frm_pickup"); }
    WindowPlacement mainWindowPlacement() const override { return placement; }
};

} // namespace corvel::testing
