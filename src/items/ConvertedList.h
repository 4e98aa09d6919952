// A clip list read as a clip of another list in a rate or channel count
// other than its own: the list is read at its own rate and channels (what
// its own render makes), then converted and mapped as a decoded file of
// that format would be (RateConverter -> ChannelMapper). So a nested list's frames, and the
// ranges of clips over it, count in the list's own frames whatever rate
// the outer list is read at, and the outer list hears what it would hear
// from the list's render loaded back.
//
// Threads: one thread at a time, like the reader that owns it.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "items/ChannelMapper.h"
#include "items/PcmSource.h"
#include "items/RateConverter.h"

namespace wv {

class ConvertedList : public PcmSource {
public:
    // `list` reads the list at `rate` Hz and `channels`; the frames come
    // out in `out`'s rate and channels.
    ConvertedList(std::unique_ptr<PcmSource> list, int32_t rate, int32_t channels,
                  const PcmFormat& out);
    ~ConvertedList() override;
    ConvertedList(const ConvertedList&) = delete;
    ConvertedList& operator=(const ConvertedList&) = delete;

    // Positions count the list's own frames; a new one starts the
    // converter afresh.
    void setPosition(uint32_t start, uint32_t end) override;
    uint32_t position() const override { return mList->position(); }
    uint32_t endFrame() const override { return mList->endFrame(); }
    int32_t endState() const override { return mEndState; }
    int32_t read(char* buffer, uint32_t bytes) override;
    uint32_t framesLeft() const override { return mList->framesLeft(); }

private:
    // The list's frames lent to the converter.
    class Input : public ConverterInput {
    public:
        Input(PcmSource* list, int32_t rate, int32_t channels);
        int32_t rate() const override { return mRate; }
        int32_t channels() const override { return mChannels; }
        uint32_t read(char* buffer, uint32_t frames) override;
        int32_t endState() const override { return mState; }
        void clearEndState() { mState = PcmSource::MORE; }
        bool lending() const override { return mLending; }
        int32_t getNextBuffer(Buffer* buffer, int64_t pts = kInvalidPts) override;
        void releaseBuffer(Buffer* buffer) override;

    private:
        PcmSource* mList;
        int32_t mRate;
        int32_t mChannels;
        int32_t mState = PcmSource::MORE;
        bool mLending = false;
        std::vector<char> mBuffer;
    };

    std::unique_ptr<PcmSource> mList;
    PcmFormat mOut;
    Input mInput;
    std::unique_ptr<RateConverter> mConverter;
    std::unique_ptr<ChannelMapper> mMapper;
    int32_t mEndState = PcmSource::MORE;
};

}  // namespace wv
