// An audio input in callback mode: the stand-in for the platform's capture
// object that the capture source drives.
//
// The input owns a ring of frameCount() frames and a thread of its own. The
// device (see AudioInputDevice.h) fills the ring while the input is started;
// whenever it holds notificationFrames() frames, the input's thread hands
// them to the callback with EVENT_MORE_DATA and a Buffer (frameCount, size
// in bytes, raw). A device that canWait() is held until the ring has room
// for all its frames, so none are lost however slow the callback. From any
// other device, frames that find the ring full are lost: they are counted
// for getInputFramesLost() and announced by one EVENT_OVERRUN (info null)
// before the next block.
//
// Samples are 16-bit, interleaved, 1 to 8 channels (the channel mask's set
// bits, e.g. 0x10 mono, 0xC stereo, 0x3F0000 six channels; the "device"
// kind captures 1 or 2).
//
// Thread safety: control operations from any thread. stop() does not wait
// for a callback under way (the callback may take locks its caller holds);
// the destructor does, and may not be called from the callback.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/audio/AudioInputDevice.h"
#include "platform/audio/FrameQueue.h"

namespace wv {

class AudioInput final : private AudioInputClient {
public:
    static constexpr int32_t AUDIO_FORMAT_PCM_16_BIT = 1;
    static constexpr int32_t NO_INIT = -19;
    static constexpr int32_t BAD_VALUE = -22;

    enum event_type { EVENT_MORE_DATA = 0, EVENT_OVERRUN = 1 };

    struct Buffer {
        size_t frameCount;
        size_t size;  // bytes
        union {
            void* raw;
            int16_t* i16;
        };
    };

    typedef void (*callback_t)(int event, void* user, void* info);

    // The smallest ring, in frames, accepted for this configuration (20 ms,
    // at least 256 frames). 0, or BAD_VALUE for an unusable configuration.
    static int32_t getMinFrameCount(size_t* frameCount, uint32_t sampleRate, int32_t format,
                                    uint32_t channelMask);

    // Opens the selected input (wavoryx_set_audio_input or WAVORYX_AUDIO_IN).
    // `inputSource` is accepted for the caller's sake and not used.
    // notificationFrames 0 means half the ring.
    AudioInput(int32_t inputSource, uint32_t sampleRate, int32_t format, uint32_t channelMask,
               size_t frameCount, callback_t callback, void* user, uint32_t notificationFrames = 0);
    // Opens `device`, which it then owns.
    AudioInput(std::unique_ptr<AudioInputDevice> device, uint32_t sampleRate, int32_t format,
               uint32_t channelMask, size_t frameCount, callback_t callback, void* user,
               uint32_t notificationFrames = 0);
    ~AudioInput();
    AudioInput(const AudioInput&) = delete;
    AudioInput& operator=(const AudioInput&) = delete;

    int32_t initCheck() const { return mStatus; }
    // Starts capture with an empty ring and no lost frames. 0 or a status.
    int32_t start();
    void stop();
    bool stopped() const;
    // Frames lost since the last call; the count starts again at 0.
    uint32_t getInputFramesLost();

    size_t frameSize() const { return size_t(mChannels) * 2; }
    uint32_t channelCount() const { return mChannels; }
    uint32_t getSampleRate() const { return mSampleRate; }
    size_t frameCount() const { return mFrameCount; }
    uint32_t notificationFrames() const { return mNotificationFrames; }
    // The device's latency plus the ring's length, in milliseconds.
    uint32_t latency() const;
    const char* deviceName() const;
    std::thread::id callbackThreadId() const { return mThread.get_id(); }

private:
    void open(std::unique_ptr<AudioInputDevice> device, bool selected, size_t frameCount,
              uint32_t notificationFrames);
    void onCaptured(const int16_t* frames, size_t count) override;
    void deliverLoop();

    const uint32_t mSampleRate;
    const callback_t mCallback;
    void* const mUser;
    uint32_t mChannels = 0;
    int32_t mStatus = 0;
    size_t mFrameCount = 0;
    uint32_t mNotificationFrames = 0;
    std::unique_ptr<AudioInputDevice> mDevice;
    std::vector<int16_t> mScratch;  // the input's thread only

    std::mutex mControlLock;  // serialises start and stop
    mutable std::mutex mLock;
    std::condition_variable mChanged;  // frames or an overrun for the input's thread
    std::condition_variable mRoom;     // room in the ring for a waiting device
    bool mDeviceWaits = false;         // the device's canWait(), fixed once open
    bool mStarted = false;
    bool mExiting = false;
    bool mOverrunPending = false;
    uint32_t mFramesLost = 0;
    std::unique_ptr<FrameQueue> mQueue;

    std::thread mThread;
};

}  // namespace wv
