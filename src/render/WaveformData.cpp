#define WV_LOG_TAG "WavoryxPriv"
#include "render/WaveformData.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include <wavoryx/dsp.h>

#include "platform/Log.h"

namespace wv {

namespace {
uint32_t magnitude(int16_t sample) { return sample < 0 ? uint32_t(-int32_t(sample)) : uint32_t(sample); }
// Points are bytes: a peak above 16383 saturates instead of wrapping.
uint8_t pointFromPeak(uint32_t peak) { return peak >> 6 > 255 ? 255 : static_cast<uint8_t>(peak >> 6); }
}  // namespace

WaveformState::~WaveformState() {
    if (fd > 0) ::close(fd);
}

void openWaveformFile(WaveformState* state, const char* path) {
    state->fd = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0777);
    if (state->fd < 0) WV_LOGE("waveform file %s open failed error %d", path, errno);
}

int addWaveformSamples(WaveformState* state, const int16_t** data, uint32_t* bytes, uint8_t* point) {
    while (*bytes >= 2) {
        const int16_t sample = **data;
        ++*data;
        *bytes -= 2;
        ++state->samplesSeen;
        const uint32_t level = magnitude(sample);
        if (level > state->peak) state->peak = level;
        const uint64_t due = uint64_t(state->nextPoint) * state->msPerPoint * state->samplesPerSecond / 1000;
        if (state->samplesSeen < due) continue;

        const uint32_t value = 255 * state->peak / state->fullScale;
        uint32_t output;
        if (value > 245 && state->previous > 245) {
            output = 246 + static_cast<uint32_t>(lrand48() % 10);
            state->previous = value;
        } else if (double(value) < state->previous * 0.85) {
            output = static_cast<uint32_t>(state->previous * 0.85);
            state->previous = output;
        } else {
            output = value;
            state->previous = value;
        }
        *point = static_cast<uint8_t>(output);
        state->peak = 0;
        state->nextPoint += 1;
        if (state->fd != 0) {
            ssize_t ignored = ::write(state->fd, point, 1);
            (void)ignored;
        }
        return 1;
    }
    return 0;
}

WaveformReducer::WaveformReducer(uint8_t* out, uint32_t count, uint64_t totalSamples)
    : mOut(out), mCount(count), mTotal(totalSamples), mAcc(count) {}

void WaveformReducer::afterSample() {
    bool wrote = false;
    while (mNext < mCount && mAcc >= (mNext + 1) * mTotal) {
        mOut[mNext++] = pointFromPeak(mPeak);
        wrote = true;
    }
    if (wrote) mPeak = 0;
    mAcc += mCount;
    ++mIndex;
}

void WaveformReducer::feed(const int16_t* samples, uint64_t n) {
    for (uint64_t i = 0; i < n; ++i) {
        const uint32_t level = magnitude(samples[i]);
        if (level > mPeak) mPeak = level;
        afterSample();
    }
}

void WaveformReducer::feedSilence(uint64_t n) {
    for (uint64_t i = 0; i < n; ++i) afterSample();
}

}  // namespace wv

uint32_t Pcm16toWaveform8(int16_t* pcm, uint32_t bytes, uint8_t* out, uint32_t count) {
    wv::WaveformReducer reducer(out, count, bytes / 2);
    reducer.feed(pcm, bytes / 2);
    return 0;
}
