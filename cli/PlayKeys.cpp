#include "PlayKeys.h"

#include <cstdlib>

namespace wvcli {

bool isPlayableSpeed(int speed) { return speed != 0 && std::abs(speed) <= kMaxPlaySpeed; }

SpeedStep stepSpeed(int speed, Key key) {
    SpeedStep step;
    step.speed = speed;
    const int sign = speed < 0 ? -1 : 1;
    const int magnitude = std::abs(speed);
    switch (key) {
        case Key::Plus:
            if (magnitude >= kMaxPlaySpeed) {
                step.refusal = "speed " + std::to_string(kMaxPlaySpeed) + "x is the fastest";
            } else {
                step.speed = sign * (magnitude + 1);
            }
            break;
        case Key::Minus:
            if (magnitude <= 1) {
                step.refusal = "speed 1x is the slowest";
            } else {
                step.speed = sign * (magnitude - 1);
            }
            break;
        case Key::Reverse: step.speed = -speed; break;
        default: break;
    }
    return step;
}

uint32_t seekTargetMs(int64_t positionMs, int64_t deltaMs, uint64_t durationMs) {
    int64_t target = positionMs + deltaMs;
    if (target < 0) target = 0;
    if (uint64_t(target) > durationMs) target = int64_t(durationMs);
    return uint32_t(target);
}

}  // namespace wvcli
