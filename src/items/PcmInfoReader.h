// Reads one PCM item as a stream of 16-bit frames in the rate and channel
// count its user asks for: a decoded file, a raw WAV source read in place,
// an item still being decoded, or a clip list.
//
// The reader builds the chain the item needs once and hands reads down it:
//   decoded item: FileChain = PcmFileSource -> RateConverter -> ChannelMapper
//   clip list:    ClipListSource (each clip through a reader of its own)
//   backwards:    Reverser, over the file or over forward reads of the list
//
// Positions count the item's own frames (list frames for a clip list, see
// ClipListSource.h). Nothing is allocated while reading, except one reader
// per clip and one resampler per reader (a nested list of another rate
// also its converter's input block; for a list with effects its
// float block, scratch, the mix's clip readers and what they read ahead).
//
// After every read the user checks endState(): 0 more follows, 1 the end of
// the range (or of a finished item) was reached, 2 the data ends where the
// item's data ends for now but more will come.
//
// Threads: one thread at a time uses a reader. The item's frame count grows
// concurrently; only frames below the count read are touched.
#pragma once

#include <cstdint>
#include <memory>

#include "items/PcmSource.h"
#include "items/SPcmInfo.h"
#include "platform/resample/AudioResampler.h"

namespace wv {

class ClipListSource;
class Reverser;

class PcmInfoReader : public PcmSource {
public:
    static constexpr uint32_t kWavHeaderBytes = 44;
    static constexpr uint32_t kToEnd = 0xFFFFFFFF;

    // `info` is not owned: the user holds a reference on it for the
    // reader's life.
    explicit PcmInfoReader(SPcmInfo* info);
    ~PcmInfoReader() override;
    PcmInfoReader(const PcmInfoReader&) = delete;
    PcmInfoReader& operator=(const PcmInfoReader&) = delete;

    // Output format; 0 means the item's own, taken at the first read.
    void setOutputFormat(int32_t sampleRate, int32_t channels) {
        mFormat.rate = sampleRate;
        mFormat.channels = channels;
    }
    int32_t outSampleRate() const { return mFormat.rate; }
    // Quality of the resampler made at the first converted read (and of the
    // clip readers' ones); SRC_DEFAULT unless set.
    void setResampleQuality(AudioResampler::src_quality quality) { mFormat.quality = quality; }
    int32_t outChannels() const { return mFormat.channels; }

    void setPosition(uint32_t start, uint32_t end) override;  // [start, end)
    void seekMs(uint32_t ms);    // also drops a clip's reader
    uint64_t getTimeMs() const;  // 0 while the item has no rate
    uint64_t getAvailableTimeMs() const;
    uint32_t position() const override;
    uint32_t endFrame() const override { return mEndFrame; }
    int32_t endState() const override { return mEndState; }
    uint32_t framesLeft() const override;

    // Up to `bytes` bytes of output frames from the position on; returns the
    // frames put in `buffer` (the rest is zero), 0 when nothing can be read,
    // -1 when the item's file cannot be opened.
    int32_t read(char* buffer, uint32_t bytes) override;
    // One long read taken in pieces: the frames that read() into a single
    // buffer of wholeBytes would deliver, at most `bytes` at a time, so that
    // a long range needs no buffer of its own length. *gotSoFar counts the
    // frames delivered by earlier pieces (0 before the first); *done becomes
    // true once that single read would have returned: the rest of its
    // buffer would be silence.
    int32_t readPiece(char* buffer, uint32_t bytes, uint64_t wholeBytes, uint64_t* gotSoFar,
                      bool* done);
    // The frames just before the position, last first, in the item's own
    // format, moving the position back over them; silence beyond frame 0.
    // A clip list gives (effects included) the bytes a forward read gives.
    // Returns the frames filled (bytes / item frame size), -1 on an open
    // failure.
    int32_t reverseFill(char* buffer, uint32_t bytes);
    // Up to `frames` output frames as floats (full scale +-1.0, frames x
    // channels values; the rest is zero), effects applied, from the
    // position on; returns the frames made, -1 when a file cannot be
    // opened. The float stage of a list: what read() gives before its
    // 16-bit conversion.
    int32_t readFloat(float* out, uint32_t frames);
    // The seed of the dither noise of list frame `frame` (ClipListSource.h).
    static uint32_t ditherSeed(uint32_t frame);

private:
    // The reader of one clip of a list.
    static std::unique_ptr<PcmSource> openClip(SPcmInfo* source, const PcmFormat& format);
    // Takes the item's format for what is unset; false while none is known.
    bool settleFormat();
    // Common start of a read: output format, zeroed buffer, end state.
    // Returns the output frames that fit, or 0 when no format is known.
    uint32_t beginRead(char* buffer, uint32_t bytes);

    SPcmInfo* mInfo;
    PcmFormat mFormat;
    uint32_t mEndFrame = kToEnd;
    int32_t mEndState = MORE;
    std::unique_ptr<ChainHead> mHead;
    ClipListSource* mList = nullptr;  // the head when the item is a list: its float stage
    std::unique_ptr<Reverser> mReverser;
};

}  // namespace wv
