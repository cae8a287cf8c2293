#pragma once

namespace corvel {

// The line-activity lamps beside their legends on the main window.
struct LineLamps {
    bool l1 = false; // "Monitoring line"
    bool l2 = false; // "Recording the line"
    bool l3 = false; // "Playing message to caller"
    bool l4 = false; // "Keypress detected"
    bool l5 = false; // "Modem activity detected", blinking while a call is up
    bool Label6 = false; // the legend of l4, shown once a key has been pressed

    bool operator==(const LineLamps&) const = default;
};

} // namespace corvel
