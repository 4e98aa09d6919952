// Effects of clip lists: a gain and fades per clip, a gain and crossfaded
// joins per list. They are kept with the clips and applied by the list's
// reader, so that everything that reads a list (render, playback, waveform,
// loudness) hears the same audio.
//
// Envelopes. x runs over [0, 1] across a fade; a shape maps it to a gain:
// linear x; equal power sin(x pi / 2); logarithmic 0 dB at x = 1 falling
// linearly in dB to -60 dB at x = 0 (and silence at exactly 0).
//  - Fade in over F frames: frame j < F of the clip gets shape(j / F), so
//    the first frame is silent. Fade out over G frames: frame j >= L - G of
//    a clip of L frames gets shape((L - 1 - j) / G), so the last frame is
//    silent. When F + G exceed L they are scaled down in proportion to fit
//    exactly.
//  - A crossfade of O frames: frame k < O of the overlap gets
//    shape((k + 0.5) / O) on the incoming clip and shape(1 - (k + 0.5) / O)
//    on the outgoing one (linear sums to 1, equal power keeps the power).
// All effects multiply: clip gain, its fades, the crossfades at its ends,
// then the list gain on the sum.
#pragma once

#include <cstdint>

namespace wv {

enum FadeShape : int32_t { kFadeLinear = 0, kFadeEqualPower = 1, kFadeLog = 2 };
constexpr int32_t kFadeShapeCount = 3;
// Gains in millibels (hundredths of a dB).
constexpr int32_t kMinGainMb = -9600;
constexpr int32_t kMaxGainMb = 2400;

struct ClipEffects {
    int32_t gainMb = 0;
    uint32_t fadeInMs = 0;
    uint32_t fadeOutMs = 0;
    int32_t fadeShape = kFadeLinear;

    bool any() const { return gainMb != 0 || fadeInMs != 0 || fadeOutMs != 0; }
};

// Sound effects run over the whole mixed list, in this order: noise
// reduction (dsp/NoiseReducer.h), then the tempo (dsp/TempoStretcher.h),
// which makes the list round(frames x 100 / tempoPercent) frames long.
constexpr int32_t kMaxDenoiseDb = 97;
constexpr int32_t kMinTempoPercent = 50;
constexpr int32_t kMaxTempoPercent = 200;

struct ListEffects {
    int32_t gainMb = 0;
    uint32_t crossfadeMs = 0;  // 0: hard joins, the list's frames as they always were
    int32_t crossfadeShape = kFadeEqualPower;
    int32_t denoiseDb = 0;       // 0: off
    int32_t tempoPercent = 100;  // 100: off

    bool streamed() const { return denoiseDb != 0 || tempoPercent != 100; }
    bool any() const { return gainMb != 0 || crossfadeMs != 0 || streamed(); }
};

// The frames a list of `frames` frames lasts at `tempoPercent`.
uint64_t tempoLength(uint64_t frames, int32_t tempoPercent);

// Linear factor of a gain in millibels.
double gainOfMillibels(int32_t millibels);
// A shape's gain at x in [0, 1].
double fadeShapeGain(int32_t shape, double x);
// Frames of `ms` at `rate` (rounded down).
uint32_t framesOfMs(uint32_t ms, int32_t rate);

// Where one clip sits in its list and what shapes it.
struct ClipPlacement {
    uint32_t clipId = 0;
    uint32_t length = 0;      // its frames (as converted, see PcmClipList::place)
    int32_t sourceRate = 0;   // the rate of its source's frames
    int32_t placedRate = 0;   // the rate its place counts in
    uint64_t listStart = 0;   // list frame of its first frame
    uint32_t overlapIn = 0;   // frames shared with the clip before
    uint32_t overlapOut = 0;  // frames shared with the clip after
    uint32_t fadeIn = 0;      // frames, already fitted into length
    uint32_t fadeOut = 0;
    int32_t fadeShape = kFadeLinear;
    int32_t crossfadeShape = kFadeEqualPower;
    double gain = 1.0;  // the clip's own
};

// The clip's gain at its frame j, every effect of the clip included (the
// list gain is not).
double clipEnvelope(const ClipPlacement& place, uint32_t j);

}  // namespace wv
