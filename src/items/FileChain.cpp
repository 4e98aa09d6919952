#include "items/FileChain.h"

#include "items/SPcmInfo.h"

namespace wv {

void FileChain::setFormat(const PcmFormat& format) {
    mConverter.setOutRate(format.rate);
    mConverter.setQuality(format.quality);
    mMapper.setOutChannels(format.channels);
}

void FileChain::clearEndState() {
    mEndState = PcmSource::MORE;
    mFile.clearEndState();
}

bool FileChain::readable() const {
    const int32_t status = mItem->status.load();
    return status == DECODING || status == PCM_READY;
}

int32_t FileChain::read(char* buffer, uint32_t frames, uint64_t, uint64_t, bool*) {
    if (!mFile.open()) return -1;
    return static_cast<int32_t>(mMapper.read(buffer, frames, &mEndState));
}

}  // namespace wv
