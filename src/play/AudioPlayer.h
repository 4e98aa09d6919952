// Plays one PCM item through an audio output in callback mode.
//
// Two inputs, chosen while playing:
//  - the item's PCM data through its PcmInfoReader (forwards or backwards),
//    used whenever the item has PCM data at the play position;
//  - the item's media file (path), demuxed and decoded by the media layer
//    (a raw PCM track is read as it is), forwards only, used when the PCM
//    data does not reach the play position yet (an item still loading) or
//    cannot be read at all (a recording).
// A player given no reader plays the media file alone (a scan's item,
// which keeps no audio): forwards only, and each seek starts the file's
// decoding afresh at the target's frame (ms x rate / 1000), so that it
// hands out exactly the frames a load of the file holds from there on.
// The output is opened with the media file's decoded format. When the
// item has PCM data and its format is known and disagrees (rate or
// channels), the output is opened with the item's format and only the PCM
// data is played; an item without PCM data plays its file as it is.
//
// The output's thread pulls data through fillBuffer(). A fill never waits.
// When the PCM data runs out before the item has loaded (the player caught
// up with the load), it hands out only the frames there are: the position
// holds, the device plays silence of its own, and the output asks again a
// moment later; event 43 (the position in ms) is posted when this begins
// and 44 when frames come again. A backwards read with nothing to give
// hands out what it has plus silence. When the input ends
// (the reader's end, a reader failure, the end of the media stream, or
// frame 0 when playing backwards) event 42 is posted once, 30 ms later,
// and every later fill hands nothing until a seek: the output then holds
// exactly the frames played, and its device plays silence once its queue
// has run out.
//
// Clock. Positions are mapped through output frame indices: the output
// reports how many of the frames handed to it it has presented
// (AudioOutput::framesPresented), and each chunk of input records the media
// time of its first frame and its index. The play position is the chunk's
// media time plus the presented frames past its index (minus, backwards),
// scaled to microseconds at the decoded rate. Since the output takes frames
// at rate x speed, the position advances at |speed| times the wall clock,
// freezes while the output is paused or starved, and is exact (to one
// chunk) once the frames queued before a seek or speed change have played.
// At the end of the input it stays at the time of the last frame played.
//
// States: Empty (no source) -> setDataSource -> Prepared -> start ->
// Paused <-> Playing (resume / pause). seekTo and setPlaybackRatePermille
// keep the state. The player owns the item's reader (given by its user);
// destruction stops the output, then releases the decoder, then the reader.
//
// Threads: control calls come from the client's thread and the engine's
// callback thread (pause(true) at the end of playback); the fill runs on
// the output's thread. mLock guards the clock, seek and end fields and is
// never held while reading the reader or the media source, except around
// the reader's position calls of a seek.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "items/PcmInfoReader.h"
#include "items/SPcmInfo.h"
#include "platform/audio/AudioOutput.h"
#include "platform/media/MediaBuffer.h"
#include "platform/media/MediaSource.h"
#include "threads/ClientEvents.h"

namespace wv {

class AudioPlayer : public PcmItemPlayer {
public:
    enum : uint32_t { PAUSED = 1, PLAYING = 2 };
    enum FlagMode { SET = 0, CLEAR = 1, ASSIGN = 2 };
    static constexpr int32_t kEndEventDelayMs = 30;
    static constexpr int32_t UNKNOWN_ERROR = int32_t(0x80000000);

    // Makes the output for (rate, channel mask); the default opens the
    // selected device (wavoryx_set_audio_output / WAVORYX_AUDIO_OUT).
    using OutputFactory = std::function<std::unique_ptr<AudioOutput>(
        uint32_t sampleRate, uint32_t channelMask, AudioOutput::callback_t callback, void* user)>;

    // events: where the end of playback is posted (not owned; outlives the
    // player); null posts nothing.
    explicit AudioPlayer(EventSink* events);
    ~AudioPlayer() override;
    AudioPlayer(const AudioPlayer&) = delete;
    AudioPlayer& operator=(const AudioPlayer&) = delete;

    // Before start(): where the output comes from (tests inject devices).
    void setOutputFactory(OutputFactory factory) { mOutputFactory = std::move(factory); }
    // Before start(): the item and its reader, which the player then owns;
    // a null reader plays the media file alone (see above).
    void setReader(SPcmInfo* item, std::unique_ptr<PcmInfoReader> reader);
    PcmInfoReader* reader() const { return mReader.get(); }

