#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace corvel {

// A speech-engine voice (espeak-ng's terms): a voice name such as "en-us+f3", words a minute
// (80 to 450) and base pitch (0 to 100, 50 the voice's own).
struct EngineVoice {
    std::string name;
    int rate = 175;
    int pitch = 50;
    bool operator==(const EngineVoice&) const = default;
};

// The character file's voice hints: language (a Windows language id), gender (0 neutral,
// 1 female, 2 male), pitch in Hz (0 unknown) and speed (0xFFFFFFFF the default).
struct VoiceHints {
    std::uint16_t language = 0x409;
    int gender = 0;
    unsigned pitch = 0;
    std::uint32_t speed = 0xFFFFFFFF;
};

// The engine voice closest to the hints: the language's voice, a female or male variant by
// gender, the speed as words a minute and the pitch relative to the gender's usual pitch.
EngineVoice chooseVoice(const VoiceHints& hints);

// Speech tag values in the engine's scales: \Vol=\ 0-65535 to 0-100 (100 the full voice),
// \Spd=\ words a minute clamped to 80-450, \Pit=\ Hz to 0-100 for the character's gender.
int engineVolume(int volume);
int engineRate(int wordsPerMinute);
int enginePitch(int hertz, int gender);

// The viseme (0-21, 0 silence, the numbering speech engines share) of one phoneme as espeak-ng
// names it ("oU", "tS", "_:" for a pause); stress and variant marks are ignored.
int visemeForPhoneme(std::string_view phoneme);

// The phonemes espeak-ng writes for English ("'0 m b r @L", phonemes parted by blanks) in the
// ARPAbet of the recogniser's dictionary ("AA M B R AH L"); empty when none are known.
std::string arpabetFromEspeak(std::string_view phonemes);

} // namespace corvel
