#include "app/window_behaviour.h"

#include <cmath>
#include <sstream>

#include "base/log.h"

namespace corvel {
namespace {

// The window position is kept under "Withheld", spelled with a capital as its routines
// always did; names compare without regard to case, so it is the same application.
constexpr std::string_view positionApplication = "Withheld";
constexpr double growStep = 200;

} // namespace

std::string positionText(double twips)
{
    if (twips == std::floor(twips)) return std::to_string(static_cast<long long>(twips));
    std::ostringstream text;
    text << twips;
    return text.str();
}

WindowBehaviour::WindowBehaviour(View& view, SettingsStore& settings, EventLoop& loop, CharacterSpeech& speech)
    : view_(view), settings_(settings), loop_(loop), speech_(speech)
{
}

void WindowBehaviour::savePosition(std::string_view key, double twips)
{
    settings_.write(positionApplication, settings::data, key, positionText(twips));
}

void WindowBehaviour::expand()
{
    const WindowPlacement window = view_.mainWindowPlacement();
    if (window.top + expandedHeight > window.screenHeight) {
        expanded_ = true;
        savedTop_ = window.top;
        view_.moveMainWindow(window.left, window.screenHeight - expandedHeight);
        saveTop();
    }
    view_.selectTab("SSTab1", 0);
    for (double height = window.height; height < expandedHeight; height += growStep) {
        view_.setMainWindowHeight(height);
        loop_.processPending();
    }
    view_.setMainWindowHeight(expandedHeight);
}

void WindowBehaviour::shrink()
{
    view_.setMainWindowHeight(shrunkHeight);
    if (expanded_) {
        view_.moveMainWindow(view_.mainWindowPlacement().left, savedTop_);
        expanded_ = false;
        saveTop();
    }
    speech_.geniemove();
}

void WindowBehaviour::toggleSize()
{
    if (view_.mainWindowPlacement().height == expandedHeight) shrink();
    else expand();
}

void WindowBehaviour::hideToTray()
{
    if (!view_.trayIconShown()) {
        log::info("there is no notification area to bring the window back from: it is minimised, not hidden");
        view_.minimiseMainWindow();
        return;
    }
    view_.setMainWindowVisible(false);
    settings::writeData(settings_, "hide", "True");
}

void WindowBehaviour::applyHide()
{
    const bool hide = settings::dataFlag(settings_, "hide", "False");
    // Hidden only while the tray icon can bring it back: nobody is left without a way to Corvel.
    const bool visible = !hide || !view_.trayIconShown();
    // Only a change: showing the window raises it and takes the focus from the user's work.
    if (view_.mainWindowVisible() == visible) return;
    if (hide) log::info("\"hide\" is set, but there is no notification area to bring the window back from: it is shown");
    view_.setMainWindowVisible(visible);
}

void WindowBehaviour::released(bool dragged)
{
    if (dragged) speech_.geniemove();
    const WindowPlacement window = view_.mainWindowPlacement();
    savePosition("frmx", window.left);
    savePosition("frmy", window.top);
}

void WindowBehaviour::saveTop() { savePosition("frmy", view_.mainWindowPlacement().top); }

} // namespace corvel
