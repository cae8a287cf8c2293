#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "base/event_loop.h"
#include "telephony/line_audio.h"

namespace corvel {

// What the caller sends down the line once the call is connected: their speech from
// `speechAt` on, silence before and after it.
class CallerAudio {
public:
    CallerAudio() = default; // a caller who says nothing
    // `speech` may be any wave file libsndfile reads; an empty path is a silent caller, and a
    // file that cannot be read is logged and leaves the caller silent.
    CallerAudio(const std::filesystem::path& speech, Milliseconds speechAt);

    // The line samples from `from` to `to`, both counted from the connection; times before
    // the connection are silence.
    std::vector<std::int16_t> samples(Milliseconds from, Milliseconds to) const;

private:
    std::vector<std::int16_t> speech_;
    Milliseconds speechAt_{0};
};

} // namespace corvel
