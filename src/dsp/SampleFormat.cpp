// In-place conversions of interleaved 16-bit PCM between channel layouts and
// between 16-bit and float samples. Every loop runs in the one direction that
// lets the result overwrite its own input safely; samples are moved through
// memcpy so that reinterpreting the same bytes as int16 and float stays
// well-defined.
#include <wavoryx/dsp.h>

#include <cstdint>
#include <cstring>

namespace {

constexpr float kInt16ToFloat = 3.0517578e-5f;  // 1 / 32768
constexpr float kFloatToInt16 = 32767.0f;

int16_t loadSample(const unsigned char* p) {
    int16_t s;
    std::memcpy(&s, p, sizeof s);
    return s;
}

void storeSample(unsigned char* p, int16_t s) { std::memcpy(p, &s, sizeof s); }

}  // namespace

WAVORYX_API void Stereo2Mono(void* buf, unsigned int frames) {
    auto* bytes = static_cast<unsigned char*>(buf);
    // Forward: sample i is written at or below where frame i is read.
    for (unsigned int i = 0; i < frames; ++i) {
        storeSample(bytes + 2 * size_t(i), loadSample(bytes + 4 * size_t(i)));
    }
}

WAVORYX_API void Mono2Stereo(void* buf, unsigned int frames) {
    auto* bytes = static_cast<unsigned char*>(buf);
    // Backward: frame i lands at or above where sample i is read.
    for (unsigned int i = frames; i-- > 0;) {
        const int16_t s = loadSample(bytes + 2 * size_t(i));
        storeSample(bytes + 4 * size_t(i) + 2, s);
        storeSample(bytes + 4 * size_t(i), s);
    }
}

WAVORYX_API void Stereo2Float(void* buf, unsigned int frames) {
    auto* bytes = static_cast<unsigned char*>(buf);
    for (unsigned int i = 0; i < frames; ++i) {
        unsigned char* frame = bytes + 4 * size_t(i);
        const float value = loadSample(frame) * kInt16ToFloat;
        std::memcpy(frame, &value, sizeof value);
    }
}

WAVORYX_API void Float2Stereo(void* buf, unsigned int count) {
    auto* bytes = static_cast<unsigned char*>(buf);
    for (unsigned int i = 0; i < count; ++i) {
        unsigned char* frame = bytes + 4 * size_t(i);
        float value;
        std::memcpy(&value, frame, sizeof value);
        if (value > 1.0f) {
            value = 1.0f;
        } else if (value < -1.0f) {
            value = -1.0f;
        } else if (value != value) {
            value = 0.0f;  // NaN has no sample value; silence is the safe one
        }
        const auto sample = static_cast<int16_t>(value * kFloatToInt16);
        storeSample(frame, sample);
        storeSample(frame + 2, sample);
    }
}

WAVORYX_API unsigned int mem_copy(void* dst, unsigned int dstSize, unsigned int& dstPos, void* src,
                                  unsigned int srcSize, unsigned int& srcPos) {
    // A position already past its end has nothing left rather than wrapping.
    const unsigned int srcLeft = srcPos < srcSize ? srcSize - srcPos : 0;
    const unsigned int dstLeft = dstPos < dstSize ? dstSize - dstPos : 0;
    const unsigned int n = srcLeft < dstLeft ? srcLeft : dstLeft;
    if (n > 0) {
        std::memmove(static_cast<unsigned char*>(dst) + dstPos,
                     static_cast<const unsigned char*>(src) + srcPos, n);
    }
    dstPos += n;
    srcPos += n;
    return dstPos;
}

WAVORYX_API void ramp_up(void* /*buf*/, unsigned int /*count*/) {}