    // Opens the media file and starts its decoded source. 0 or -1 (a player
    // opens one source in its life).
    int32_t setDataSource(const char* path);
    // Creates the output, stopped. 0, -1 without a source, the output's
    // status, or BAD_VALUE (-22) for a channel count without a mask.
    int32_t start(bool sourceStarted);
    // drain: the output plays what it has queued, then stops; otherwise it
    // pauses at once. 0, or -1 on a player that never played.
    int32_t pause(bool drain);
    // Starts the output. 0, or -1 without a source.
    int32_t resume();
    // Asks for a seek, done by the next fill; clears the end. Always 0.
    int32_t seekTo(int64_t timeUs);
    // Direction and speed: 1000 normal, 2000 double, -1000 backwards; 0 is
    // backwards at rate 0, which the output refuses. The output's status,
    // or NO_INIT (-19) before start().
    int32_t setPlaybackRatePermille(int32_t ratePermille);
    // Whether the item's PCM data (or a list's clips, effects included)
    // can be played backwards in the output's format.
    bool canPlayBackwards() const;

    int64_t getRealTimeUs();
    // The play position in microseconds of media time.
    int64_t getMediaTimeUs();
    bool getMediaTimeMapping(int64_t* outputUs, int64_t* mediaUs);
    bool isSeeking();
    bool reachedEOS(int32_t* status);

    // The fill; bytes written. Output thread only.
    size_t fillBuffer(void* data, size_t size);
    void AudioCallback(int event, void* info);
    static void AudioCallback(int event, void* player, void* info);

    uint32_t flags() const { return mFlags.load(); }
    bool usingReader() const { return mUseReader.load(); }
    AudioOutput* output() const { return mOutputTrack.get(); }
    int32_t sampleRate() const { return mSampleRate; }

private:
    int32_t initAudioDecoder();
    // A direct player's seek: the file decoded from the frame at `timeUs`
    // on replaces the source. False when it cannot be made or started.
    bool reopenSourceAt(int64_t timeUs);
    void reset();
    void modifyFlags(uint32_t value, FlagMode mode);
    int64_t getRealTimeUsLocked();
    int64_t getMediaTimeUsLocked();
    // Makes `presentedIndex` the clock base: frames handed since it count
    // from there (none after the end, to keep the position pinned).
    void rebaseClockLocked(uint64_t presentedIndex);
    bool readerCanServe() const;
    bool formatsAgree(int32_t rate, int32_t channels) const;
    int64_t outputTimeUsLocked(size_t doneBytes) const;

    // The parts of one fill.
    enum class Step { MORE, WAIT, END };
    void applySeekLocked(MediaSource::ReadOptions* options);
    Step fillFromReader(uint8_t* data, size_t* done, size_t size);
    Step fillFromSource(uint8_t* data, size_t* done, size_t size,
                        const MediaSource::ReadOptions& options);
    // Posts 43 when a fill starved and the player was not holding yet, and
    // 44 when a holding player handed frames again.
    void noteHolding(bool handedFrames, bool starved);

    std::atomic<bool> mUseReader{true};
    bool mReverse = false;  // guarded by mLock
    std::unique_ptr<PcmInfoReader> mReader;
    SPcmInfo* mItem = nullptr;
    std::shared_ptr<MediaSource> mSource;
    std::unique_ptr<AudioOutput> mOutputTrack;
    std::shared_ptr<MediaSource> mExtractorTrack;
    std::string mPath;
    std::atomic<uint32_t> mFlags{0};
    MediaBuffer* mInputBuffer = nullptr;
    int32_t mSampleRate = 0;
    uint32_t mFrameBytes = 0;
    bool mReaderOnly = false;  // formats disagree: the media file is not played
    bool mDirect = false;      // no reader: the media file is the only input
    bool mStarvedFill = false;  // this fill found the load behind (output thread)
    bool mHolding = false;      // waiting for the load since event 43 (output thread)

    std::mutex mLock;
    int64_t mFramesWritten = 0;    // frames handed since the clock base
    uint64_t mHandedFrames = 0;    // frames handed to the output, silence included
    uint64_t mClockBaseFrame = 0;  // presented index of the clock base
    int64_t mPositionTimeMediaUs = -1;
    int64_t mPositionTimeOutputUs = -1;
    bool mSeekPending = false;
    bool mEndReached = false;
    int32_t mEndStatus = 0;
    int64_t mSeekTargetUs = 0;
    std::atomic<bool> mStarted{false};
    EventSink* const mEvents;
    int32_t mRateFactor = 1;

    OutputFactory mOutputFactory;
};

}  // namespace wv
