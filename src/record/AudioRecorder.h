// AudioRecorder: the capture source of a recording. It turns the push-style
// audio input (an AudioInput calling back on its own thread) into a
// pull-style media source: every captured block is copied into a media
// buffer, time-stamped and queued; the recorder thread takes them one at a
// time with read().
//
// Numbers
// - Blocks are at most 2048 bytes (kMaxBlockBytes): the input is opened with
//   notificationFrames = 1024 / channels and a ring of a whole number of
//   such blocks, at least two and not below the input's minimum. The same
//   bound cuts the silent fillers for lost frames, and is published as
//   'inpS' by getFormat().
// - Time stamps are microseconds. The first buffer's 'time' is the anchor
//   startTimeUs: the input's latency when start() was given no time, else
//   the delay from the requested start time to the first block. Every later
//   buffer's time is the previous one plus its duration, rounded to the
//   nearest microsecond, so the time line has no gaps: frames the input
//   reports lost are replaced by the same number of silent frames, each
//   such filler carrying its frame count as kKeyFilledFrames.
// - On the way out read() mutes every buffer that begins within the first
//   10 ms (muteLeadUs) and ramps the following 300 ms up from silence. The
//   ramp gain is position / rampFrames in 14 fraction bits, renewed every 4
//   frames, and scales every channel of a frame; its position is the end of
//   the buffer being read (the frames read so far, that buffer included)
//   less the muted lead, whatever the input queued meanwhile, so the same
//   input gives the same frames however far the reader lags behind.
// - Blocks arriving before a requested start time are dropped whole.
//
// Ownership: queued buffers belong to the source. A buffer handed out by
// read() belongs to the caller until its release(); reset() waits for all of
// them, so the caller must release its buffer before it stops the source.
//
// Threads: the input's callback thread fills the queue; one consumer thread
// calls start(), read(), reset(). Every operation holds `mLock` for its
// whole length, except while read() and reset() wait.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>

#include "platform/audio/AudioInput.h"
#include "platform/media/MediaBuffer.h"
#include "platform/media/MediaSource.h"
#include "platform/media/MetaData.h"

namespace wv {

// Buffer keys written by the capture source (int64 microseconds).
enum : uint32_t {
    kKeyAnchorTime = fourcc('a', 'n', 'c', 'T'),    // startTimeUs, first buffer only
    kKeyDriftTime = fourcc('d', 'f', 't', 'T'),     // callback clock minus the first callback's
    kKeyMaxInputSize = fourcc('i', 'n', 'p', 'S'),  // int32, format only
    kKeyFilledFrames = fourcc('f', 'i', 'l', 'F'),  // int32, silence for lost frames
};

class AudioRecorder : public MediaSource, private MediaBufferObserver {
public:
    static constexpr size_t kMaxBlockBytes = 2048;
    static constexpr int64_t kMuteLeadUs = 10000;
    static constexpr int64_t kRampDurationUs = 300000;
    static constexpr int kRampFractionBits = 14;
    // start() while started, stop() while stopped.
    static constexpr status_t INVALID_STATE = static_cast<status_t>(0x80000000);
    // read() found no data for kReadTimeoutUs: the input has gone quiet.
    static constexpr status_t TIMED_OUT = -110;
    static constexpr int64_t kReadTimeoutUs = 1000000;

    // Opens the selected audio input (wavoryx_set_audio_input). Channel
    // counts other than 1, 2 and 6 are refused: initCheck() is then
    // AudioInput::BAD_VALUE and nothing is opened.
    AudioRecorder(int32_t inputSource, uint32_t sampleRate, uint32_t channelCount);
    // The same over a given input device, which the recorder then owns.
    AudioRecorder(std::unique_ptr<AudioInputDevice> device, uint32_t sampleRate,
                  uint32_t channelCount);
    ~AudioRecorder() override;
    AudioRecorder(const AudioRecorder&) = delete;
    AudioRecorder& operator=(const AudioRecorder&) = delete;

    // 0 when usable, else the input's status.
    status_t initCheck() const { return mInitStatus; }

    // Starts capture. `params` may hold kKeyTime, the requested start time
    // on the monotonic clock in microseconds. 0, the input's error (the
    // input is then dropped), INVALID_STATE, or NO_INIT.
    status_t start(MetaData* params = nullptr) override;
    // Same as reset().
    status_t stop() override { return reset(); }
    // Stops capture, waits for every buffer handed out to come back and
    // drops the queued ones. 0, INVALID_STATE when not started, or NO_INIT.
    status_t reset();
    // "audio/raw", rate, channels, 'inpS' 2048; null when not usable.
    std::shared_ptr<MetaData> getFormat() override;
    // Waits for a buffer. 0 with *out set; 0 with *out null once stopped;
    // TIMED_OUT with *out null when no block came for a second; NO_INIT.
    // `options` is ignored.
    status_t read(MediaBuffer** out, const ReadOptions* options = nullptr) override;

    // The largest absolute sample value read since the last call; the first
    // call switches the tracking on.
    int16_t getMaxAmplitude();

    uint32_t channelCount() const { return mChannels; }

private:
    static void inputCallback(int event, void* user, void* info);
    void open(std::unique_ptr<AudioInputDevice> device, int32_t inputSource, uint32_t channelCount);
    void dataCallback(const AudioInput::Buffer& block);
    void queueInputBuffer_l(MediaBuffer* buffer, int64_t timeUs);
    void releaseQueuedFrames_l();
    void waitOutstandingEncodingFrames_l(std::unique_lock<std::mutex>& lock);
    void rampVolume(int32_t startFrame, int32_t rampDurationFrames, uint8_t* data, size_t bytes);
    void trackMaxAmplitude(const int16_t* data, size_t nSamples);
    void signalBufferReturned(MediaBuffer* buffer) override;

    std::mutex mLock;
    std::condition_variable mDataReady;
    std::condition_variable mBufferReturned;
    std::unique_ptr<AudioInput> mAudioRecord;
    status_t mInitStatus = 0;
    bool mStarted = false;
    const uint32_t mSampleRate;
    uint32_t mChannels = 0;
    size_t mFrameSize = 0;
    bool mAmplitudeTracking = false;
    int64_t mStartTimeUs = 0;
    int16_t mPeakAmplitude = 0;
    int64_t mNextSampleTimeUs = 0;
    int64_t mFirstCallbackTimeUs = 0;
    int64_t mFramesQueued = 0;
    int64_t mFramesRead = 0;  // frames of the buffers handed out by read()
    int64_t mBuffersOut = 0;
    const int64_t mMuteLeadUs = kMuteLeadUs;
    std::list<MediaBuffer*> mQueue;
    std::shared_ptr<MediaBufferGroup> mBuffers;  // reused blocks, no allocation once warm
};

}  // namespace wv
