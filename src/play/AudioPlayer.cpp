// Set-up and control of the audio player; the fill and the clock are in
// AudioPlayerFill.cpp.
#define WV_LOG_TAG "AudioPlayer"
#include "play/AudioPlayer.h"

#include <strings.h>

#include <algorithm>
#include <limits>

#include "base/CheckSites.h"
#include "base/Clock.h"
#include "base/FrameTime.h"
#include "base/Log.h"
#include "platform/media/AudioTrackOpener.h"
#include "platform/media/DataSource.h"
#include "platform/media/MetaData.h"

namespace wv {
namespace {

// Invariants of the media layer's contract and of the calling order.
// `text` is the condition as its message has always read.
#define PLAYER_CHECK(site, cond, text)                             \
    do {                                                           \
        if (!(cond)) WV_FATAL_AT(site, "CHECK(%s) failed.", text); \
    } while (0)

// How long the release waits for other holders of the decoder, at most.
constexpr int kDecoderReleaseWaitMs = 2000;

std::unique_ptr<AudioOutput> openSelectedOutput(uint32_t rate, uint32_t mask,
                                                AudioOutput::callback_t callback, void* user) {
    return std::unique_ptr<AudioOutput>(
        new AudioOutput(rate, AudioOutput::AUDIO_FORMAT_PCM_16_BIT, mask, 0, callback, user, 0));
}

}  // namespace

AudioPlayer::AudioPlayer(EventSink* events) : mEvents(events), mOutputFactory(&openSelectedOutput) {
    DataSource::RegisterDefaultSniffers();
}

AudioPlayer::~AudioPlayer() {
    if (mStarted.load()) reset();
    // A source that never got an output (start failed or never ran) is
    // still started: stop it before it goes.
    if (mInputBuffer != nullptr) {
        mInputBuffer->release();
        mInputBuffer = nullptr;
    }
    if (mSource) mSource->stop();
}

void AudioPlayer::setReader(SPcmInfo* item, std::unique_ptr<PcmInfoReader> reader) {
    mItem = item;
    mReader = std::move(reader);
}

void AudioPlayer::modifyFlags(uint32_t value, FlagMode mode) {
    switch (mode) {
        case SET:
            mFlags.fetch_or(value);
            break;
        case CLEAR:
            mFlags.fetch_and(~value);
            break;
        case ASSIGN:
            mFlags.store(value);
            break;
        default:
            WV_FATAL_AT(Check::kPlayerFlagMode, "Should not be here.");
    }
}

int32_t AudioPlayer::setDataSource(const char* path) {
    if (mFlags.load() != 0) return -1;
    mPath = path != nullptr ? path : "";
    const FirstAudioTrack found = findFirstAudioTrack(mPath.c_str());
    if (found.status == FirstAudioTrack::kNotOpenable) {
        WV_LOGE("could not create datasource for %s", mPath.c_str());
        return -1;
    }
    if (found.status == FirstAudioTrack::kNoParser) {
        WV_LOGE("could not create extractor for %s", mPath.c_str());
        return -1;
    }
    PLAYER_CHECK(Check::kPlayerSourceMime, !found.sawTrackWithoutMime,
                 "!(meta->findCString(kKeyMIMEType, &_mime))");
    if (found.status == FirstAudioTrack::kFound) mExtractorTrack = found.openTrack();
    if (!mExtractorTrack) {
        WV_LOGE("could not find audio track for %s", mPath.c_str());
        return -1;
    }
    if (initAudioDecoder() != 0) {
        WV_LOGE("init decoder error for %s", mPath.c_str());
        return -1;
    }
    modifyFlags(PAUSED, ASSIGN);
    PLAYER_CHECK(Check::kPlayerSourceMade, mSource != nullptr, "!(mSource != __null)");
    return 0;
}

int32_t AudioPlayer::initAudioDecoder() {
    std::shared_ptr<MetaData> meta = mExtractorTrack->getFormat();
    const char* mime = nullptr;
    PLAYER_CHECK(Check::kPlayerDecoderMime, meta && meta->findCString(kKeyMIMEType, &mime),
                 "!(meta->findCString(kKeyMIMEType, &mime))");
    mSource = pcmSourceOf(mExtractorTrack);
    if (!mSource) {
        WV_LOGE("%s", isRawAudioMime(mime) ? "could not create raw source"
                                           : "could not create the decoded source");
    }
    if (mSource) {
        const status_t err = mSource->start();
        if (err != OK) {
            WV_LOGE("source start error");
            mSource.reset();
            return err;
        }
    }
    return mSource ? 0 : UNKNOWN_ERROR;
}

bool AudioPlayer::reopenSourceAt(int64_t timeUs) {
    // Opened again rather than seeked: a seek of the codec lands on a
    // packet's start, and only a decode from the start of the file knows
    // which frame that is (see FrameRangeCodec).
    const FirstAudioTrack found = findFirstAudioTrack(mPath.c_str());
    const int64_t first = frameAtMs(uint32_t(std::min<int64_t>(timeUs / 1000, UINT32_MAX)), mSampleRate);
    std::shared_ptr<MediaSource> source =
        pcmRangeSourceOf(found, first, std::numeric_limits<int64_t>::max());
    if (!source || source->start() != OK) {
        WV_LOGE("could not decode %s from %lld us", mPath.c_str(), static_cast<long long>(timeUs));
        return false;
    }
    if (mSource) mSource->stop();
    mSource = std::move(source);
    return true;
}

bool AudioPlayer::readerCanServe() const {
    if (!mReader || !mItem) return false;
    const int32_t status = mItem->status.load();
    return status == DECODING || status == PCM_READY || status == CLIP_LIST;
}

bool AudioPlayer::formatsAgree(int32_t rate, int32_t channels) const {
    if (!mItem) return true;
    const int32_t itemRate = mItem->sampleRate.load();
    const int32_t itemChannels = mItem->channelCount.load();
    // An item whose format is not known yet cannot disagree.
    if (itemRate == 0 || itemChannels == 0) return true;
    return itemRate == rate && itemChannels == channels;
}

bool AudioPlayer::canPlayBackwards() const {
    if (!mItem || !mReader) return false;
    const int32_t status = mItem->status.load();
    if (status != DECODING && status != PCM_READY && status != CLIP_LIST) return false;
    return mItem->sampleRate.load() == mSampleRate &&
           mItem->channelCount.load() * 2 == int32_t(mFrameBytes);
}

int32_t AudioPlayer::start(bool sourceStarted) {
    const uint32_t flags = mFlags.load();
    if (flags & PLAYING) return 0;
    if (!(flags & PAUSED)) {
        WV_LOGE("%s, no media source when start()", "start");
        return -1;
    }
    PLAYER_CHECK(Check::kPlayerStartNotStarted, !mStarted.load(), "!(!mStarted)");
    PLAYER_CHECK(Check::kPlayerStartHasSource, mSource != nullptr, "!(mSource != __null)");
    if (!sourceStarted) {
        const status_t err = mSource->start();
        if (err != OK) return err;
    }
    std::shared_ptr<MetaData> format = mSource->getFormat();
    const char* mime = nullptr;
    PLAYER_CHECK(Check::kPlayerStartMime, format && format->findCString(kKeyMIMEType, &mime),
                 "!(success)");
    PLAYER_CHECK(Check::kPlayerStartRawFormat, strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_RAW) == 0,
                 "!(!strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_RAW))");
    int32_t rate = 0, channels = 0, mask = 0;
    PLAYER_CHECK(Check::kPlayerStartRate, format->findInt32(kKeySampleRate, &rate), "!(success)");
    PLAYER_CHECK(Check::kPlayerStartChannels, format->findInt32(kKeyChannelCount, &channels),
                 "!(success)");

