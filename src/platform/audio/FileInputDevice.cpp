#define WV_LOG_TAG "AudioInput"
#include "platform/audio/FileInputDevice.h"

#include <algorithm>

#include <wavoryx/dsp.h>

#include "base/Log.h"
#include "platform/media/AudioTrackOpener.h"

namespace wv {
namespace {

// The started PCM source of the file's first audio track: the track itself
// when it is raw, else a decoder over it.
std::shared_ptr<MediaSource> openPcmTrack(const std::string& path) {
    const FirstAudioTrack found = findFirstAudioTrack(path.c_str());
    if (found.status != FirstAudioTrack::kFound) return nullptr;
    std::shared_ptr<MediaSource> source = pcmSourceOf(found.openTrack());
    if (!source || source->start() != OK) return nullptr;
    return source;
}

}  // namespace

FileInputDevice::FileInputDevice(std::string path, double pace, MonotonicClock& clock)
    : mPath(std::move(path)), mLoop(pace, clock) {}

FileInputDevice::~FileInputDevice() {
    stop();
    if (mMediaBuffer != nullptr) mMediaBuffer->release();
    if (mSource) mSource->stop();
}

int32_t FileInputDevice::open(uint32_t sampleRate, uint32_t channels, AudioInputClient* client) {
    if (sampleRate == 0 || channels == 0) return -22;
    mSource = openPcmTrack(mPath);
    std::shared_ptr<MetaData> format = mSource ? mSource->getFormat() : nullptr;
    if (!format || !format->findInt32(kKeySampleRate, &mSourceRate) ||
        !format->findInt32(kKeyChannelCount, &mSourceChannels) || mSourceRate <= 0 ||
        mSourceChannels <= 0) {
        WV_LOGE("no audio to record in %s", mPath.c_str());
        if (mSource) mSource->stop();
        mSource.reset();
        return kCannotOpen;
    }
    mSampleRate = sampleRate;
    mChannels = channels;
    mClient = client;
    mStereo.assign(kMaxPieceFrames * 2, 0);
    mBlock.assign(kMaxPieceFrames * channels, 0);
    if (uint32_t(mSourceRate) != sampleRate) {
        mLent.assign(kMaxPieceFrames * 2, 0);
        mResampler.reset(
            AudioResampler::create(16, 2, int32_t(sampleRate), AudioResampler::SRC_DEFAULT));
        mResampler->init();
        mResampler->setSampleRate(mSourceRate);
        mResampler->setVolume(1, 1);
    }
    return 0;
}

int32_t FileInputDevice::start() {
    if (!mSource) return -19;
    mLoop.startFrames(mSampleRate, kMaxPieceFrames,
                      [this](size_t frames) { mClient->onCaptured(produce(frames), frames); });
    return 0;
}

void FileInputDevice::stop() { mLoop.stop(); }

bool FileInputDevice::nextMediaBuffer() {
    if (mMediaBuffer != nullptr) mMediaBuffer->release();
    mMediaBuffer = nullptr;
    mMediaOffset = 0;
    for (;;) {
        const status_t status = mSource->read(&mMediaBuffer);
        if (status == OK && mMediaBuffer != nullptr) return true;
        if (status == INFO_FORMAT_CHANGED) {
            // The rate stays what the resampler was made for; the channel
            // count is followed.
            int32_t channels = 0;
            std::shared_ptr<MetaData> format = mSource->getFormat();
            if (format && format->findInt32(kKeyChannelCount, &channels) && channels > 0) {
                mSourceChannels = channels;
            }
            continue;
        }
        mMediaBuffer = nullptr;
        mEnded = true;
        return false;
    }
}

size_t FileInputDevice::readStereo(int16_t* out, size_t frames) {
    size_t done = 0;
    while (done < frames && !mEnded) {
        const size_t frameBytes = size_t(mSourceChannels) * 2;
        if (mMediaBuffer == nullptr || mMediaOffset + frameBytes > mMediaBuffer->range_length()) {
            if (!nextMediaBuffer()) break;
            continue;
        }
        const auto* in =
            reinterpret_cast<const int16_t*>(static_cast<const uint8_t*>(mMediaBuffer->data()) +
                                             mMediaBuffer->range_offset() + mMediaOffset);
        const size_t available = (mMediaBuffer->range_length() - mMediaOffset) / frameBytes;
        const size_t n = std::min(available, frames - done);
        for (size_t f = 0; f < n; ++f) {
            const int16_t left = in[f * size_t(mSourceChannels)];
            const int16_t right = mSourceChannels > 1 ? in[f * size_t(mSourceChannels) + 1] : left;
            out[2 * (done + f)] = left;
            out[2 * (done + f) + 1] = right;
        }
        done += n;
        mMediaOffset += n * frameBytes;
    }
    return done;
}

int32_t FileInputDevice::getNextBuffer(AudioBufferProvider::Buffer* buffer, int64_t) {
    const size_t want =
        std::min<size_t>(buffer->frameCount == 0 ? 1 : buffer->frameCount, kMaxPieceFrames);
    const size_t got = readStereo(mLent.data(), want);
    if (got == 0) {
        buffer->raw = nullptr;
        buffer->frameCount = 0;
        return 0;
    }
    buffer->raw = mLent.data();
    buffer->frameCount = uint32_t(got);
    return 0;
}

void FileInputDevice::releaseBuffer(AudioBufferProvider::Buffer* buffer) {
    buffer->raw = nullptr;
    buffer->frameCount = 0;
}

const int16_t* FileInputDevice::produce(size_t frames) {
    frames = std::min(frames, kMaxPieceFrames);
    std::fill_n(mStereo.begin(), frames * 2, int16_t(0));
    if (mResampler) {
        // The file may end while the resampler still holds frames it was
        // lent; they come out before the silence, however the pieces fall.
        mResampler->resample(mStereo.data(), frames, this);
    } else if (!mEnded) {
        readStereo(mStereo.data(), frames);
    }
    if (mChannels == 2) {
        std::copy_n(mStereo.begin(), frames * 2, mBlock.begin());
    } else if (mChannels == 1) {
        Stereo2Mono(mStereo.data(), unsigned(frames));
        std::copy_n(mStereo.begin(), frames, mBlock.begin());
    } else {
        for (size_t f = 0; f < frames; ++f) {
            for (uint32_t c = 0; c < mChannels; ++c)
                mBlock[f * mChannels + c] = mStereo[2 * f + c % 2];
        }
    }
    return mBlock.data();
}

}  // namespace wv
