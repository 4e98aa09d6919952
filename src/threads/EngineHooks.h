// What the notification worker needs of the engine that owns it, so that
// this layer does not depend on the engine itself.
#pragma once

#include <cstdint>

namespace wv {

class EngineHooks {
public:
    // Stops playback of item `id` (0: the current item).
    virtual int32_t playStop(uint32_t id) = 0;

protected:
    ~EngineHooks() = default;
};

}  // namespace wv
