// The float stage of the list reader and the reads built on it: the
// effects path of read() and backwards reads of a list.
#include <cstring>

#include "dsp/Dither.h"
#include "items/ListMixer.h"
#include "items/PcmInfoReader.h"

namespace wv {

uint32_t PcmInfoReader::ditherSeed(uint32_t frame) {
    // An odd step unlike the generator's own keeps frames' noise apart.
    return TpdfDither::kDefaultSeed + frame * 0x632BE5ABu;
}

bool PcmInfoReader::usesEffects() const {
    return mInfo->status.load() == CLIP_LIST && mInfo->clipList && mInfo->clipList->hasEffects();
}

int32_t PcmInfoReader::readFloat(float* out, uint32_t frames) {
    if (mOutSampleRate == 0) mOutSampleRate = mInfo->sampleRate.load();
    if (mOutChannels == 0) mOutChannels = mInfo->channelCount.load();
    const uint32_t channels = static_cast<uint32_t>(mOutChannels);
    if (mOutSampleRate == 0 || channels == 0) return 0;
    if (mInfo->status.load() == CLIP_LIST && mInfo->clipList) {
        // The plain path's clip reader would stand at a stale place when
        // the effects go away again.
        mClipReader.reset();
        if (!mMixer)
            mMixer.reset(new ListMixer(mInfo, mOutSampleRate, mOutChannels, mResampleQuality));
        int32_t state = MORE;
        const uint32_t n = mMixer->mix(out, mPosition, frames, mEndFrame, &state);
        mPosition += n;
        mEndState = state;
        return static_cast<int32_t>(n);
    }
    // Other items: their 16-bit frames, read into the first half of `out`
    // and widened from the last sample down so none is overwritten unread.
    char* raw = reinterpret_cast<char*>(out);
    const int32_t n = read(raw, frames * channels * 2);
    if (n < 0) return n;
    for (size_t i = size_t(frames) * channels; i-- > 0;) {
        int16_t sample;
        std::memcpy(&sample, raw + i * 2, sizeof sample);
        const float value = static_cast<float>(sample) / 32768.0f;
        std::memcpy(raw + i * sizeof(float), &value, sizeof value);
    }
    return n;
}

int32_t PcmInfoReader::readWithEffects(char* buffer, uint32_t frames) {
    const uint32_t channels = static_cast<uint32_t>(mOutChannels);
    if (mFloatBlock.size() < size_t(frames) * channels)
        mFloatBlock.resize(size_t(frames) * channels);
    const uint32_t first = mPosition;
    const int32_t n = readFloat(mFloatBlock.data(), frames);
    int16_t* out = reinterpret_cast<int16_t*>(buffer);
    for (int32_t f = 0; f < n; ++f) {
        TpdfDither dither(ditherSeed(first + static_cast<uint32_t>(f)));
        dither.toInt16(mFloatBlock.data() + size_t(f) * channels, out + size_t(f) * channels,
                       channels);
    }
    return n;
}

int32_t PcmInfoReader::reverseFillList(char* buffer, uint32_t bytes) {
    std::memset(buffer, 0, bytes);
    const uint32_t frameBytes = mInfo->frameSize();
    const uint32_t n = bytes / frameBytes;
    const uint32_t back = mPosition < n ? mPosition : n;
    const uint32_t newPosition = mPosition - back;
    // The frames before the position, read forwards (the same bytes as a
    // forward read gives them), land after the silence before frame 0.
    mPosition = newPosition;
    reseek();
    char* into = buffer + uint64_t(n - back) * frameBytes;
    uint32_t got = 0;
    while (got < back) {
        const int32_t r = read(into + uint64_t(got) * frameBytes, (back - got) * frameBytes);
        if (r < 0) return -1;
        got += static_cast<uint32_t>(r);
        if (r == 0 || mEndState != MORE) break;
    }
    reverseFrames(buffer, n, frameBytes);
    mPosition = newPosition;
    reseek();
    mEndState = MORE;
    return static_cast<int32_t>(n);
}

}  // namespace wv
