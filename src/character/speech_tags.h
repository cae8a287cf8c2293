#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvel {

// What a speech asks of the voice; unset is the character's own.
struct SpeechVoice {
    std::optional<int> volume; // 0 to 65535, 65535 the full voice
    std::optional<int> speed;  // words a minute
    std::optional<int> pitch;  // Hz
    bool operator==(const SpeechVoice&) const = default;
};

// A stretch of speech said in one voice: words, or a pause.
struct SpeechPart {
    std::string spoken;    // for the speech engine; empty in a pause
    std::string shown;     // for the balloon
    int pause = 0;         // milliseconds of silence
    bool emphasis = false; // one word, stressed
    SpeechVoice voice;
    bool operator==(const SpeechPart&) const = default;
};

// Splits a text with speech tags into what is said and shown, in order. Tags run from one
// backslash to the next, names in any case, values exactly as written:
//   \Vol=n\ \Spd=n\ \Pit=n\   the voice from here on (a value that is no number is ignored)
//   \Pau=n\                   n milliseconds of silence
//   \Emp\                     stresses the next word
//   \Map="said"="shown"\      says one text and shows another
//   \Rst\                     back to the character's own voice
// Every other tag (\Chr\, \Ctx\, \Mrk\, \Lst\, anything unknown or damaged) is dropped, never
// spoken. A backslash that closes no tag is dropped and the text after it kept.
std::vector<SpeechPart> parseSpeech(std::string_view text);

// The balloon's text: every part's shown text, joined.
std::string shownText(const std::vector<SpeechPart>& parts);

} // namespace corvel
