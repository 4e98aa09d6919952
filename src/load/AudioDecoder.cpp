#define WV_LOG_TAG "AudioDecoder"
#include "load/AudioDecoder.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <sstream>

#include "base/CheckSites.h"
#include "base/Clock.h"
#include "base/Log.h"
#include "platform/media/AudioCodec.h"
#include "platform/media/AudioTrackOpener.h"
#include "platform/media/DataSource.h"
#include "platform/media/Mp3InfoFrame.h"

namespace wv {

AudioDecoder::AudioDecoder() : AudioDecoder(&AudioCodec::Create) {}

AudioDecoder::AudioDecoder(CodecFactory factory) : mCodecFactory(std::move(factory)) {}

AudioDecoder::~AudioDecoder() {
    if (mStreamFd >= 0) ::close(mStreamFd);
    freeBuffer();
    if (mMediaSource) {
        WV_CHECK_EQ_AT(Check::kDecoderStopOnRelease, "(status_t)OK,mMediaSource->stop()",
                       (status_t)OK, mMediaSource->stop());
        mMediaSource.reset();
    }
}

int32_t AudioDecoder::load(const char* path, int* sampleRate, int* format, int* channelCount,
                           int64_t* durationUs, bool* isRaw) {
    const int streamFd = mStreamFd;
    mStreamFd = -1;
    const std::shared_ptr<DataSource> stream = streamFd >= 0 ? DataSource::CreateFromStream(streamFd) : nullptr;
    const FirstAudioTrack found = stream ? findFirstAudioTrack(stream) : findFirstAudioTrack(path);
    switch (found.status) {
        case FirstAudioTrack::kFound:
            break;
        case FirstAudioTrack::kNotOpenable:
            WV_LOGE("file %s not exist", path);
            return LOAD_NOT_OPENABLE;
        case FirstAudioTrack::kNoParser:
            WV_LOGE("could not create extractor.");
            return LOAD_NOT_PARSABLE;
        case FirstAudioTrack::kNoAudioTrack:
            WV_LOGE("No suitable audio track found.");
            return LOAD_NOT_PARSABLE;
    }
    const std::shared_ptr<MetaData>& meta = found.meta;
    const char* const mime = found.mime;
    *format = 1;  // 16-bit signed PCM
    int32_t rate = 0, channels = 0;
    // A file may state no rate or channel count; that fails the load rather
    // than the process.
    if (!meta->findInt32(kKeySampleRate, &rate) || rate <= 0) {
        WV_LOGE("audio track of %s states no sample rate", path);
        return LOAD_NOT_PARSABLE;
    }
    if (!meta->findInt32(kKeyChannelCount, &channels) || channels <= 0) {
        WV_LOGE("audio track of %s states no channel count", path);
        return LOAD_NOT_PARSABLE;
    }
    *sampleRate = rate;
    *channelCount = channels;
    int64_t duration = 0;
    if (meta->findInt64(kKeyDuration, &duration)) *durationUs = duration;
    noteFacts(*meta);
    // The parser drops an MP3's end padding only where it can seek to the
    // end; on a stream the same frames are dropped here: from the stated
    // length to where the tagged frames' audio ends (the decoder's own
    // delay, 529 frames, after the encoder's), so that what follows them
    // (another MP3 sent after it) stays.
    Mp3InfoTag tag;
    if (stream && mFacts.framesExact && mFacts.container == "mp3" && mp3InfoTag(*stream, &tag) &&
        tag.length == mFacts.frames) {
        mDropFrom = tag.length;
        mDropTo = tag.coded - tag.delay - kMp3DecoderDelay;
        mFrameBytes = 2 * static_cast<int64_t>(channels);
    }

    // A part of a file is decoded even from a WAV: its frames go to a file
    // of their own.
    if (!mRanged && streamFd < 0 && std::strstr(mime, "raw") != nullptr) {
        WV_LOGD("Raw sound file found.");
        *isRaw = true;
        return LOAD_OK;
    }
    *isRaw = false;
    meta->dumpToLog();
    const int64_t exact = mFacts.framesExact ? mFacts.frames : -1;
    mMediaSource = mRanged ? pcmRangeSourceOf(found, frameAtMs(mStartMs, rate),
                                              endFrameAtMs(mEndMs, rate, exact))
                           : pcmSourceOf(found.openTrack(), mCodecFactory);
    if (!mMediaSource) {
        WV_LOGE("could not create a decoder for %s (%s)", path, mime);
        return LOAD_NOT_PARSABLE;
    }
    WV_CHECK_EQ_AT(Check::kDecoderStart, "(status_t)OK,mMediaSource->start()", (status_t)OK,
                   mMediaSource->start());
    return LOAD_OK;
}

void AudioDecoder::noteFacts(const MetaData& meta) {
    const char* text = nullptr;
    mFacts = SourceFacts();
    if (meta.findCString(kKeyContainerName, &text)) mFacts.container = text;
    if (meta.findCString(kKeyCodecName, &text)) mFacts.codec = text;
    if (meta.findCString(kKeyChannelLayout, &text)) mFacts.layout = text;
    meta.findInt32(kKeySampleRate, &mFacts.sampleRate);
    if (!meta.findInt32(kKeySourceChannelCount, &mFacts.channels)) {
        meta.findInt32(kKeyChannelCount, &mFacts.channels);
    }
    meta.findInt32(kKeyBitsPerSample, &mFacts.bitsPerSample);
    meta.findInt32(kKeyBitRate, &mFacts.bitRate);
    meta.findInt64(kKeyDuration, &mFacts.durationUs);
    if (meta.findInt64(kKeyFrameCount, &mFacts.frames)) {
        mFacts.framesExact = true;
    } else if (mFacts.durationUs >= 0 && mFacts.sampleRate > 0) {
        mFacts.frames = mFacts.durationUs * mFacts.sampleRate / 1000000;
    }
    for (const TagKey& tag : kTagKeys) {
        if (meta.findCString(tag.key, &text)) mFacts.tags.emplace_back(tag.name, text);
    }
    if (meta.findCString(kKeyChapters, &text) && mFacts.sampleRate > 0) noteChapters(text);
}

void AudioDecoder::noteChapters(const char* text) {
    const int64_t rate = mFacts.sampleRate;
    const int64_t skipped = mRanged ? static_cast<int64_t>(frameAtMs(mStartMs, mFacts.sampleRate)) : 0;
    const int64_t partEnd =
        mRanged ? static_cast<int64_t>(frameAtMs(mEndMs, mFacts.sampleRate)) - skipped : INT64_MAX;
    // Rounded to the nearest frame: a container that counts in ms states
    // a frame's start to within half a frame.
    const auto frameOf = [rate](int64_t us) { return (us * rate + 500000) / 1000000; };
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream fields(line);
        long long startUs = 0, endUs = 0;
        if (!(fields >> startUs >> endUs)) continue;
        SourceChapter chapter;
        chapter.startFrame = std::max<int64_t>(0, frameOf(startUs) - skipped);
        chapter.endFrame = std::min(frameOf(endUs) - skipped, partEnd);
        if (chapter.endFrame <= chapter.startFrame) continue;
        std::getline(fields >> std::ws, chapter.title);
        mFacts.chapters.push_back(std::move(chapter));
    }
}

