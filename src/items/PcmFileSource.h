// The frames of one decoded item in its own format: its PCM file, or a raw
// WAV source read in place behind its 44-byte header. Reads stop at the
// item's frame count, which the decoder raises after each write, so an
// item still loading can be followed (WAIT when caught up).
//
// The first stage of an item's reader (PcmInfoReader): the rate converter
// borrows its frames through the pull interface, at most kProviderBytes
// (1280 stereo or 2560 mono frames) at a time. Nothing is allocated while
// reading.
//
// Threads: one thread at a time. The item's frame count grows concurrently;
// only frames below the count read are touched.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "items/PcmSource.h"
#include "items/RateConverter.h"

namespace wv {

struct SPcmInfo;

class PcmFileSource : public ConverterInput {
public:
    static constexpr uint32_t kProviderBytes = 5120;
    static constexpr uint32_t kWavHeaderBytes = 44;

    // `info` is not owned: the reader's user holds a reference on it.
    explicit PcmFileSource(SPcmInfo* info) : mInfo(info) {}
    ~PcmFileSource() override;
    PcmFileSource(const PcmFileSource&) = delete;
    PcmFileSource& operator=(const PcmFileSource&) = delete;

    // Where the next frame is read; also makes the next read seek.
    void moveTo(uint32_t position) {
        mPosition = position;
        mNeedSeek = true;
    }
    void setEnd(uint32_t end) { mEndFrame = end; }
    uint32_t position() const { return mPosition; }
    uint32_t endFrame() const { return mEndFrame; }
    // The item's own rate and channels.
    int32_t rate() const override;
    int32_t channels() const override;
    // Set by read() and by each lent buffer; the user clears it before a read.
    int32_t endState() const override { return mEndState; }
    void clearEndState() { mEndState = PcmSource::MORE; }
    // False only when this call tried to open the file and failed: later
    // reads of an unopenable file give silence.
    bool open();

    // Up to `frames` frames from the position on, not past the range's end
    // nor the frames there are; returns the frames read.
    uint32_t read(char* buffer, uint32_t frames) override;
    // The `frames` frames before the position, in order, moving the position
    // back over them; silence stands for frames before frame 0. Returns
    // `frames`, or -1 when the file cannot be opened. A position past the
    // frames there are gives silence and stays.
    int32_t readBefore(char* buffer, uint32_t frames);
    // The item's frames from the position to the range's end that exist now.
    uint32_t framesLeft() const;

    // Whether the converter holds a lent buffer not yet given back.
    bool lending() const override { return mLending; }
    int32_t getNextBuffer(Buffer* buffer, int64_t pts = kInvalidPts) override;
    void releaseBuffer(Buffer* buffer) override;

private:
    int openFile();
    off_t seekFile(uint64_t byteOffset);
    // Reads `bytes` at the position (seeking first when needed); a short
    // read leaves zeros.
    void readAtPosition(char* into, uint64_t bytes);

    SPcmInfo* mInfo;
    uint32_t mPosition = 0;
    uint32_t mEndFrame = 0xFFFFFFFF;
    int32_t mEndState = PcmSource::MORE;
    bool mNeedSeek = true;
    bool mHasHeader = false;
    bool mLending = false;
    int mFd = 0;  // 0: not opened yet; negative: the open failed
    char mProviderBuffer[kProviderBytes];
};

}  // namespace wv
