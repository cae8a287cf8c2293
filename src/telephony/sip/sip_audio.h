#pragma once

// Sound files between Corvel and the SIP stack. The stack plays only 16-bit linear PCM wave
// files correctly (A-law, mu-law, 8-bit, 24-bit and float files come out as noise, without an
// error), and the recordings it writes carry wrong sizes in their header.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <vector>

namespace corvel::sip {

// Prompts as the stack can play them. A file that already is 16-bit PCM wave at 8 to 48 kHz,
// mono or stereo, and named ".wav" plays as it is; any other sound file is converted once to
// the line's own format (8 kHz, 16-bit, mono) and kept in `folder` under a name made from its
// content, so that a changed file is converted again and an unchanged one never.
class PromptCache {
public:
    explicit PromptCache(std::filesystem::path folder);

    // The file to give the stack for `file`; nothing (logged) when it cannot be read as sound.
    std::optional<std::filesystem::path> playable(const std::filesystem::path& file) const;

    const std::filesystem::path& folder() const { return folder_; }

private:
    std::filesystem::path folder_;
};

// Mono samples from `from` Hz to `to` Hz through libsamplerate; the same samples when the
// rates agree or the conversion fails (logged).
std::vector<std::int16_t> resampled(std::span<const std::int16_t> samples, int from, int to);

// Sets the RIFF and data sizes of a wave file from its length on disk. False (logged) when
// it is no RIFF wave file with a data chunk.
bool fixWaveSizes(const std::filesystem::path& file);

// Turns the stack's recording `recorded` into the message file `target`: its header fixed,
// brought to 8 kHz 16-bit mono when it is in another format, and put in place in one rename,
// so that `target` is never there half written. A missing recording (the caller sent no sound
// at all) gives an empty message. False (logged) when `target` could not be written.
bool finishRecording(const std::filesystem::path& recorded, const std::filesystem::path& target);

} // namespace corvel::sip
