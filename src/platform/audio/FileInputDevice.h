// The "file:PATH" input: plays an audio file into the recorder as a
// microphone would. Any file the media layer decodes (its first audio
// track) is converted to the rate and channel count the input was opened
// with and handed over at real-time pace; after the end of the file the
// input delivers silence for as long as it runs.
//
// Conversion: the decoded frames are first made stereo (a mono file feeds
// both sides; files of more channels give their first two), then resampled
// by the linear AudioResampler when the rates differ (one input frame of
// latency), then shaped to the opened channel count: mono keeps the left
// side, more than two channels repeat left and right in turn.
//
// Pacing: a PacedLoop hands over the frames the passed time holds, in
// pieces of at most kMaxPieceFrames. It waits while the recorder is full,
// then makes up the time as fast as the recorder takes the frames: a slow
// recorder never makes it lose or skip any.
//
// Every input opened on the same file starts at the file's beginning.
// Decoding happens on the device's thread, after start().
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/audio/AudioInputDevice.h"
#include "platform/audio/PacedLoop.h"
#include "platform/resample/AudioBufferProvider.h"
#include "platform/resample/AudioResampler.h"

namespace wv {

class MediaBuffer;
class MediaSource;

class FileInputDevice : public AudioInputDevice, private AudioBufferProvider {
public:
    static constexpr size_t kMaxPieceFrames = 512;
    static constexpr int32_t kCannotOpen = -2;

    // `pace`: capture time per time of `clock`.
    FileInputDevice(std::string path, double pace,
                    MonotonicClock& clock = MonotonicClock::system());
    ~FileInputDevice() override;

    // 0, kCannotOpen when the file has no decodable audio track, or -22.
    int32_t open(uint32_t sampleRate, uint32_t channels, AudioInputClient* client) override;
    int32_t start() override;
    void stop() override;
    uint32_t latencyMs() const override { return 10; }
    const char* name() const override { return "file"; }
    bool canWait() const override { return true; }

    // Converts the next `frames` frames (at most kMaxPieceFrames) into the
    // returned block; silence once the file has ended. Device thread only
    // (public for tests that drive the device without its thread).
    const int16_t* produce(size_t frames);
    bool ended() const { return mEnded; }

private:
    // Up to `frames` stereo frames at the file's rate into `out`; fewer only
    // at the end of the file.
    size_t readStereo(int16_t* out, size_t frames);
    bool nextMediaBuffer();
    int32_t getNextBuffer(AudioBufferProvider::Buffer* buffer, int64_t pts) override;
    void releaseBuffer(AudioBufferProvider::Buffer* buffer) override;

    const std::string mPath;
    uint32_t mSampleRate = 0;
    uint32_t mChannels = 0;
    AudioInputClient* mClient = nullptr;

    // Device thread only, once open() has returned.
    std::shared_ptr<MediaSource> mSource;
    int32_t mSourceRate = 0;
    int32_t mSourceChannels = 0;
    MediaBuffer* mMediaBuffer = nullptr;
    size_t mMediaOffset = 0;  // bytes of mMediaBuffer's range already used
    bool mEnded = false;
    std::unique_ptr<AudioResampler> mResampler;
    std::vector<int16_t> mLent;    // stereo frames lent to the resampler
    std::vector<int16_t> mStereo;  // one piece of stereo output
    std::vector<int16_t> mBlock;   // one piece at the opened channel count

    PacedLoop mLoop;
};

}  // namespace wv
