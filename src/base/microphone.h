#pragma once

#include <cstdint>
#include <vector>

namespace corvel {

// The computer's microphone, heard as a telephone line hears: 8 kHz, 16-bit, mono.
class Microphone {
public:
    virtual ~Microphone() = default;
    virtual void start() = 0;
    // Everything heard since start; silence where there is no microphone.
    virtual std::vector<std::int16_t> stop() = 0;
};

} // namespace corvel
