// What the keys of `play` ask of the player, decided before the engine is
// asked: the new speed for + / - / r, and where the arrows seek to.
//
// Speeds are whole multiples of normal speed, negative for backwards play;
// the output plays at most kMaxPlaySpeed times its rate, and 0 would stand
// still, so |speed| stays within 1..kMaxPlaySpeed. + and - change the
// magnitude and keep the direction; r changes the direction only.
#ifndef WAVORYX_CLI_PLAYKEYS_H
#define WAVORYX_CLI_PLAYKEYS_H

#include <cstdint>
#include <string>

#include "Keyboard.h"

namespace wvcli {

constexpr int kMaxPlaySpeed = 4;
constexpr int64_t kSeekStepMs = 5000;

struct SpeedStep {
    int speed = 1;        // the speed to ask for (the old one when refused)
    std::string refusal;  // why not, or "" when the step is allowed
};

// The speed after `key` (Plus, Minus or Reverse) at `speed`.
SpeedStep stepSpeed(int speed, Key key);

// The position `deltaMs` away from `positionMs`, kept within 0..durationMs.
uint32_t seekTargetMs(int64_t positionMs, int64_t deltaMs, uint64_t durationMs);

// Whether a --speed value is one the player accepts (the same bounds).
bool isPlayableSpeed(int speed);

}  // namespace wvcli

#endif
