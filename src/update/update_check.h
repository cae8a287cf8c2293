#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "base/event_loop.h"
#include "base/http.h"
#include "base/settings_store.h"
#include "base/shell.h"
#include "base/view.h"
#include "character/character_speech.h"
#include "update/version_list.h"

namespace corvel {

// The frm_download text for a number of minutes.
std::string downloadText(int minutes);

// Once a run, when the computer is online: looks for a newer Corvel on the web site, offers it
// once per version, downloads it while frm_download counts the minutes, checks it, and opens it
// with the desktop's installer, closing Corvel for it.
class UpdateCheck {
public:
    struct Places {
        std::string webSite;               // without a trailing "/"
        std::filesystem::path cacheFolder; // where the installer is saved
    };

    // `applyHide` is the tick's first step, the main window's visibility.
    UpdateCheck(EventLoop& loop, Http& http, SettingsStore& settings, View& view, CharacterSpeech& speech,
                Shell& shell, Places places, bool& downloading, std::function<void()> endProgram,
                std::function<void()> applyHide);
    ~UpdateCheck();

    // The minute timer Timer_hide: the window's visibility, then the check.
    void timerHideTick();
    void check();

private:
    HttpReply fetch(const std::string& path, std::size_t maxBytes);
    void download(const OfferedVersion& offer);
    void downloadFailed();
    std::filesystem::path installer() const;

    EventLoop& loop_;
    Http& http_;
    SettingsStore& settings_;
    View& view_;
    CharacterSpeech& speech_;
    Shell& shell_;
    Places places_;
    bool& downloading_;
    std::function<void()> endProgram_;
    std::function<void()> applyHide_;
    bool updatechecked_ = false;
    std::unique_ptr<Timer> timerHide_;
    std::unique_ptr<Timer> elapsed_;
    std::unique_ptr<Timer> flash_;
    std::int16_t minutes_ = 0;
    bool shapeShown_ = true;
};

} // namespace corvel
