// Reads one PCM item as a stream of 16-bit frames in the rate and channel
// count its user asks for: a decoded file, a raw WAV source read in place,
// an item still being decoded, or a clip list (walked clip by clip, one
// sub-reader per clip).
//
// Positions count the item's own frames (list frames for a clip list).
// Rate conversion pulls the item's frames through the pull interface of the
// resampler of the quality set (the process default unless told), at most
// kProviderBytes (1280 stereo or 2560 mono frames) per fetch; channel
// conversion keeps the left channel or duplicates mono, in place. Nothing is
// allocated while reading, except one sub-reader per clip and one resampler
// per reader (and for a list with effects its mixer, one float block and
// the mixer's clip readers).
//
// Converted length: the linear kind gives what its one frame of latency
// makes of the range. The high-quality kinds give exactly
// round(N x out / in) frames for a range of N frames that ends (the end of
// the range, or of a finished item): the filter's tail is read out before
// END is reported. A clip list converts clip by clip, so its length is the
// sum of its clips' rounded lengths.
//
// A clip list with effects (ClipEffects.h) is read through a ListMixer in
// float and converted to 16-bit once, with TPDF dither (dsp/Dither.h). The
// noise of list frame p comes from a TpdfDither seeded with ditherSeed(p) =
// TpdfDither::kDefaultSeed + p x 0x632BE5AB (mod 2^32), one value per
// channel in channel order: the bytes of a frame depend only on the list
// and the frame, so the same list renders to the same bytes every time and
// playback (forwards, backwards, after any seek) hands out exactly what a
// render writes. A list without effects takes the plain 16-bit path, byte
// for byte as before effects existed.
//
// After every read the user checks endState(): 0 more follows, 1 the end of
// the range (or of a finished item) was reached, 2 the data ends where the
// item's data ends for now but more will come.
//
// Threads: one thread at a time uses a reader. The item's frame count grows
// concurrently; only frames below the count read are touched.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "items/SPcmInfo.h"
#include "platform/resample/AudioBufferProvider.h"
#include "platform/resample/AudioResampler.h"

namespace wv {

class ListMixer;

class PcmInfoReader : public AudioBufferProvider {
public:
    static constexpr uint32_t kProviderBytes = 5120;
    static constexpr uint32_t kWavHeaderBytes = 44;
    static constexpr uint32_t kToEnd = 0xFFFFFFFF;

    enum EndState : int32_t { MORE = 0, END = 1, WAIT = 2 };

    // `info` is not owned: the user holds a reference on it for the
    // reader's life.
    explicit PcmInfoReader(SPcmInfo* info);
    ~PcmInfoReader() override;
    PcmInfoReader(const PcmInfoReader&) = delete;
    PcmInfoReader& operator=(const PcmInfoReader&) = delete;

    // Output format; 0 means the item's own, taken at the first read.
    void setOutputFormat(int32_t sampleRate, int32_t channels) {
        mOutSampleRate = sampleRate;
        mOutChannels = channels;
    }
    int32_t outSampleRate() const { return mOutSampleRate; }
    // Quality of the resampler made at the first converted read (and of the
    // clip sub-readers' ones); SRC_DEFAULT unless set.
    void setResampleQuality(AudioResampler::src_quality quality) { mResampleQuality = quality; }
    int32_t outChannels() const { return mOutChannels; }

    void initPosition();                             // the whole item, from 0
    void setPosition(uint32_t start, uint32_t end);  // [start, end)
    void resetPosition();                            // back to the start
    void reseek();
    void seekMs(uint32_t ms);    // also drops a clip sub-reader
    uint64_t getTimeMs() const;  // 0 while the item has no rate
    uint64_t getAvailableTimeMs() const;
    uint32_t position() const { return mPosition; }
    uint32_t endFrame() const { return mEndFrame; }
    int32_t endState() const { return mEndState; }

    // Up to `bytes` bytes of output frames from the position on; returns the
    // frames put in `buffer` (the rest is zero), 0 when nothing can be read,
    // -1 when the item's file cannot be opened.
    int32_t read(char* buffer, uint32_t bytes);
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
    // The seed of the dither noise of list frame `frame`.
    static uint32_t ditherSeed(uint32_t frame);

    int32_t getNextBuffer(Buffer* buffer, int64_t pts = kInvalidPts) override;
    void releaseBuffer(Buffer* buffer) override;

    int openFile();
    off_t seekFile(uint64_t byteOffset);

private:
    // Puts `frames` frames of `frameBytes` (at most 8) in the opposite order.
    static void reverseFrames(char* buffer, uint32_t frames, uint32_t frameBytes);
    bool usesEffects() const;
    // reverseFill of a clip list: a forward read of the frames before the
    // position, reversed.
    int32_t reverseFillList(char* buffer, uint32_t bytes);
    // The effects path of read(): readFloat, then dither frame by frame.
    int32_t readWithEffects(char* buffer, uint32_t frames);
    // Common start of a read: output format, zeroed buffer, end state.
    // Returns the output frames that fit, or 0 when no format is known.
    uint32_t beginRead(char* buffer, uint32_t bytes);
    int32_t readFile(char* buffer, uint32_t frames);
    // Clips are read only while gotBefore + the frames got in this call
    // stay below fetchLimit; *halted tells that this stopped the read.
    int32_t readClipList(char* buffer, uint32_t frames, uint64_t gotBefore, uint64_t fetchLimit,
                         bool* halted);
    bool ensureOpen();
    // Reads `bytes` at the position (seeking first when needed); a short
    // read leaves zeros.
    void readAtPosition(char* into, uint64_t bytes);

    SPcmInfo* mInfo;
    int32_t mOutSampleRate = 0;
    int32_t mOutChannels = 0;
    uint32_t mPosition = 0;
    uint32_t mStartFrame = 0;
    uint32_t mEndFrame = kToEnd;
    int32_t mEndState = MORE;
    bool mNeedSeek = true;
    bool mHasHeader = false;
    std::unique_ptr<PcmInfoReader> mClipReader;
    int mFd = 0;  // 0: not opened yet; negative: the open failed
    char mProviderBuffer[kProviderBytes];
    std::unique_ptr<AudioResampler> mResampler;
    bool mResamplerHolds = false;  // the resampler has a fetched buffer not yet released
    AudioResampler::src_quality mResampleQuality = AudioResampler::SRC_DEFAULT;
    std::unique_ptr<ListMixer> mMixer;  // made at the first read with effects
    std::vector<float> mFloatBlock;     // the effects path's floats before dither
};

}  // namespace wv
