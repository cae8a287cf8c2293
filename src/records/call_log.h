#pragma once

#include <string>
#include <string_view>

#include "base/data_folder.h"
#include "base/event_loop.h"
#include "base/locale_texts.h"
#include "base/view.h"
#include "character/character_speech.h"

namespace corvel {

// The call log "calls.txt": one line a record, appended and never rewritten, each ending
// ", on <long date>, at <h:mm:ss AM>". The recent-calls box shows it newest line first.
class CallLog {
public:
    static constexpr std::string_view fileName = "calls.txt";

    CallLog(const DataFolder& folder, const Clock& clock, const LocaleTexts& locale, View& view,
            CharacterSpeech& speech);

    // Appends `record` with the date and time; always exactly one line.
    void append(std::string_view record);
    // `record` as a line of the log: made one line and followed by ", on <date>, at <time>".
    std::string stamped(std::string_view record) const;
    // Rebuilds `txt_reccalls` from the file.
    void rebuild();
    // Command4: asks, then deletes the log.
    void reset();

    // The whole log newest line first, each line followed by CR LF; "No call data" without a log.
    std::string recentCalls() const;

private:
    std::string tail() const;

    const DataFolder& folder_;
    const Clock& clock_;
    const LocaleTexts& locale_;
    View& view_;
    CharacterSpeech& speech_;
};

} // namespace corvel
