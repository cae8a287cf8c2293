#pragma once

#include <filesystem>

#include "app/data_folder.h"
#include "app/event_loop.h"
#include "app/locale_texts.h"
#include "app/settings_store.h"
#include "app/sound_output.h"
#include "app/two_digit_indicator.h"
#include "app/view.h"
#include "character/agent.h"
#include "character/character_speech.h"
#include "messages/message_playback.h"
#include "messages/message_store.h"
#include "records/call_log.h"
#include "records/caller_display.h"
#include "records/caller_id.h"
#include "records/caller_pictures.h"
#include "records/directory.h"
#include "records/new_calls.h"
#include "telephony/call_control.h"
#include "telephony/call_handling.h"
#include "telephony/line.h"

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
    std::filesystem::path desktop; // where messages the user keeps are put
};

// The whole answer phone behind the main window: the call on the line, the caller records and
// the voice messages, wired to one another. The window's controls call the members directly.
class AnswerPhone final : private CallRoutines {
public:
    explicit AnswerPhone(Ports ports);
    ~AnswerPhone();

    // Fills the message counters, the recent-calls box and the contacts list.
    void loadRecords();
    // Ends whatever call is up, closes the line and ends the program.
    void shutdown();

    Ports ports;
    TwoDigitIndicator indicator;
    CallControl calls;
    CharacterSpeech speech;
    CallerDisplay display;
    Directory directory;
    CallerPictures pictures;
    CallLog callLog;
    NewCalls newCalls;
    CallerId callerIdentity;
    MessageStore messages;
    MessagePlayback playback;
    CallHandling handling;

private:
    void ring(std::int32_t count) override;
    void callerId() override;
    void connected() override;
    void digitpressed(std::string_view digit) override;
    void checkmessages() override;
};

} // namespace corvel
