#pragma once

#include <memory>

#include <QAudioSource>
#include <QBuffer>

#include "base/microphone.h"

namespace corvel {

// The default audio input, taken at 8 kHz, 16-bit, mono.
class QtMicrophone final : public Microphone {
public:
    void start() override;
    std::vector<std::int16_t> stop() override;

private:
    std::unique_ptr<QAudioSource> source_;
    QBuffer heard_;
};

} // namespace corvel
