#pragma once

#include "character/acs/character.h"

namespace corvel::phony {

// Phony, Corvel's own character: a friendly desk telephone with a face on its dial, drawn in
// code. Every animation Corvel plays is there (Show, Hide, RestPose, Alert, Acknowledge,
// Announce, Congratulate, the gestures, idle animations at three levels, moving, listening),
// with the states that name them, mouth overlays for speaking, a balloon and voice hints.
// The same character every run.
acs::Character makePhony();

} // namespace corvel::phony
