// The third stage of an item's reader: frames in the channel count its user
// asks for. Mono output keeps the left channel of stereo frames; stereo
// output duplicates mono ones; both in place. A stereo stage read as mono
// is asked for half the frames the buffer holds (it needs the room to
// fold), so such a read gives at most half of what it is asked.
//
// Threads: one thread at a time, like the reader that owns it.
#pragma once

#include <cstdint>

namespace wv {

class RateConverter;

class ChannelMapper {
public:
    // `upstream` is not owned and outlives the mapper.
    explicit ChannelMapper(RateConverter* upstream) : mUpstream(upstream) {}

    void setOutChannels(int32_t channels) { mOutChannels = channels; }
    // Up to `frames` frames (the buffer holds that many output frames, and
    // is zero beyond what the upstream writes); returns the frames made and
    // sets *state (PcmSource::EndState).
    uint32_t read(char* buffer, uint32_t frames, int32_t* state);

private:
    RateConverter* mUpstream;
    int32_t mOutChannels = 0;
};

}  // namespace wv
