#pragma once

#include <string>

namespace corvel {

// The computer's own loudspeaker (not the telephone line).
class SoundOutput {
public:
    virtual ~SoundOutput() = default;
    // Starts playing a wave file and returns at once; a new sound replaces the one playing.
    // A file that cannot be played is logged and leaves the speaker silent: there is no
    // default sound in its place.
    virtual void playfile(const std::string& filename) = 0;
    virtual void stop() = 0;
};

} // namespace corvel
