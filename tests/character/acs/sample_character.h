#pragma once

#include "character/acs/character.h"

namespace corvel::acs::testing {

// A small character that uses every structure of the file: voice and balloon, tray icon,
// states, two languages, images with and without regions (and an empty one), a sound,
// branches, exit branches, a return animation and mouth overlays.
Character sampleCharacter();

// A frame of the given duration that shows nothing, for sequencing tests.
Frame timedFrame(std::uint16_t duration, std::int16_t exitFrame = Frame::exitContinues,
                 std::vector<Branch> branches = {});

} // namespace corvel::acs::testing
