// The audio player's fill (on the output's thread) and its clock.
#define WV_LOG_TAG "AudioPlayer"
#include <algorithm>
#include <cstring>

#include "base/CheckSites.h"
#include "base/Log.h"
#include "platform/media/MetaData.h"
#include "play/AudioPlayer.h"

namespace wv {

// ---- clock -------------------------------------------------------------

void AudioPlayer::rebaseClockLocked(uint64_t presentedIndex) {
    mClockBaseFrame = presentedIndex;
    // Frames already handed but not yet presented play after the base.
    // After the end nothing more counts, so the position stays where the
    // audio ended.
    mFramesWritten = mEndReached ? 0 : int64_t(mHandedFrames - presentedIndex);
}

int64_t AudioPlayer::getRealTimeUsLocked() {
    if (!mStarted.load()) {
        WV_FATAL_AT(Check::kPlayerFillStarted, "CHECK(%s) failed.", "mStarted");
    }
    if (mSampleRate == 0) {
        WV_FATAL_AT(Check::kPlayerFillRate, "CHECK_NE( mSampleRate,0) failed: %d vs. %d",
                    mSampleRate, mSampleRate);
    }
    const uint64_t presented = mOutputTrack->framesPresented();
    const int64_t played = presented > mClockBaseFrame ? int64_t(presented - mClockBaseFrame) : 0;
    const int64_t frames = std::max<int64_t>(0, std::min(mFramesWritten, played));
    return frames * 1000000 / mSampleRate;
}

int64_t AudioPlayer::getMediaTimeUsLocked() {
    if (mPositionTimeMediaUs < 0 || mPositionTimeOutputUs < 0) return mSeekTargetUs;
    int64_t d = getRealTimeUsLocked() - mPositionTimeOutputUs;
    if (mReverse) d = -d;
    const int64_t t = mPositionTimeMediaUs + d;
    return t < 0 ? 0 : t;
}

int64_t AudioPlayer::getRealTimeUs() {
    std::lock_guard<std::mutex> guard(mLock);
    return getRealTimeUsLocked();
}

int64_t AudioPlayer::getMediaTimeUs() {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mStarted.load()) return mSeekTargetUs;
    return getMediaTimeUsLocked();
}

bool AudioPlayer::getMediaTimeMapping(int64_t* outputUs, int64_t* mediaUs) {
    std::lock_guard<std::mutex> guard(mLock);
    *outputUs = mPositionTimeOutputUs;
    *mediaUs = mPositionTimeMediaUs;
    return mPositionTimeOutputUs != -1 && mPositionTimeMediaUs != -1;
}

bool AudioPlayer::isSeeking() {
    std::lock_guard<std::mutex> guard(mLock);
    return mSeekPending;
}

bool AudioPlayer::reachedEOS(int32_t* status) {
    *status = 0;
    std::lock_guard<std::mutex> guard(mLock);
    *status = mEndStatus;
    return mEndReached;
}

int64_t AudioPlayer::outputTimeUsLocked(size_t doneBytes) const {
    return (mFramesWritten + int64_t(doneBytes / mFrameBytes)) * 1000000 / mSampleRate;
}

// ---- fill --------------------------------------------------------------

void AudioPlayer::AudioCallback(int event, void* player, void* info) {
    static_cast<AudioPlayer*>(player)->AudioCallback(event, info);
}

void AudioPlayer::AudioCallback(int event, void* info) {
    if (event != AudioOutput::EVENT_MORE_DATA) return;
    auto* buffer = static_cast<AudioOutput::Buffer*>(info);
    buffer->size = fillBuffer(buffer->raw, buffer->size);
}

void AudioPlayer::applySeekLocked(MediaSource::ReadOptions* options) {
    const int64_t targetMs = mSeekTargetUs / 1000;
    mUseReader =
        mReaderOnly || (readerCanServe() && int64_t(mReader->getAvailableTimeMs()) >= targetMs);
    if (mUseReader) mReader->seekMs(uint32_t(targetMs));
    options->setSeekTo(mSeekTargetUs, MediaSource::ReadOptions::SEEK_CLOSEST_SYNC);
    if (mInputBuffer != nullptr) {
        mInputBuffer->release();
        mInputBuffer = nullptr;
    }
    mSeekPending = false;
}

