#define WV_LOG_TAG "WaveformData"
#include "dsp/WaveformData.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include <wavoryx/dsp.h>

#include "base/Log.h"
#include "base/Vectorise.h"

namespace wv {

namespace {
uint32_t magnitude(int16_t sample) {
    return sample < 0 ? uint32_t(-int32_t(sample)) : uint32_t(sample);
}
// The largest magnitude of n samples (32768 for -32768). Kept to plain
// 16-bit minimum and maximum so that the compiler can use vector
// instructions: renders feed every sample through here.
WV_VECTORISE uint32_t peakMagnitude(const int16_t* samples, uint32_t n) {
    int16_t lowest = 0;
    int16_t highest = 0;
    for (uint32_t i = 0; i < n; ++i) {
        lowest = samples[i] < lowest ? samples[i] : lowest;
        highest = samples[i] > highest ? samples[i] : highest;
    }
    const uint32_t below = magnitude(lowest);
    const uint32_t above = magnitude(highest);
    return below > above ? below : above;
}
// Points are bytes: a peak above 16383 saturates instead of wrapping.
uint8_t pointFromPeak(uint32_t peak) {
    return peak >> 6 > 255 ? 255 : static_cast<uint8_t>(peak >> 6);
}
}  // namespace

WaveformState::~WaveformState() {
    if (file) {
        file->discard();
    } else if (fd > 0) {
        ::close(fd);
    }
}

void openWaveformFile(WaveformState* state, const char* path) {
    std::unique_ptr<OutputFile> file(new OutputFile());
    const int result = file->open(path);
    if (result != 0) {
        state->fd = -1;
        WV_LOGE("waveform file %s open failed error %d", path, -result);
        return;
    }
    state->fd = file->fd();
    state->file = std::move(file);
}

int finishWaveformFile(WaveformState* state) {
    if (!state->file || !state->file->isOpen()) return 0;
    state->fd = 0;
    if (state->writeFailed) {
        state->file->discard();
        return -1;
    }
    return state->file->commit() == 0 ? 0 : -1;
}

namespace {
// Takes samples until the point being built completes (true, its value in
// *point) or the samples run out (false; the partial point carries over).
bool takeSamples(WaveformState* state, const int16_t** data, uint32_t* bytes, uint8_t* point) {
    while (*bytes >= 2) {
        // The point completes at the first sample that brings samplesSeen to
        // its due count (the very next one when it is already there), so the
        // samples up to it are taken as one run.
        const uint64_t due =
            uint64_t(state->nextPoint) * state->msPerPoint * state->samplesPerSecond / 1000;
        const uint64_t need = due > state->samplesSeen ? due - state->samplesSeen : 1;
        const uint32_t available = *bytes / 2;
        const uint32_t take = need < available ? static_cast<uint32_t>(need) : available;
        const uint32_t level = peakMagnitude(*data, take);
        if (level > state->peak) state->peak = level;
        *data += take;
        *bytes -= take * 2;
        state->samplesSeen += take;
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
        return true;
    }
    return false;
}

void storePoints(WaveformState* state, const uint8_t* points, uint32_t count) {
    if (state->fd <= 0 || count == 0 || state->writeFailed) return;
    ssize_t written;
    do {
        written = ::write(state->fd, points, count);
    } while (written < 0 && errno == EINTR);
    if (written == static_cast<ssize_t>(count)) return;
    // A file with a hole in it is worse than none: it is not finished.
    state->writeFailed = true;
    state->storageFull = written >= 0 || errno == ENOSPC;
    WV_LOGE("waveform file write failed");
}
}  // namespace

int addWaveformSamples(WaveformState* state, const int16_t** data, uint32_t* bytes,
                       uint8_t* point) {
    if (!takeSamples(state, data, bytes, point)) return 0;
    storePoints(state, point, 1);
    return 1;
}

uint32_t addWaveformBlock(WaveformState* state, const int16_t* data, uint32_t bytes) {
    uint8_t pending[64];
    uint32_t held = 0;
    uint32_t total = 0;
    while (bytes >= 2) {
        if (!takeSamples(state, &data, &bytes, &pending[held])) break;
        ++total;
        if (++held == sizeof(pending)) {
            storePoints(state, pending, held);
            held = 0;
        }
    }
    storePoints(state, pending, held);
    return total;
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
