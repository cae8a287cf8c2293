#pragma once

#include <filesystem>

#include "base/data_folder.h"
#include "base/sound_output.h"
#include "base/view.h"
#include "character/character_speech.h"
#include "messages/message_store.h"
#include "records/caller_display.h"
#include "records/new_calls.h"

namespace corvel {

// Plays voice messages on the computer's speaker, one a click: the oldest new message, which
// then joins the old ones, or the oldest old message, which is then deleted or moved to the
// desktop. Slots are closed up after each.
class MessagePlayback {
public:
    MessagePlayback(const DataFolder& folder, View& view, SoundOutput& speaker, CharacterSpeech& speech,
                    CallerDisplay& display, MessageStore& store, NewCalls& newCalls,
                    std::filesystem::path desktop);

    // Label10; false when there is no new message to play, or a call is being ended.
    bool playNew();
    void playOld(); // Label18

private:
    // Plays a copy, "temp.wav", so that the message itself can be renamed meanwhile.
    void play(const std::string& message);
    void moveToDesktop(const std::string& message);
    void finish();

    const DataFolder& folder_;
    View& view_;
    SoundOutput& speaker_;
    CharacterSpeech& speech_;
    CallerDisplay& display_;
    MessageStore& store_;
    NewCalls& newCalls_;
    std::filesystem::path desktop_;
};

} // namespace corvel
