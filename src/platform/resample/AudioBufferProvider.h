// Pull interface through which a consumer (the resampler) borrows input
// frames from a producer (the PCM reader) without copying them.
//
// Contract:
//  - The consumer sets buffer->frameCount to the number of frames it would
//    like and calls getNextBuffer. The provider sets buffer->raw to its own
//    memory holding interleaved 16-bit frames and frameCount to the number it
//    lends (at least 1, at most the request), or raw = nullptr and
//    frameCount = 0 when it has no more data. It returns 0, or a negative
//    status together with the empty buffer.
//  - The memory stays owned by the provider and valid until the consumer
//    hands the buffer back with releaseBuffer, which sets frameCount to 0
//    (and raw to nullptr). At most one buffer is lent at a time.
//  - `pts` is the presentation time, in the consumer's clock ticks, of the
//    first output frame the lent data will produce; kInvalidPts when unknown.
#pragma once

#include <cstddef>
#include <cstdint>

namespace wv {

class AudioBufferProvider {
public:
    static constexpr int64_t kInvalidPts = 0x7FFFFFFFFFFFFFFFLL;

    struct Buffer {
        union {
            void* raw;
            int16_t* i16;
        };
        uint32_t frameCount;
    };

    virtual ~AudioBufferProvider() {}

    virtual int32_t getNextBuffer(Buffer* buffer, int64_t pts = kInvalidPts) = 0;
    virtual void releaseBuffer(Buffer* buffer) = 0;
};

}  // namespace wv
