#define WV_LOG_TAG "Mp3Encoder"
#include "codec/Mp3Encoder.h"

#include <lame/lame.h>

#include <algorithm>
#include <cstdlib>

#include "base/CheckSites.h"
#include "base/Log.h"

namespace wv {

Mp3Encoder::Mp3Encoder() {
    mOutput = static_cast<unsigned char*>(std::malloc(OUTPUT_BYTES));
    WV_CHECK_AT(Check::kMp3EncoderOutput, mOutput != nullptr);
}

Mp3Encoder::~Mp3Encoder() {
    std::free(mOutput);
    if (mLame != nullptr) lame_close(mLame);
}

int Mp3Encoder::initEncoder(uint32_t sampleRate, uint32_t channels, uint32_t bitrate, int format) {
    mSampleRate = sampleRate;
    mChannels = channels;
    mBitrate = bitrate;
    switch (format) {
        case FORMAT_PCM_8:
            mFrameBytes = channels;
            break;
        case FORMAT_PCM_16:
            mFrameBytes = channels * 2;
            break;
        case FORMAT_PCM_32:
            mFrameBytes = channels * 4;
            break;
        default:
            return INIT_FAILED;
    }
    if (channels != 1 && channels != 2) return INIT_FAILED;

    if (mLame != nullptr) lame_close(mLame);
    mLame = lame_init();
    if (mLame == nullptr) return INIT_FAILED;
    mMode = channels == 2 ? MODE_DUAL_CHANNEL : MODE_MONO;
    lame_set_num_channels(mLame, static_cast<int>(channels));
    lame_set_in_samplerate(mLame, static_cast<int>(sampleRate));
    lame_set_brate(mLame, static_cast<int>(bitrate));
    lame_set_mode(mLame, static_cast<MPEG_mode>(mMode));
    lame_set_quality(mLame, QUALITY);
    if (lame_init_params(mLame) < 0) return INIT_FAILED;

    const size_t tagBytes = lame_get_id3v2_tag(mLame, nullptr, 0);
    if (tagBytes == 0) return 0;
    auto* tag = static_cast<unsigned char*>(std::malloc(tagBytes));
    WV_CHECK_AT(Check::kMp3EncoderTag, tag != nullptr);
    mLastBytes = static_cast<int>(lame_get_id3v2_tag(mLame, tag, tagBytes));
    const int status = write(tag, static_cast<uint32_t>(mLastBytes));
    std::free(tag);
    return status == WRITE_OK ? 0 : INIT_FAILED;
}

int Mp3Encoder::encoding(const int16_t* pcm, int bytes) {
    if (mLame == nullptr || bytes < 0) return WRITE_ERROR;
    int frames = static_cast<int>(static_cast<uint32_t>(bytes) / mFrameBytes);
    // LAME reads the input without changing it; its interface is not const.
    auto* input = reinterpret_cast<uint8_t*>(const_cast<int16_t*>(pcm));
    do {
        const int chunk = std::min(frames, MAX_FRAMES_PER_CALL);
        if (mChannels == 2) {
            mLastBytes = lame_encode_buffer_interleaved(mLame, reinterpret_cast<short*>(input),
                                                        chunk, mOutput, OUTPUT_BYTES);
        } else {
            mLastBytes = lame_encode_buffer(mLame, reinterpret_cast<short*>(input), nullptr, chunk,
                                            mOutput, OUTPUT_BYTES);
        }
        if (mLastBytes < 0) return WRITE_ERROR;
        const int status = write(mOutput, static_cast<uint32_t>(mLastBytes));
        if (status != WRITE_OK) return status;
        input += static_cast<size_t>(chunk) * mFrameBytes;
        frames -= chunk;
    } while (frames > 0);
    return WRITE_OK;
}

int Mp3Encoder::flushEncoding() {
    const int held = checkStatus();
    if (held != WRITE_OK) return held;
    if (mLame == nullptr) return 0;  // never set up: nothing was encoded
    mLastBytes = lame_encode_flush(mLame, mOutput, OUTPUT_BYTES);
    if (mLastBytes < 0 && mLastBytes != -1) {
        WV_LOGE("finishMp3encoding mp3 internal error:  error code=%i\n", mLastBytes);
        return WRITE_ERROR;
    }
    if (mLastBytes <= 0) return 0;
    const int status = write(mOutput, static_cast<uint32_t>(mLastBytes));
    if (status != WRITE_OK) {
        // The last frames are part of the file: without them it is not done.
        WV_LOGE("finishMp3encoding mp3 write file error");
        return status;
    }
    return 0;
}

}  // namespace wv
