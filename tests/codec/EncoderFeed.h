// Feeding an encoder as a render does, for the codec tests.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "codec/AudioEncoder.h"

namespace wvtest {

// Feeds `pcm` (interleaved, `channels` a frame) in blocks of `blockFrames`
// frames, following the writer's protocol (checkStatus() before each
// block): the first failed status, or 0. With `fedFrames`, feeding starts
// at *fedFrames and leaves there the frames fed, for a retry after a
// failure.
inline int feed(wv::AudioEncoder* encoder, const std::vector<int16_t>& pcm, uint32_t channels,
                size_t blockFrames, size_t* fedFrames = nullptr) {
    const size_t frames = pcm.size() / channels;
    size_t at = fedFrames != nullptr ? *fedFrames : 0;
    while (at < frames) {
        int status = encoder->checkStatus();
        if (status != 0) return status;
        const size_t n = std::min(blockFrames, frames - at);
        status = encoder->encoding(pcm.data() + at * channels, static_cast<int>(n * channels * 2));
        at += n;
        if (fedFrames != nullptr) *fedFrames = at;
        if (status != 0) return status;
    }
    return 0;
}

}  // namespace wvtest