void AudioDecoder::setStream(int fd) {
    if (mStreamFd >= 0) ::close(mStreamFd);
    mStreamFd = fd;
}

void AudioDecoder::setRangeMs(uint32_t startMs, uint32_t endMs) {
    mRanged = true;
    mStartMs = startMs;
    mEndMs = endMs;
}

int32_t AudioDecoder::getDataBuffer(char** data, unsigned int* length) {
    if (!mMediaSource) return 1;
    status_t status = mMediaSource->read(&mBuffer);
    if (status == INFO_FORMAT_CHANGED) status = mMediaSource->read(&mBuffer);
    if (status == OK && mBuffer != nullptr) {
        *data = static_cast<char*>(mBuffer->data()) + mBuffer->range_offset();
        *length = static_cast<unsigned int>(mBuffer->range_length());
        if (mDropTo > mDropFrom) dropPadding(data, length);
        return 0;
    }
    if (mBuffer != nullptr) freeBuffer();
    mDamage = mMediaSource->damage();
    finishStream();
    return 1;
}

void AudioDecoder::dropPadding(char** data, unsigned int* length) {
    const int64_t frames = int64_t(*length) / mFrameBytes;
    const int64_t start = mDeliveredFrames;
    mDeliveredFrames += frames;
    const int64_t from = std::max(start, mDropFrom);
    const int64_t to = std::min(start + frames, mDropTo);
    if (from >= to) return;
    const char* in = *data;
    mSpliced.assign(in, in + (from - start) * mFrameBytes);
    mSpliced.insert(mSpliced.end(), in + (to - start) * mFrameBytes, in + frames * mFrameBytes);
    *data = mSpliced.data();
    *length = static_cast<unsigned int>(mSpliced.size());
}

DecodeDamage AudioDecoder::damage() {
    if (mMediaSource) mDamage = mMediaSource->damage();
    return mDamage;
}

void AudioDecoder::finishStream() {
    WV_CHECK_EQ_AT(Check::kDecoderStopOnEnd, "(status_t)OK,mMediaSource->stop()", (status_t)OK,
                   mMediaSource->stop());
    std::weak_ptr<MediaSource> weak = mMediaSource;
    mMediaSource.reset();
    // The codec's resources are gone only when its last holder lets go.
    int waitedMs = 0;
    while (!weak.expired()) {
        if (waitedMs >= kCodecReleaseWaitMs) {
            WV_LOGW("codec still held after %d ms; going on", waitedMs);
            break;
        }
        sleepUs(1000);
        ++waitedMs;
    }
}

int32_t AudioDecoder::freeBuffer() {
    if (mBuffer != nullptr) {
        mBuffer->release();
        mBuffer = nullptr;
    }
    return 0;
}

}  // namespace wv
