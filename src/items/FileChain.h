// A decoded item's chain: PcmFileSource -> RateConverter -> ChannelMapper,
// read as one head by PcmInfoReader. Only a loading or loaded item is read;
// any other state reads nothing.
//
// Threads: one thread at a time, like the reader that owns it.
#pragma once

#include <cstdint>

#include "items/ChannelMapper.h"
#include "items/PcmFileSource.h"
#include "items/PcmSource.h"
#include "items/RateConverter.h"

namespace wv {

class FileChain : public ChainHead {
public:
    // `item` is not owned: the reader's user holds a reference on it.
    explicit FileChain(SPcmInfo* item)
        : mItem(item), mFile(item), mConverter(&mFile), mMapper(&mConverter) {}

    PcmFileSource* file() { return &mFile; }

    void setFormat(const PcmFormat& format) override;
    void moveTo(uint32_t position) override { mFile.moveTo(position); }
    void setEnd(uint32_t end) override { mFile.setEnd(end); }
    uint32_t position() const override { return mFile.position(); }
    int32_t endState() const override { return mEndState; }
    void clearEndState() override;
    bool readable() const override;
    // Returns -1 when the file cannot be opened.
    int32_t read(char* buffer, uint32_t frames, uint64_t gotBefore, uint64_t fetchLimit,
                 bool* halted) override;

private:
    SPcmInfo* mItem;
    PcmFileSource mFile;
    RateConverter mConverter;
    ChannelMapper mMapper;
    int32_t mEndState = PcmSource::MORE;
};

}  // namespace wv
