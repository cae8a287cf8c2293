#include "messages/message_playback.h"

#include <system_error>

#include "base/log.h"

namespace corvel {
namespace {

using Kind = MessageStore::Kind;
constexpr int desktopCopies = 9999; // message1.wav up to this before giving up

} // namespace

MessagePlayback::MessagePlayback(const DataFolder& folder, View& view, SoundOutput& speaker,
                                 CharacterSpeech& speech, CallerDisplay& display, MessageStore& store,
                                 NewCalls& newCalls, std::filesystem::path desktop)
    : folder_(folder), view_(view), speaker_(speaker), speech_(speech), display_(display), store_(store),
      newCalls_(newCalls), desktop_(std::move(desktop))
{
}

bool MessagePlayback::playNew()
{
    // The hourglass means a call is being ended; the slots are not to be touched meanwhile.
    if (view_.busyCursor()) return false;
    const auto message = store_.fileInSlot(Kind::New, 1);
    if (!message) {
        speech_.say("You dont have any new messages!");
        return false;
    }
    const std::string caller = MessageStore::callerOf(*message);
    display_.show();
    display_.setLabel(caller);
    display_.loadPhotoOrDefault(caller);
    play(*message);
    const auto slot = store_.freeSlot(Kind::Old);
    if (slot && folder_.rename(*message, MessageStore::fileName(Kind::Old, *slot, caller))) {
        store_.closeGap(Kind::New);
    } else {
        log::warning("no room among the old messages: " + *message + " stays new");
    }
    finish();
    return true;
}

void MessagePlayback::playOld()
{
    if (view_.busyCursor()) return;
    const auto message = store_.fileInSlot(Kind::Old, 1);
    if (!message) {
        speech_.say("You dont have any old messages waiting!");
        return;
    }
    play(*message);
    if (view_.askYesNo("Delete?", "Would you like to delete this voice message? Selecting no will place the "
                                  "wave file on to your desktop for future listening.")) {
        if (const auto space = folder_.file("space.wav")) speaker_.playfile(space->string());
        folder_.remove(*message);
    } else {
        moveToDesktop(*message);
    }
    store_.closeGap(Kind::Old);
    finish();
}

void MessagePlayback::play(const std::string& message)
{
    const auto source = folder_.file(message);
    if (source && folder_.copyIn(*source, "temp.wav")) speaker_.playfile(folder_.file("temp.wav")->string());
}

void MessagePlayback::moveToDesktop(const std::string& message)
{
    std::error_code error;
    std::filesystem::create_directories(desktop_, error);
    for (int n = 1; n <= desktopCopies; ++n) {
        const auto copy = desktop_ / ("message" + std::to_string(n) + ".wav");
        if (std::filesystem::exists(copy, error)) continue;
        moveFile(*folder_.file(message), copy);
        return;
    }
    log::warning("no free name for " + message + " on the desktop; it stays among the old messages");
}

void MessagePlayback::finish()
{
    store_.checkmessages();
    newCalls_.reset();
}

} // namespace corvel