    // PCM data and media file should describe the same audio; when they do
    // not, the PCM data wins, since it is what seeks and backwards play use.
    // An item without PCM data (a recording, whose MP3 the encoder may have
    // resampled to suit a low bit rate) has only its file to play.
    mDirect = !mReader;
    mReaderOnly = readerCanServe() && !formatsAgree(rate, channels);
    if (mReaderOnly) {
        WV_LOGW("%s: file is %d Hz x %d, PCM data %d Hz x %d; playing the PCM data only",
                mPath.c_str(), rate, channels, mItem->sampleRate.load(),
                mItem->channelCount.load());
        rate = mItem->sampleRate.load();
        channels = mItem->channelCount.load();
    } else if (!format->findInt32(kKeyChannelMask, &mask)) {
        if (channels > 2) {
            WV_LOGI("source format didn't specify channel mask, using (%d) channel order",
                    channels);
        }
        mask = 0;
    }
    if (mask == 0) mask = channelMaskForCount(channels);
    if (mask == 0) {
        if (!sourceStarted) mSource->stop();
        return AudioOutput::BAD_VALUE;
    }
    mUseReader = mReaderOnly || (readerCanServe() && mReader->getAvailableTimeMs() != 0);
    if (mReader) mReader->setOutputFormat(rate, channels);

