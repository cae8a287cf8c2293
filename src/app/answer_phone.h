#pragma once

#include <filesystem>

#include "app/autostart.h"
#include "app/blocking.h"
#include "app/options.h"
#include "app/window_behaviour.h"
#include "base/call_events.h"
#include "base/data_folder.h"
#include "base/event_loop.h"
#include "base/http.h"
#include "base/locale_texts.h"
#include "base/settings_store.h"
#include "base/shell.h"
#include "base/sound_output.h"
#include "base/two_digit_indicator.h"
#include "base/view.h"
#include "character/agent.h"
#include "character/character_loading.h"
#include "character/character_speech.h"
#include "messages/message_hook.h"
#include "messages/message_playback.h"
#include "messages/message_store.h"
#include "prompts/prompt_files.h"
#include "records/block_list.h"
#include "records/blocked_calls.h"
#include "records/call_log.h"
#include "records/caller_display.h"
#include "records/caller_id.h"
#include "records/caller_pictures.h"
#include "records/directory.h"
#include "records/new_calls.h"
#include "telephony/call_control.h"
#include "telephony/call_handling.h"
#include "telephony/call_screening.h"
#include "telephony/line.h"
#include "update/update_check.h"

namespace corvel {

// What Corvel works with: the desktop's services and the line.
struct Ports {
    EventLoop& loop;
    SettingsStore& settings;
    Line& line;
    Agent& agent;
    View& view;
    SoundOutput& speaker;
    const LocaleTexts& locale;
    const DataFolder& folder;
    Shell& shell;
    Autostart& autostart;
    Http& http;
    std::filesystem::path desktop;     // where messages the user keeps are put
    std::filesystem::path cacheFolder; // where an update is downloaded to
    std::string webSite = {};          // the --web-site option; empty: the setting, or Corvel's own
};

// The whole answer phone behind the main window: the call on the line, the caller records and
// the voice messages, wired to one another. The window's controls call the members directly.
class AnswerPhone final : private CallRoutines {
public:
    explicit AnswerPhone(Ports ports);
    ~AnswerPhone();

    // Brings everything up in order: window position, line, options, records, prompts, the
    // character and the tray icon. `line` chooses a line device as the user would, first.
    void startUp(std::optional<int> line = std::nullopt);
    // Fills ComboDevice with the line devices there are now, keeping the one shown: at start,
    // and again when the search for voice modems has found more.
    void listLines();
    // Fills the new-calls and message counters, the recent-calls box and the contacts list.
    void loadRecords();
    // Closing the main window: refused while a download runs, else ends any call, closes the
    // line and ends the program. False when refused.
    bool requestClose();
    // Ends the program through the closing path, whatever is going on; once.
    void shutdown();

    // The tray icon's menu, its choices and its double-click.
    static std::vector<TrayMenuEntry> trayMenu();
    void trayMenuClicked(std::string_view key);
    void trayDoubleClicked();
    // Image2, the close button on the panel.
    void closeClicked();
    // Label37, the link to Corvel's web site.
    void webLinkClicked();
    // The web site's address: the command line's, else the "website" setting, else Corvel's own.
    std::string webSite() const;

    // The block list, for the desktop, the command line and D-Bus alike: a number or a prefix
    // ending in "*" as typed (false when it is no number), and the newest caller of the call log
    // (false when their number is unknown).
    bool block(std::string_view number, std::string_view note = {}) { return blocking.block(number, note); }
    bool unblock(std::string_view number) { return blocking.unblock(number); }
    bool blockLastCaller() { return blocking.blockLastCaller(); }

    bool downloading = false; // an update is being fetched
    Ports ports;
    CallEventFollowers events; // desktop notifications and the session bus follow the calls here
    TwoDigitIndicator indicator;
    CallControl calls;
    CharacterSpeech speech;
    CharacterLoading characters;
    CallerDisplay display;
    Directory directory;
    CallerPictures pictures;
    CallLog callLog;
    NewCalls newCalls;
    CallerId callerIdentity;
    MessageStore messages;
    MessagePlayback playback;
    BlockList blockList;
    BlockedCalls blockedCalls;
    CallScreening screening;
    MessageHook messageHook;
    CallHandling handling;
    Blocking blocking;
    WindowBehaviour window;
    Options options;
    PromptFiles promptFiles;
    UpdateCheck updates;

private:
    bool ending_ = false;
    void ring(std::int32_t count) override;
    void callerId() override;
    void connected() override;
    void digitpressed(std::string_view digit) override;
    void checkmessages() override;
};

} // namespace corvel
