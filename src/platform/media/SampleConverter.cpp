#define WV_LOG_TAG "MediaLayer"
#include "platform/media/SampleConverter.h"

extern "C" {
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
}

#include "base/Log.h"

namespace wv {

SampleConverter::SampleConverter(int outRate, int outChannels)
    : mOutRate(outRate), mOutChannels(outChannels) {}

SampleConverter::~SampleConverter() {
    swr_free(&mSwr);
    av_channel_layout_uninit(&mInLayout);
}

bool SampleConverter::configureFor(const AVFrame& frame) {
    AVChannelLayout inLayout{};
    if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC || frame.ch_layout.nb_channels <= 0) {
        // Only the count is known: assume the usual order for that count.
        av_channel_layout_default(&inLayout, frame.ch_layout.nb_channels);
    } else if (av_channel_layout_copy(&inLayout, &frame.ch_layout) < 0) {
        return false;
    }
    if (mSwr != nullptr && frame.format == mInFormat && frame.sample_rate == mInRate &&
        av_channel_layout_compare(&inLayout, &mInLayout) == 0) {
        av_channel_layout_uninit(&inLayout);
        return true;
    }
    swr_free(&mSwr);
    av_channel_layout_uninit(&mInLayout);
    mInLayout = inLayout;
    mInFormat = frame.format;
    mInRate = frame.sample_rate;
    AVChannelLayout outLayout{};
    av_channel_layout_default(&outLayout, mOutChannels);
    const int ret = swr_alloc_set_opts2(&mSwr, &outLayout, AV_SAMPLE_FMT_S16, mOutRate, &mInLayout,
                                        static_cast<AVSampleFormat>(frame.format),
                                        frame.sample_rate, 0, nullptr);
    av_channel_layout_uninit(&outLayout);
    if (ret < 0 || swr_init(mSwr) < 0) {
        WV_LOGE("cannot convert %d channels of format %d at %d Hz", mInLayout.nb_channels,
                frame.format, frame.sample_rate);
        swr_free(&mSwr);
        mInFormat = -1;
        return false;
    }
    return true;
}

int SampleConverter::maxOutputFrames(const AVFrame* frame) {
    if (frame == nullptr) return mSwr ? swr_get_out_samples(mSwr, 0) : 0;
    if (frame->sample_rate <= 0 || !configureFor(*frame)) return -1;
    return swr_get_out_samples(mSwr, frame->nb_samples);
}

int SampleConverter::convert(const AVFrame* frame, int16_t* out, int capacityFrames) {
    uint8_t* planes[1] = {reinterpret_cast<uint8_t*>(out)};
    if (frame == nullptr) {
        return mSwr ? swr_convert(mSwr, planes, capacityFrames, nullptr, 0) : 0;
    }
    if (!configureFor(*frame)) return -1;
    return swr_convert(mSwr, planes, capacityFrames,
                       const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
}

void SampleConverter::reset() {
    // Rebuilding is the one sure way to drop what a resampler holds.
    swr_free(&mSwr);
    mInFormat = -1;
}

}  // namespace wv
