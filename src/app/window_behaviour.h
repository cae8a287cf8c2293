#pragma once

#include "base/event_loop.h"
#include "base/settings_store.h"
#include "base/view.h"
#include "character/character_speech.h"

namespace corvel {

// The main window's two sizes, its position kept across runs, and its image buttons.
class WindowBehaviour {
public:
    static constexpr double shrunkHeight = 2590;   // twips
    static constexpr double expandedHeight = 6135; // twips

    WindowBehaviour(View& view, SettingsStore& settings, EventLoop& loop, CharacterSpeech& speech);

    // Grows the window to its full height, moving it up first if it would run off the screen.
    void expand();
    // Back to the small panel, and back down if expand moved it up.
    void shrink();
    // Image4: the other size.
    void toggleSize();
    // Image3: into the tray; only minimised where there is no tray icon.
    void hideToTray();
    // The window shown or hidden as "hide" says (Timer_hide, and the start), but never hidden
    // without a tray icon to bring it back.
    void applyHide();
    // A mouse button released on the window's surface or on Image5 after `dragged`: the
    // character follows a drag, and the position is kept for the next start.
    void released(bool dragged);
    // Writes the window's top to "frmy".
    void saveTop();
    bool expanded() const { return expanded_; }

private:
    void savePosition(std::string_view key, double twips);

    View& view_;
    SettingsStore& settings_;
    EventLoop& loop_;
    CharacterSpeech& speech_;
    bool expanded_ = false;
    double savedTop_ = 0;
};

// A window coordinate as the settings keep it: whole numbers without a fraction.
std::string positionText(double twips);

} // namespace corvel
