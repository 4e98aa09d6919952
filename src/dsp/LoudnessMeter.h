// Programme loudness of a stream of 16-bit frames, after ITU-R BS.1770 and
// EBU R128: integrated loudness (LUFS), loudness range (LU) and true peak
// (dBTP), measured by libebur128.
//
// Integrated loudness and range keep the energy of every block of the
// programme (under 1 KB per second of input), since their gates are relative
// to the whole; everything else is fixed at construction.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/media/ChannelDecoder.h"

namespace wv {

// A measurement; a quantity that has no value is -infinity: the loudness of
// silence or of less than one 400 ms gating block, the true peak of digital
// silence.
struct LoudnessFigures {
    double integratedLufs;
    double rangeLu;
    double truePeakDbtp;
};

// What a meter keeps track of: all three figures, or the integrated
// loudness alone (no 4x true-peak interpolation and no range histogram: a
// fraction of the work, for passes that need one number).
enum class MeterScope { kAll, kIntegrated };

// A channel's weight in the loudness (ITU-R BS.1770): 1 for the front
// channels, 1.41 (+1.5 dB) for the surround ones, 0 for low-frequency
// effects.
enum class ChannelWeight { kFront, kSurround, kNone };

// The weight of a channel at `place` in a decoded layout.
ChannelWeight weightOfPlace(ChannelDecoder::Place place);

class LoudnessMeter {
public:
    // channels: 1 (weighted as a single front channel), 2 (left, right),
    // or more, each to be weighed (weigh()) before the first add().
    LoudnessMeter(uint32_t sampleRate, uint32_t channels, MeterScope scope = MeterScope::kAll);
    ~LoudnessMeter();
    LoudnessMeter(const LoudnessMeter&) = delete;
    LoudnessMeter& operator=(const LoudnessMeter&) = delete;

    // False when the measurement could not be set up (no memory, a rate
    // the filters do not support): add and figures then fail.
    bool valid() const { return mState != nullptr; }
    // Sets the weight of `channel`; false for a channel out of range.
    bool weigh(uint32_t channel, ChannelWeight weight);
    // Feeds `frames` interleaved frames. False when the meter refused them.
    bool add(const int16_t* samples, size_t frames);
    // The same for float samples, full scale 1.0.
    bool add(const float* samples, size_t frames);
    // The figures of everything fed so far. False when they could not be
    // computed, or for a meter of MeterScope::kIntegrated.
    bool figures(LoudnessFigures* out) const;
    // The integrated loudness (LUFS; -infinity as in LoudnessFigures) of
    // everything fed so far, for either scope. False when it could not be
    // computed.
    bool integrated(double* lufs) const;

    // Splitting a measurement: the frames from one 400 ms gating block's
    // start to the next (100 ms at `sampleRate`, rounded as the library
    // rounds). A programme cut at multiples of it into parts, each part but
    // the first fed to its own meter together with the kPrimingHops hops
    // before it, gives the meters the gating blocks one meter fed the whole
    // would have: a part's first block is the one that ends a hop into it.
    // They match to within the weighting filter settling from rest over the
    // first milliseconds of that block (it starts without the audio before
    // it), far under 0.01 LU on the whole.
    static constexpr uint32_t kPrimingHops = 3;
    static uint32_t blockHop(uint32_t sampleRate);
    // The integrated loudness (LUFS, as integrated()) of the blocks of
    // `count` meters taken together: the parts above, measured at one rate
    // and channel count with the same weights and MeterScope. False when
    // it could not be computed or a meter is not valid. Any thread, while
    // no other thread feeds the meters.
    static bool integratedOf(const LoudnessMeter* const* meters, size_t count, double* lufs);

    // A figure in tenths of its unit, rounded half away from zero (-23.14
    // gives -231); INT32_MIN for -infinity or NaN, saturated otherwise.
    static int32_t tenths(double value);

private:
    // The library's state, whose type cannot be declared ahead of its header.
    struct State;
    State* mState = nullptr;
    uint32_t mChannels;
    MeterScope mScope;
};

}  // namespace wv
