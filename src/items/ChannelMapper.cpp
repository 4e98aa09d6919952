#include "items/ChannelMapper.h"

#include <cstring>

#include <wavoryx/dsp.h>

#include "items/RateConverter.h"

namespace wv {

uint32_t ChannelMapper::read(char* buffer, uint32_t frames, int32_t* state) {
    const RateConverter::Plan plan = mUpstream->plan();
    const int32_t inChannels = plan.channels();
    const bool fold = mOutChannels == 1 && inChannels == 2;
    const uint32_t asked = fold ? frames / 2 : frames;
    const uint32_t n = mUpstream->read(plan, buffer, asked, state);
    if (fold) {
        if (plan.converting) {
            // The converter's output past n is already silence.
            Stereo2Mono(buffer, asked);
        } else {
            Stereo2Mono(buffer, n);
            // The folded frames leave stereo data behind them; what is not
            // handed out stays silent.
            std::memset(buffer + uint64_t(n) * 2, 0, uint64_t(n) * 2);
        }
    } else if (mOutChannels == 2 && inChannels == 1) {
        Mono2Stereo(buffer, n);
    }
    return n;
}

}  // namespace wv
