// A stage that transforms a stream of interleaved 32-bit float frames (full
// scale +-1.0) and may hold some of them back: frames go in with put(),
// come out with take(), and finish() says that no more will come, so that
// the stage hands out its tail. What a stage gives is aligned with what it
// was given (its own delay is taken out), and its length is exact: see each
// stage for how the output length follows from the input's.
//
// One thread at a time.
#pragma once

#include <cstdint>

namespace wv {

class StreamStage {
public:
    virtual ~StreamStage() = default;
    // Feeds `frames` frames.
    virtual void put(const float* in, uint32_t frames) = 0;
    // No frame follows the ones given.
    virtual void finish() = 0;
    // Up to maxFrames frames into out; returns how many. After finish(),
    // 0 means the stage has handed out everything.
    virtual uint32_t take(float* out, uint32_t maxFrames) = 0;
};

}  // namespace wv
