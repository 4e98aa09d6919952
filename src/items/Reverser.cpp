#include "items/Reverser.h"

#include <cstring>

#include "items/PcmFileSource.h"
#include "items/PcmSource.h"

namespace wv {

int32_t Reverser::fill(char* buffer, uint32_t frames, uint32_t frameBytes) {
    if (mForward != nullptr) return fillForward(buffer, frames, frameBytes);
    const int32_t n = mFile->readBefore(buffer, frames);
    if (n < 0) return n;
    reverseFrames(buffer, frames, frameBytes);
    return n;
}

int32_t Reverser::fillForward(char* buffer, uint32_t frames, uint32_t frameBytes) {
    const uint32_t position = mForward->position();
    const uint32_t back = position < frames ? position : frames;
    const uint32_t newPosition = position - back;
    const uint32_t end = mForward->endFrame();
    // The frames before the position, read forwards (the same bytes as a
    // forward read gives them), land after the silence before frame 0.
    mForward->setPosition(newPosition, end);
    char* into = buffer + uint64_t(frames - back) * frameBytes;
    uint32_t got = 0;
    while (got < back) {
        const int32_t r =
            mForward->read(into + uint64_t(got) * frameBytes, (back - got) * frameBytes);
        if (r < 0) return -1;
        got += static_cast<uint32_t>(r);
        if (r == 0 || mForward->endState() != PcmSource::MORE) break;
    }
    reverseFrames(buffer, frames, frameBytes);
    mForward->setPosition(newPosition, end);
    return static_cast<int32_t>(frames);
}

void Reverser::reverseFrames(char* buffer, uint32_t frames, uint32_t frameBytes) {
    char temp[8];
    for (uint32_t i = 0; i < frames / 2; ++i) {
        char* a = buffer + uint64_t(i) * frameBytes;
        char* b = buffer + uint64_t(frames - 1 - i) * frameBytes;
        std::memcpy(temp, a, frameBytes);
        std::memcpy(a, b, frameBytes);
        std::memcpy(b, temp, frameBytes);
    }
}

}  // namespace wv