AudioPlayer::Step AudioPlayer::fillFromReader(uint8_t* data, size_t* done, size_t size) {
    const size_t remaining = size - *done;
    bool reverse;
    {
        std::lock_guard<std::mutex> guard(mLock);
        reverse = mReverse;
        mPositionTimeMediaUs = int64_t(mReader->getTimeMs()) * 1000;
        mPositionTimeOutputUs = outputTimeUsLocked(*done);
    }
    char* into = reinterpret_cast<char*>(data + *done);
    if (reverse) {
        const uint32_t before = mReader->position();
        const int32_t n = canPlayBackwards() ? mReader->reverseFill(into, uint32_t(remaining)) : 0;
        if (n < 0) return Step::END;
        // The frames read come first, reversed; silence follows them.
        const uint32_t moved = before - mReader->position();
        *done += size_t(moved) * mFrameBytes;
        if (mReader->position() == 0 && n > 0) return Step::END;
        return moved * mFrameBytes < remaining ? Step::WAIT : Step::MORE;
    }
    const int32_t n = mReader->read(into, uint32_t(remaining));
    if (n < 0) return Step::END;
    *done += size_t(n) * mFrameBytes;
    const int32_t state = mReader->endState();
    if (state == PcmInfoReader::END) return Step::END;
    if (state == PcmInfoReader::WAIT) {
        mStarvedFill = true;
        return Step::WAIT;
    }
    // A short read that made progress (a clip list between clips) is read
    // again at once; one that made none waits for the next fill.
    return n == 0 ? Step::WAIT : Step::MORE;
}

AudioPlayer::Step AudioPlayer::fillFromSource(uint8_t* data, size_t* done, size_t size,
                                              const MediaSource::ReadOptions& options) {
    if (mInputBuffer == nullptr) {
        status_t err = mSource->read(&mInputBuffer, &options);
        if (err == INFO_FORMAT_CHANGED && mInputBuffer == nullptr) return Step::MORE;
        if (!((err == OK && mInputBuffer != nullptr) || (err != OK && mInputBuffer == nullptr))) {
            WV_FATAL_AT(Check::kPlayerReadResult, "CHECK(%s) failed.",
                        "!((err == OK && mInputBuffer != __null) || "
                        "(err != OK && mInputBuffer == __null))");
        }
        // A decoder passing over the file before a seek's target hands out
        // empty buffers of no time: turns, not audio.
        int64_t timeUs = 0;
        if (err == OK && mInputBuffer->range_length() == 0 &&
            !mInputBuffer->meta_data()->findInt64(kKeyTime, &timeUs)) {
            mInputBuffer->release();
            mInputBuffer = nullptr;
            return Step::MORE;
        }
        std::lock_guard<std::mutex> guard(mLock);
        if (err != OK) {
            mEndStatus = err;
            return Step::END;
        }
        if (!mInputBuffer->meta_data()->findInt64(kKeyTime, &mPositionTimeMediaUs)) {
            WV_FATAL_AT(Check::kPlayerBufferTime, "CHECK(%s) failed.",
                        "!(mInputBuffer->meta_data()->findInt64( kKeyTime, "
                        "&mPositionTimeMediaUs))");
        }
        mPositionTimeOutputUs = outputTimeUsLocked(*done);
    }
    if (mInputBuffer->range_length() == 0) {
        mInputBuffer->release();
        mInputBuffer = nullptr;
        return Step::MORE;
    }
    // Whole frames only, so that the output never gets half of one.
    size_t copy = std::min(size - *done, mInputBuffer->range_length());
    copy -= copy % mFrameBytes;
    if (copy == 0) {
        mInputBuffer->release();
        mInputBuffer = nullptr;
        return Step::MORE;
    }
    const uint8_t* from =
        static_cast<const uint8_t*>(mInputBuffer->data()) + mInputBuffer->range_offset();
    std::memcpy(data + *done, from, copy);
    mInputBuffer->set_range(mInputBuffer->range_offset() + copy,
                            mInputBuffer->range_length() - copy);
    *done += copy;
    return Step::MORE;
}

