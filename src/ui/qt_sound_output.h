#pragma once

#include <QSoundEffect>

#include "base/sound_output.h"

namespace corvel {

// Plays wave files on the computer's own speaker through Qt Multimedia.
class QtSoundOutput final : public SoundOutput {
public:
    QtSoundOutput();
    void playfile(const std::string& filename) override;
    void stop() override { effect_.stop(); }

private:
    QSoundEffect effect_;
};

} // namespace corvel
