#define WV_LOG_TAG "Mp3Encoder"
#include "codec/Mp3Encoder.h"

#include <lame/lame.h>

#include <algorithm>
#include <cstdlib>

#include "base/CheckSites.h"
#include "base/Log.h"
#include "codec/Id3Tag.h"
#include "codec/Mp3Segments.h"

namespace wv {

Mp3Encoder::Mp3Encoder() {
    mOutput = static_cast<unsigned char*>(std::malloc(OUTPUT_BYTES));
    WV_CHECK_AT(Check::kMp3EncoderOutput, mOutput != nullptr);
}

Mp3Encoder::~Mp3Encoder() {
    mSegments.reset();
    std::free(mOutput);
    if (mLame != nullptr) lame_close(mLame);
}

void Mp3Encoder::setOptions(const EncodeOptions& options) {
    mOptions.quality = std::min(9, std::max(0, options.quality));
    mOptions.vbr = std::min(9, std::max(0, options.vbr));
    mOptions.jointStereo = options.jointStereo;
    mOptions.threads = std::min(kMaxEncodeThreads, std::max(1, options.threads));
}

int Mp3Encoder::initEncoder(uint32_t sampleRate, uint32_t channels, uint32_t bitrate, int format) {
    mSampleRate = mInputRate = sampleRate;
    mChannels = mInputChannels = channels;
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
    mLame = nullptr;
    mMode = channels == 1               ? MODE_MONO
            : mOptions.jointStereo == 1 ? MODE_JOINT_STEREO
            : mOptions.jointStereo == 2 ? MODE_STEREO
                                        : MODE_DUAL_CHANNEL;
    // The info frame is written in place at the end: an output that cannot
    // seek gets none, rather than an empty frame that decodes as silence.
    const bool infoFrame = isSeekable();
    // LAME settles its output rate and bit rate only when it starts, and
    // starts only once: a first start tells whether the info frame fits.
    lame_global_struct* probe = startLame(false, infoFrame);
    if (probe == nullptr) return INIT_FAILED;
    // A VBR stream's info frame gets a frame size of its own.
    const bool fits = !infoFrame || mOptions.vbr > 0 || infoFrameFits(probe);
    lame_close(probe);
    mAverageRate = !fits;
    mLame = startLame(mAverageRate, infoFrame);
    if (mLame == nullptr) return INIT_FAILED;
    mThreaded = mOptions.threads > 1 && infoFrame && format == FORMAT_PCM_16 &&
                lame_get_out_samplerate(mLame) == static_cast<int>(mSampleRate);

    mInfoFrameOffset = 0;
    mEncodedFrames = 0;
    mTagBytes = 0;
    if (!mTags.empty()) {
        const std::vector<uint8_t> own = id3v2Tag(mTags, mTags.expectedMs);
        if (write(own.data(), static_cast<uint32_t>(own.size())) != WRITE_OK) return INIT_FAILED;
        mTagBytes = own.size();
        mInfoFrameOffset = static_cast<int64_t>(mTagBytes);
    }
    const size_t tagBytes = lame_get_id3v2_tag(mLame, nullptr, 0);
    if (tagBytes == 0) return 0;
    auto* tag = static_cast<unsigned char*>(std::malloc(tagBytes));
    WV_CHECK_AT(Check::kMp3EncoderTag, tag != nullptr);
    mLastBytes = static_cast<int>(lame_get_id3v2_tag(mLame, tag, tagBytes));
    const int status = write(tag, static_cast<uint32_t>(mLastBytes));
    std::free(tag);
    if (status != WRITE_OK) return INIT_FAILED;
    mInfoFrameOffset += static_cast<int64_t>(mLastBytes);
    return 0;
}

lame_global_struct* Mp3Encoder::startLame(bool averageRate, bool infoFrame, bool reservoir) const {
    lame_global_struct* lame = lame_init();
    if (lame == nullptr) return nullptr;
    lame_set_num_channels(lame, static_cast<int>(mChannels));
    lame_set_in_samplerate(lame, static_cast<int>(mSampleRate));
    lame_set_brate(lame, static_cast<int>(mBitrate));
    lame_set_mode(lame, static_cast<MPEG_mode>(mMode));
    lame_set_quality(lame, mOptions.quality);
    lame_set_bWriteVbrTag(lame, infoFrame ? 1 : 0);
    if (!reservoir) lame_set_disable_reservoir(lame, 1);
    if (mOptions.vbr > 0) {
        lame_set_VBR(lame, vbr_mtrh);
        lame_set_VBR_q(lame, mOptions.vbr);
    } else if (averageRate) {
        // At low bit rates a constant-rate frame is too small for the info
        // frame and LAME would leave it out. Every audio frame still gets
        // the asked bit rate (its minimum and its maximum), while LAME gives
        // the info frame one of a size that holds it.
        const int kbps = static_cast<int>(mBitrate);
        lame_set_VBR(lame, vbr_abr);
        lame_set_VBR_mean_bitrate_kbps(lame, kbps);
        lame_set_VBR_min_bitrate_kbps(lame, kbps);
        lame_set_VBR_max_bitrate_kbps(lame, kbps);
        lame_set_VBR_hard_min(lame, 1);
    }
    if (lame_init_params(lame) < 0) {
        lame_close(lame);
        return nullptr;
    }
    return lame;
}

bool Mp3Encoder::infoFrameFits(lame_global_struct* lame) const {
    // LAME's rule: the frame holds the side information and LAME's 156
    // bytes of tag. MPEG-1 (32 kHz and up) frames are 1152 samples, the
    // others 576.
    const int rate = lame_get_out_samplerate(lame);
    const bool mpeg1 = rate >= 32000;
    const bool mono = mChannels == 1;
    const int sideInfo = 4 + (mpeg1 ? (mono ? 17 : 32) : (mono ? 9 : 17));
    const int frameBytes = (mpeg1 ? 144000 : 72000) * lame_get_brate(lame) / rate;
    return frameBytes >= sideInfo + 156;
}

size_t Mp3Encoder::segmentsEncodedAgain() const {
    return mSegments ? mSegments->encodedAgain() : 0;
}

uint32_t Mp3Encoder::outputSampleRate() const {
    return mLame != nullptr ? static_cast<uint32_t>(lame_get_out_samplerate(mLame)) : mInputRate;
}

uint32_t Mp3Encoder::outputBitRate() const {
    if (mLame == nullptr || mOptions.vbr > 0) return 0;
    // The average-rate start holds every audio frame to its minimum.
    const int kbps = lame_get_VBR(mLame) == vbr_abr ? lame_get_VBR_min_bitrate_kbps(mLame)
                                                    : lame_get_brate(mLame);
    return static_cast<uint32_t>(std::max(0, kbps));
}

int Mp3Encoder::encoding(const int16_t* pcm, int bytes) {
    if (mLame == nullptr || bytes < 0) return WRITE_ERROR;
    // Counted here, once, whichever path encodes them: the chapters' end.
    mEncodedFrames += static_cast<uint32_t>(bytes) / mFrameBytes;
    return mThreaded ? encodeShared(pcm, bytes) : encodeHere(pcm, bytes);
}

int Mp3Encoder::encodeShared(const int16_t* pcm, int bytes) {
    const size_t samples = static_cast<size_t>(bytes) / sizeof(int16_t);
    const size_t frames = samples / mChannels;
    std::vector<uint8_t> ready;
    if (!mSegments) {
        mHeldInput.insert(mHeldInput.end(), pcm, pcm + frames * mChannels);
        const uint32_t frameSamples = static_cast<uint32_t>(lame_get_framesize(mLame));
        if (mHeldInput.size() / mChannels <= Mp3Segments::soleSegmentSamples(mSampleRate, frameSamples)) {
            return WRITE_OK;
        }
        const bool average = mAverageRate;
        mSegments.reset(new Mp3Segments(
            [this, average](bool infoFrame, bool reservoir) {
                lame_global_struct* lame = startLame(average, infoFrame, reservoir);
                return lame;
            },
            mOptions.threads, mSampleRate, mChannels, frameSamples, mOptions.vbr > 0));
        std::vector<int16_t> held;
        held.swap(mHeldInput);
        if (!mSegments->push(held.data(), held.size() / mChannels, &ready)) return WRITE_ERROR;
    } else if (!mSegments->push(pcm, frames, &ready)) {
        return WRITE_ERROR;
    }
    if (ready.empty()) return WRITE_OK;
    mLastBytes = static_cast<int>(ready.size());
    return write(ready.data(), static_cast<uint32_t>(ready.size()));
}

int Mp3Encoder::flushShared() {
    if (!mSegments) {
        // One segment: the bytes one encoder alone makes.
        std::vector<int16_t> held;
        held.swap(mHeldInput);
        mThreaded = false;
        const int status = held.empty() ? WRITE_OK
                                        : encodeHere(held.data(),
                                                     static_cast<int>(held.size() * sizeof(int16_t)));
        return status != WRITE_OK ? status : flushEncoding();
    }
    std::vector<uint8_t> ready;
    if (!mSegments->finish(&ready)) return WRITE_ERROR;
    if (!ready.empty()) {
        const int status = write(ready.data(), static_cast<uint32_t>(ready.size()));
        if (status != WRITE_OK) return status;
    }
    const std::vector<uint8_t> info = mSegments->infoFrame();
    if (info.empty()) return rewriteTag();
    const int status = writeAt(mInfoFrameOffset, info.data(), static_cast<uint32_t>(info.size()));
    if (status != WRITE_OK) WV_LOGE("mp3 info frame write error");
    return status != WRITE_OK ? status : rewriteTag();
}

int Mp3Encoder::encodeHere(const int16_t* pcm, int bytes) {
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
    if (mThreaded) return flushShared();
    mLastBytes = lame_encode_flush(mLame, mOutput, OUTPUT_BYTES);
    if (mLastBytes < 0 && mLastBytes != -1) {
        WV_LOGE("finishMp3encoding mp3 internal error:  error code=%i\n", mLastBytes);
        return WRITE_ERROR;
    }
    if (mLastBytes > 0) {
        const int status = write(mOutput, static_cast<uint32_t>(mLastBytes));
        if (status != WRITE_OK) {
            // The last frames are part of the file: without them it is not done.
            WV_LOGE("finishMp3encoding mp3 write file error");
            return status;
        }
    }
    const int info = writeInfoFrame();
    return info != WRITE_OK ? info : rewriteTag();
}

int Mp3Encoder::rewriteTag() {
    if (mTagBytes == 0 || mTags.chapters.empty() || !isSeekable() || mSampleRate == 0) return 0;
    const auto totalMs = static_cast<int64_t>(mEncodedFrames * 1000 / mSampleRate);
    const std::vector<uint8_t> tag = id3v2Tag(mTags, totalMs);
    if (tag.size() != mTagBytes) return WRITE_ERROR;
    return writeAt(0, tag.data(), static_cast<uint32_t>(tag.size()));
}

int Mp3Encoder::writeInfoFrame() {
    // LAME began the stream with an empty frame of the info frame's size;
    // now that the delay, padding and length are known, the real one takes
    // its place. Decoders use it to drop the encoder's delay and padding, so
    // the file decodes to exactly the frames encoded.
    unsigned char frame[kMaxInfoFrameBytes];
    const size_t bytes = lame_get_lametag_frame(mLame, frame, sizeof frame);
    if (bytes == 0) return 0;  // LAME wrote no room for one
    if (bytes > sizeof frame) return WRITE_ERROR;
    const int status = writeAt(mInfoFrameOffset, frame, static_cast<uint32_t>(bytes));
    if (status != WRITE_OK) WV_LOGE("mp3 info frame write error");
    return status;
}

}  // namespace wv