size_t AudioPlayer::fillBuffer(void* data, size_t size) {
    uint8_t* bytes = static_cast<uint8_t*>(data);
    size -= size % mFrameBytes;
    {
        std::lock_guard<std::mutex> guard(mLock);
        // Past the end there is nothing to hand: the device plays silence
        // on an empty queue by itself, and silence handed here would be
        // taken for audio by whatever records the output (a "file:" WAV
        // kept growing until the engine stopped the output).
        if (mEndReached) return 0;
    }
    size_t done = 0;
    bool ended = false;
    bool waiting = false;
    mStarvedFill = false;
    while (done < size && !ended && !waiting) {
        MediaSource::ReadOptions options;
        bool reverse;
        {
            std::lock_guard<std::mutex> guard(mLock);
            reverse = mReverse;
        }
        if (!mUseReader && reverse && mReader) {
            // Backwards play always reads the PCM data, from where the
            // output is now.
            mReader->seekMs(uint32_t(getMediaTimeUs() / 1000));
            mUseReader = true;
        }
        int64_t reopenUs = -1;
        {
            std::lock_guard<std::mutex> guard(mLock);
            if (mSeekPending && mDirect) {
                reopenUs = mSeekTargetUs;
                mSeekPending = false;
                if (mInputBuffer != nullptr) {
                    mInputBuffer->release();
                    mInputBuffer = nullptr;
                }
            } else if (mSeekPending) {
                applySeekLocked(&options);
            }
        }
        if (reopenUs >= 0 && !reopenSourceAt(reopenUs)) {
            std::lock_guard<std::mutex> guard(mLock);
            mEndStatus = UNKNOWN_ERROR;
            ended = true;
            break;
        }
        const Step step = mUseReader ? fillFromReader(bytes, &done, size)
                                     : fillFromSource(bytes, &done, size, options);
        ended = step == Step::END;
        waiting = step == Step::WAIT;
    }
    bool postEnd = false;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (ended && !mSeekPending) {
            mEndReached = true;
            postEnd = true;
        }
        if (waiting && !mStarvedFill) {
            // What is missing plays as silence; the input is asked again at
            // the next fill.
            std::memset(bytes + done, 0, size - done);
            done = size;
        }
        // Caught up with the load: only the frames there are go out, so the
        // position holds and the device plays silence of its own until the
        // next fill finds more.
        mFramesWritten += int64_t(done / mFrameBytes);
        mHandedFrames += done / mFrameBytes;
    }
    noteHolding(done > 0, mStarvedFill && !ended);
    if (postEnd && mEvents != nullptr) {
        const pcm_id_t id = mItem != nullptr ? mItem->id : 0;
        mEvents->notifyClient(WVThreadCmd(EVT_PLAY_END, id, -1), kEndEventDelayMs);
    }
    return done;
}

void AudioPlayer::noteHolding(bool handedFrames, bool starved) {
    // Only a reader catches up with a load.
    if (!mReader) return;
    const pcm_id_t id = mItem != nullptr ? mItem->id : 0;
    if (mHolding && handedFrames) {
        mHolding = false;
        if (mEvents != nullptr) {
            mEvents->notifyClient(
                WVThreadCmd(EVT_PLAY_RESUMED, id, int32_t(mReader->getTimeMs())), 0);
        }
    }
    if (!mHolding && starved) {
        mHolding = true;
        WV_LOGW("pcm play need more data!");
        if (mEvents != nullptr) {
            mEvents->notifyClient(
                WVThreadCmd(EVT_PLAY_WAITING, id, int32_t(mReader->getTimeMs())), 0);
        }
    }
}

}  // namespace wv
