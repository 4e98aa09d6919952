#define WV_LOG_TAG "LoudnessMeter"
#include "dsp/LoudnessMeter.h"

#include <ebur128.h>

#include <cmath>
#include <vector>

#include "base/Log.h"

namespace wv {

struct LoudnessMeter::State {
    ebur128_state* meter;
};

LoudnessMeter::LoudnessMeter(uint32_t sampleRate, uint32_t channels, MeterScope scope)
    : mChannels(channels), mScope(scope) {
    // A mono programme is one front channel, weighted 1 like a stereo
    // channel: the library's default map already says so for channel 0.
    const int mode = scope == MeterScope::kAll
                         ? EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_TRUE_PEAK
                         : EBUR128_MODE_I;
    ebur128_state* meter = ebur128_init(channels, sampleRate, mode);
    if (meter == nullptr) {
        WV_LOGE("loudness meter refused %u Hz, %u channels", sampleRate, channels);
        return;
    }
    mState = new State{meter};
}

LoudnessMeter::~LoudnessMeter() {
    if (mState == nullptr) return;
    ebur128_destroy(&mState->meter);
    delete mState;
}

bool LoudnessMeter::weigh(uint32_t channel, ChannelWeight weight) {
    if (mState == nullptr || channel >= mChannels) return false;
    // The library weighs by what a channel is; centre and left surround
    // carry the front and the surround weights.
    const int kind = weight == ChannelWeight::kFront      ? EBUR128_CENTER
                     : weight == ChannelWeight::kSurround ? EBUR128_LEFT_SURROUND
                                                          : EBUR128_UNUSED;
    return ebur128_set_channel(mState->meter, channel, kind) == EBUR128_SUCCESS;
}

bool LoudnessMeter::add(const int16_t* samples, size_t frames) {
    if (mState == nullptr) return false;
    return ebur128_add_frames_short(mState->meter, samples, frames) == EBUR128_SUCCESS;
}

bool LoudnessMeter::add(const float* samples, size_t frames) {
    if (mState == nullptr) return false;
    return ebur128_add_frames_float(mState->meter, samples, frames) == EBUR128_SUCCESS;
}

bool LoudnessMeter::integrated(double* lufs) const {
    if (mState == nullptr) return false;
    return ebur128_loudness_global(mState->meter, lufs) == EBUR128_SUCCESS;
}

bool LoudnessMeter::figures(LoudnessFigures* out) const {
    if (mState == nullptr || mScope != MeterScope::kAll) return false;
    double integrated = 0.0;
    double range = 0.0;
    if (ebur128_loudness_global(mState->meter, &integrated) != EBUR128_SUCCESS ||
        ebur128_loudness_range(mState->meter, &range) != EBUR128_SUCCESS) {
        return false;
    }
    double peak = 0.0;
    for (uint32_t channel = 0; channel < mChannels; ++channel) {
        double channelPeak = 0.0;
        if (ebur128_true_peak(mState->meter, channel, &channelPeak) != EBUR128_SUCCESS)
            return false;
        if (channelPeak > peak) peak = channelPeak;
    }
    out->integratedLufs = integrated;
    out->rangeLu = range;
    out->truePeakDbtp = peak > 0.0 ? 20.0 * std::log10(peak) : -HUGE_VAL;
    return true;
}

uint32_t LoudnessMeter::blockHop(uint32_t sampleRate) {
    // The library's own rounding of its 100 ms step.
    return (sampleRate + 5) / 10;
}

bool LoudnessMeter::integratedOf(const LoudnessMeter* const* meters, size_t count, double* lufs) {
    std::vector<ebur128_state*> states;
    states.reserve(count);
    for (size_t k = 0; k < count; ++k) {
        if (meters[k] == nullptr || meters[k]->mState == nullptr) return false;
        states.push_back(meters[k]->mState->meter);
    }
    if (states.empty()) return false;
    return ebur128_loudness_global_multiple(states.data(), states.size(), lufs) == EBUR128_SUCCESS;
}

int32_t LoudnessMeter::tenths(double value) {
    if (std::isnan(value) || value == -HUGE_VAL) return INT32_MIN;
    const double scaled = std::round(value * 10.0);
    if (scaled >= static_cast<double>(INT32_MAX)) return INT32_MAX;
    // INT32_MIN itself stays the mark of "no value".
    if (scaled <= static_cast<double>(INT32_MIN + 1)) return INT32_MIN + 1;
    return static_cast<int32_t>(scaled);
}

ChannelWeight weightOfPlace(ChannelDecoder::Place place) {
    switch (place) {
        case ChannelDecoder::Place::kSurround:
            return ChannelWeight::kSurround;
        case ChannelDecoder::Place::kLowFrequency:
            return ChannelWeight::kNone;
        default:
            return ChannelWeight::kFront;
    }
}

}  // namespace wv
