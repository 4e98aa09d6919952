// Decoder source of a load job: opens one audio file through the media
// layer, picks its first audio track, reports the track's format and hands
// out the decoded audio one buffer at a time.
//
// Used by the decoder thread only: construct, load() once; when it returned
// 0 and isRaw is false, alternate getDataBuffer() (0) and freeBuffer() until
// getDataBuffer() returns 1; destroy (allowed at any point, e.g. on cancel).
//
// Buffers are the codec's own (no copy): interleaved signed 16-bit samples,
// 1 or 2 channels at the track's rate, valid until freeBuffer().
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "base/FrameTime.h"
#include "items/SPcmInfo.h"
#include "platform/media/AudioTrackOpener.h"
#include "platform/media/MediaBuffer.h"
#include "platform/media/MediaSource.h"
#include "platform/media/MetaData.h"

namespace wv {

class AudioDecoder {
public:
    // Makes the decoded source for a track; AudioCodec::Create by default.
    using CodecFactory = AudioDecoderFactory;

    // load() results.
    enum : int32_t { LOAD_OK = 0, LOAD_NOT_PARSABLE = -8, LOAD_NOT_OPENABLE = -9 };
    // How long the end of a stream waits for other holders of the codec to
    // let go before it gives up waiting, in milliseconds.
    static constexpr int kCodecReleaseWaitMs = 2000;

    AudioDecoder();
    explicit AudioDecoder(CodecFactory factory);
    ~AudioDecoder();
    AudioDecoder(const AudioDecoder&) = delete;
    AudioDecoder& operator=(const AudioDecoder&) = delete;

    // 0: the track's rate (Hz), format (always 1, 16-bit PCM), channel
    // count and, when the container states it, duration (us; otherwise
    // left as it was) are stored; isRaw tells a track read in place (its
    // MIME type contains "raw"), for which no codec is made. -9: the path
    // cannot be opened. -8: no parser accepts the file, it has no audio
    // track, the track states no usable rate or channel count, or its codec
    // cannot be made or started.
    int32_t load(const char* path, int* sampleRate, int* format, int* channelCount,
                 int64_t* durationUs, bool* isRaw);
    // Makes the next load() take only frames [startMs x rate / 1000,
    // endFrameAtMs(endMs, rate, exact stated length)) of the track (rate: the
    // track's; see base/FrameTime.h), cut at its end,
    // identical to those frames of a whole load; no WAV is read in place
    // then (isRaw stays false). Reaching the first frame does not decode
    // what lies before it (see FrameRangeCodec); buffers of length 0 come
    // while the file is passed over.
    void setRangeMs(uint32_t startMs, uint32_t endMs);
    // Makes the next load() read the stream `fd` (taken, closed with the
    // decoder) instead of opening `path`: read once, front to back, as the
    // decoding goes (see DataSource::CreateFromStream); a WAV on it is
    // decoded, not read in place. Not with setRangeMs.
    void setStream(int fd);

    // 0: *data and *length describe the next decoded buffer (length may be
    // 0). 1: the stream has ended (or failed); the codec is stopped and gone.
    int32_t getDataBuffer(char** data, unsigned int* length);
    // Gives back the buffer of the last getDataBuffer(); always 0.
    int32_t freeBuffer();
    // Damaged packets the codec skipped so far (see AudioCodec); kept after
    // the stream ended.
    DecodeDamage damage();
    // What the file states about the track, once load() returned 0.
    const SourceFacts& facts() const { return mFacts; }

private:
    void finishStream();
    void noteFacts(const MetaData& meta);
    // The kKeyChapters text as the item's chapters.
    void noteChapters(const char* text);

    MediaBuffer* mBuffer = nullptr;
    std::shared_ptr<MediaSource> mMediaSource;
    CodecFactory mCodecFactory;
    SourceFacts mFacts;
    DecodeDamage mDamage;
    bool mRanged = false;
    int mStreamFd = -1;
    // An MP3 stream's end padding: frames [mDropFrom, mDropTo) of the
    // decoded audio are dropped (none when mDropTo <= mDropFrom).
    static constexpr int64_t kMp3DecoderDelay = 529;
    void dropPadding(char** data, unsigned int* length);
    int64_t mDropFrom = 0;
    int64_t mDropTo = 0;
    int64_t mFrameBytes = 4;
    int64_t mDeliveredFrames = 0;
    std::vector<char> mSpliced;  // a buffer with its padding taken out
    uint32_t mStartMs = 0;
    uint32_t mEndMs = 0;
};

}  // namespace wv
