// A pull source of media buffers: a container's track, or a decoder over a
// track that delivers interleaved signed 16-bit PCM.
//
// Calling order: start(), then read() until it returns a non-OK status, and
// stop(); a source may be started again after stop(). read() returns OK with
// a buffer the caller must release(), or a status without one. A read with a
// seek in its options first moves the source to the asked time (to the sync
// point the mode selects; for audio every frame is close to one) and then
// reads; the buffer's kKeyTime tells where it really landed. A seek after
// the end of the stream makes the source readable again.
//
// One reader at a time: read() is not meant to run on two threads at once,
// but start/stop/read may be called from different threads in turn.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/MediaService.h"
#include "platform/media/MediaBuffer.h"
#include "platform/media/MetaData.h"

namespace wv {

// Statuses of the media layer, all negative.
enum : status_t {
    ERROR_IO = -1004,
    ERROR_MALFORMED = -1007,
    ERROR_UNSUPPORTED = -1010,
    ERROR_END_OF_STREAM = -1011,
    // The decoded format changed; read again to get data in the new format.
    INFO_FORMAT_CHANGED = -1012,
    NO_INIT = -19,
    INVALID_OPERATION = -38,
};

// Damaged data a decoder passed over: packets it refused or could not
// decode, skipped as the reference tools skip them (the codec keeps its
// state and conceals what it can), and the media time of the first one.
struct DecodeDamage {
    uint32_t packets = 0;
    int64_t firstUs = -1;  // -1 while packets is 0

    void note(int64_t timeUs) {
        if (packets++ == 0) firstUs = timeUs < 0 ? 0 : timeUs;
    }
};

// A decoder's tally while it skips damage: what it skipped, and the errors
// in a row since it last decoded a frame, past kMaxInRow of which its
// stream ends (a codec that keeps failing without taking packets would
// otherwise never end).
class DamageTally {
public:
    static constexpr int kMaxInRow = 1000;

    // A frame came out: the row of errors is over.
    void decoded() { mInRow = 0; }
    // One packet skipped; `counted` when it lies where damage is told, at
    // `timeUs`. False once too many came in a row.
    bool skipped(bool counted, int64_t timeUs) {
        if (counted) mDamage.note(timeUs);
        return ++mInRow < kMaxInRow;
    }
    const DecodeDamage& damage() const { return mDamage; }

private:
    DecodeDamage mDamage;
    int mInRow = 0;
};

class MediaSource {
public:
    class ReadOptions {
    public:
        enum SeekMode {
            SEEK_PREVIOUS_SYNC = 0,  // at or before the time
            SEEK_NEXT_SYNC = 1,      // at or after the time
            SEEK_CLOSEST_SYNC = 2,   // the nearest on either side
            SEEK_CLOSEST = 3,        // treated as SEEK_CLOSEST_SYNC
        };
        void setSeekTo(int64_t timeUs, SeekMode mode = SEEK_CLOSEST_SYNC) {
            mHasSeek = true;
            mSeekTimeUs = timeUs;
            mSeekMode = mode;
        }
        void clearSeekTo() { mHasSeek = false; }
        bool getSeekTo(int64_t* timeUs, SeekMode* mode) const {
            if (mHasSeek) {
                *timeUs = mSeekTimeUs;
                *mode = mSeekMode;
            }
            return mHasSeek;
        }

    private:
        bool mHasSeek = false;
        int64_t mSeekTimeUs = 0;
        SeekMode mSeekMode = SEEK_CLOSEST_SYNC;
    };

    virtual ~MediaSource() = default;
    virtual status_t start(MetaData* params = nullptr) = 0;
    virtual status_t stop() = 0;
    // The format of the buffers read: for a decoder "audio/raw" with rate,
    // channels and channel mask.
    virtual std::shared_ptr<MetaData> getFormat() = 0;
    virtual status_t read(MediaBuffer** buffer, const ReadOptions* options = nullptr) = 0;
    // What a decoder skipped since start(); nothing for other sources. Read
    // by the thread that reads.
    virtual DecodeDamage damage() { return {}; }
};

}  // namespace wv
