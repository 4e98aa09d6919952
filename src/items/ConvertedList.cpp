#include "items/ConvertedList.h"

#include <algorithm>
#include <cstring>

namespace wv {

namespace {

// Frames lent to the converter at a time: bounds the input buffer.
constexpr uint32_t kLendFrames = 2048;

}  // namespace

ConvertedList::Input::Input(PcmSource* list, int32_t rate, int32_t channels)
    : mList(list), mRate(rate), mChannels(channels) {
    mBuffer.resize(size_t(kLendFrames) * 2 * static_cast<uint32_t>(channels));
}

uint32_t ConvertedList::Input::read(char* buffer, uint32_t frames) {
    const int32_t n = mList->read(buffer, frames * 2 * static_cast<uint32_t>(mChannels));
    mState = mList->endState();
    return n > 0 ? static_cast<uint32_t>(n) : 0;
}

int32_t ConvertedList::Input::getNextBuffer(Buffer* buffer, int64_t) {
    const uint32_t asked = std::min(std::max(buffer->frameCount, 1u), kLendFrames);
    buffer->raw = nullptr;
    buffer->frameCount = 0;
    // After the end (or a wait) nothing is read until the next read call.
    if (mState != PcmSource::MORE) return 0;
    const uint32_t n = read(mBuffer.data(), asked);
    if (n == 0) return 0;
    buffer->raw = mBuffer.data();
    buffer->frameCount = n;
    mLending = true;
    return 0;
}

void ConvertedList::Input::releaseBuffer(Buffer* buffer) {
    buffer->frameCount = 0;
    mLending = false;
}

ConvertedList::ConvertedList(std::unique_ptr<PcmSource> list, int32_t rate, int32_t channels,
                             const PcmFormat& out)
    : mList(std::move(list)), mOut(out), mInput(mList.get(), rate, channels) {
    setPosition(0, 0xFFFFFFFF);
}

ConvertedList::~ConvertedList() = default;

void ConvertedList::setPosition(uint32_t start, uint32_t end) {
    mList->setPosition(start, end);
    mInput.clearEndState();
    mConverter.reset(new RateConverter(&mInput));
    mConverter->setOutRate(mOut.rate);
    mConverter->setQuality(mOut.quality);
    mMapper.reset(new ChannelMapper(mConverter.get()));
    mMapper->setOutChannels(mOut.channels);
    mEndState = PcmSource::MORE;
}

int32_t ConvertedList::read(char* buffer, uint32_t bytes) {
    const uint32_t frames = bytes / (2 * static_cast<uint32_t>(mOut.channels));
    std::memset(buffer, 0, bytes);
    mInput.clearEndState();
    int32_t state = PcmSource::MORE;
    const uint32_t n = mMapper->read(buffer, frames, &state);
    mEndState = state;
    return static_cast<int32_t>(n);
}

}  // namespace wv