    std::unique_ptr<AudioOutput> track =
        mOutputFactory(uint32_t(rate), uint32_t(mask), &AudioPlayer::AudioCallback, this);
    const int32_t err = track ? track->initCheck() : AudioOutput::NO_INIT;
    if (err != 0) {
        track.reset();
        if (!sourceStarted) mSource->stop();
        return err;
    }
    mSampleRate = rate;
    mFrameBytes = uint32_t(track->frameSize());
    {
        std::lock_guard<std::mutex> guard(mLock);
        mSeekTargetUs = 0;
    }
    mOutputTrack = std::move(track);
    mStarted.store(true);
    modifyFlags(PAUSED, ASSIGN);
    return 0;
}

int32_t AudioPlayer::pause(bool drain) {
    const uint32_t flags = mFlags.load();
    if (flags & PAUSED) return 0;
    if (!(flags & PLAYING)) {
        WV_LOGE("pause() while not playing!");
        return -1;
    }
    PLAYER_CHECK(Check::kPlayerPauseStarted, mStarted.load(), "!(mStarted)");
    // Either way the output stops taking frames (at once, or after what it
    // holds), and the position, which follows the frames it takes, stops too.
    if (drain) {
        mOutputTrack->stop();
    } else {
        mOutputTrack->pause();
    }
    modifyFlags(PAUSED, ASSIGN);
    return 0;
}

int32_t AudioPlayer::resume() {
    const uint32_t flags = mFlags.load();
    if (flags & PLAYING) return 0;
    if (!(flags & PAUSED)) return -1;
    PLAYER_CHECK(Check::kPlayerResumeStarted, mStarted.load(), "!(mStarted)");
    mOutputTrack->start();
    modifyFlags(PLAYING, ASSIGN);
    return 0;
}

int32_t AudioPlayer::seekTo(int64_t timeUs) {
    std::lock_guard<std::mutex> guard(mLock);
    mSeekPending = true;
    mPositionTimeMediaUs = mPositionTimeOutputUs = -1;
    mSeekTargetUs = timeUs;
    mEndReached = false;
    if (mOutputTrack) {
        mOutputTrack->flush();
        rebaseClockLocked(mOutputTrack->framesPresented());
    }
    return 0;
}

int32_t AudioPlayer::setPlaybackRatePermille(int32_t ratePermille) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        // The position where the output is now, in the old direction: the
        // frames it still holds play on, then the new direction takes over.
        const int64_t media = mOutputTrack ? getMediaTimeUsLocked() : mSeekTargetUs;
        if (ratePermille > 0) {
            mReverse = false;
            mRateFactor = ratePermille;
        } else {
            mReverse = true;
            mRateFactor = -ratePermille;
        }
        if (mOutputTrack) {
            rebaseClockLocked(mOutputTrack->framesPresented());
            mPositionTimeOutputUs = 0;
            mPositionTimeMediaUs = media;
        }
    }
    if (!mOutputTrack) return AudioOutput::NO_INIT;
    return mOutputTrack->setSampleRate(int32_t(int64_t(mSampleRate) * mRateFactor / 1000));
}

void AudioPlayer::reset() {
    PLAYER_CHECK(Check::kPlayerResetStarted, mStarted.load(), "!(mStarted)");
    // A fill in progress reads mOutputTrack: the output's thread is joined
    // while the pointer still holds, and no fill runs after this.
    mOutputTrack->stop();
    mOutputTrack->close();
    mOutputTrack.reset();
    if (mInputBuffer != nullptr) {
        mInputBuffer->release();
        mInputBuffer = nullptr;
    }
    if (mSource) mSource->stop();
    std::weak_ptr<MediaSource> weak = mSource;
    mSource.reset();
    mExtractorTrack.reset();
    // The decoder is gone only when its last holder lets go; wait for that
    // so that no two decoders of this player live at once.
    for (int waitedMs = 0; !weak.expired() && waitedMs < kDecoderReleaseWaitMs; ++waitedMs) {
        sleepUs(1000);
    }
    std::lock_guard<std::mutex> guard(mLock);
    mFramesWritten = 0;
    mHandedFrames = mClockBaseFrame = 0;
    mPositionTimeMediaUs = mPositionTimeOutputUs = -1;
    mSeekPending = mEndReached = false;
    mEndStatus = 0;
    mStarted.store(false);
    mFlags.store(0);
}

}  // namespace wv
