// An audio output in callback mode: the stand-in for the platform's output
// track that the player drives.
//
// The output owns a queue of frames (frameCount() frames, at the rate it was
// opened with) and a thread of its own, the output's thread. While the
// output is started and the queue has room for notificationFrames() frames,
// that thread calls the client's callback with EVENT_MORE_DATA and a Buffer
// asking for that many frames; the callback writes up to `size` bytes at
// `raw` and sets `size` to the bytes it wrote (whole frames count; 0 means
// "nothing now" and the thread asks again about 2 ms later). The device
// (see AudioOutputDevice.h) takes frames from the queue at the output's
// current rate.
//
// Samples are 16-bit, interleaved, 1 to 8 channels (the channel mask's set
// bits; the "device" kind plays 1 or 2). States:
//   start()  plays (resumes after pause, restarts after stop)
//   pause()  stops taking frames at once; the queue is kept
//   stop()   no more callbacks; the queued frames play out, then stopped()
//            turns true (a paused output stops at once and drops its queue)
//   flush()  drops every queued frame, in any state
//   setSampleRate(hz) plays the same frames at hz; 1 Hz to 4 x the opened
//            rate (a fixed-rate device: below 4 x its own rate), anything
//            else is refused with BAD_VALUE (-22)
// Statuses: 0, BAD_VALUE (-22) for a format, mask or rate it cannot play,
// NO_INIT (-19) when no device could be opened.
//
// Thread safety: the control operations may be called from any thread; the
// callback runs on the output's thread only, never with the output's lock
// held, so it may call the control operations. Destruction stops the
// output's thread and closes the device (a "file:" WAV is finished then).
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/audio/AudioOutputDevice.h"
#include "platform/audio/FrameQueue.h"
#include "platform/resample/AudioResampler.h"

namespace wv {

class AudioOutput final : private AudioOutputClient {
public:
    static constexpr int32_t AUDIO_FORMAT_PCM_16_BIT = 1;
    static constexpr int32_t NO_INIT = -19;
    static constexpr int32_t BAD_VALUE = -22;
    static constexpr uint32_t kMaxRateFactor = 4;

    enum event_type { EVENT_MORE_DATA = 0 };

    struct Buffer {
        uint32_t frameCount;  // frames asked for
        size_t size;          // bytes available at raw; set to the bytes written
        union {
            void* raw;
            int16_t* i16;
        };
    };

    typedef void (*callback_t)(int event, void* user, void* info);

    // Opens the output on the selected device (wavoryx_set_audio_output or
    // WAVORYX_AUDIO_OUT). frameCount 0 and notificationFrames 0 take the
    // device's default queue and half of it. Rates of 1 to 768000 Hz are
    // accepted; others leave initCheck() at BAD_VALUE.
    AudioOutput(uint32_t sampleRate, int32_t format, uint32_t channelMask, size_t frameCount,
                callback_t callback, void* user, uint32_t notificationFrames = 0);
    // Opens the output on `device`, which it then owns.
    AudioOutput(std::unique_ptr<AudioOutputDevice> device, uint32_t sampleRate, int32_t format,
                uint32_t channelMask, size_t frameCount, callback_t callback, void* user,
                uint32_t notificationFrames = 0);
    // Closes (see close()).
    ~AudioOutput();
    AudioOutput(const AudioOutput&) = delete;
    AudioOutput& operator=(const AudioOutput&) = delete;

    int32_t initCheck() const { return mStatus; }
    size_t frameSize() const { return size_t(mChannels) * 2; }
    uint32_t channelCount() const { return mChannels; }
    size_t frameCount() const { return mFrameCount; }
    uint32_t notificationFrames() const { return mNotificationFrames; }
    // The name of the device kind in use: "device", "null", "file" or "".
    const char* deviceName() const;

    int32_t start();
    void pause();
    void stop();
    void flush();
    // Ends the output's thread, waiting for a callback in progress to
    // return, and closes the device: no callback runs after this. An owner
    // whose callback reads the owner's pointer to this output closes it
    // before it lets go of the pointer. Idempotent; the calls above are
    // then no-ops as far as the device is concerned.
    void close();
    // True when stopped and any queued frames have played out.
    bool stopped() const;
    int32_t setSampleRate(int32_t sampleRate);
    uint32_t getSampleRate() const;

    // Frames the callback has handed to the output, and frames the device
    // has taken (played or, after an underrun, passed over), since opening.
    uint64_t framesHandedOut() const;
    uint64_t framesPlayed() const;
    // Frames waiting in the queue.
    size_t framesQueued() const;
    // Frames handed out that are no longer queued (played, passed over or
    // flushed): the index, in handed-out order, of the next frame the
    // device takes. Grows monotonically.
    uint64_t framesPresented() const;
    // The output's thread, on which the callback runs.
    std::thread::id outputThreadId() const { return mThread.get_id(); }

private:
    enum State { STOPPED, ACTIVE, PAUSED, STOPPING };

    void open(std::unique_ptr<AudioOutputDevice> device, bool selected, size_t frameCount,
              uint32_t notificationFrames);
    void feedLoop();
    void renderStereo(int16_t* out, size_t frames) override;
    void advance(int64_t playedUs) override;
    // Called with mLock held after frames were taken.
    void tookFrames_l(uint64_t count);

    const uint32_t mOpenRate;
    const callback_t mCallback;
    void* const mUser;
    uint32_t mChannels = 0;
    int32_t mStatus = 0;
    bool mClosed = false;  // the owner's thread only
    size_t mFrameCount = 0;
    uint32_t mNotificationFrames = 0;
    std::unique_ptr<AudioOutputDevice> mDevice;
    std::vector<int16_t> mScratch;  // the callback's buffer; output's thread only

    mutable std::mutex mLock;
    std::condition_variable mChanged;
    State mState = STOPPED;
    bool mExiting = false;
    uint32_t mRate;
    std::unique_ptr<FrameQueue> mQueue;
    std::unique_ptr<AudioResampler> mResampler;  // fixed-rate devices only
    int64_t mClockRemainder = 0;                 // frame-microseconds not yet played
    uint64_t mHandedOut = 0;
    uint64_t mPlayed = 0;

    std::thread mThread;
};

}  // namespace wv
