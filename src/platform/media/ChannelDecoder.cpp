#define WV_LOG_TAG "ChannelDecoder"
#include "platform/media/ChannelDecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstring>

#include "base/Log.h"
#include "platform/media/AvDemuxer.h"
#include "platform/media/AvPacketTrack.h"
#include "platform/media/DataSource.h"

namespace wv {
namespace {

// The channels ITU-R BS.1770 weighs as surround, as ffmpeg's ebur128
// filter takes them.
constexpr uint64_t kSurroundMask = AV_CH_BACK_LEFT | AV_CH_BACK_CENTER | AV_CH_BACK_RIGHT |
                                   AV_CH_TOP_BACK_LEFT | AV_CH_TOP_BACK_CENTER |
                                   AV_CH_TOP_BACK_RIGHT | AV_CH_SIDE_LEFT | AV_CH_SIDE_RIGHT |
                                   AV_CH_SURROUND_DIRECT_LEFT | AV_CH_SURROUND_DIRECT_RIGHT;

ChannelDecoder::Place placeOf(int channel) {
    if (channel == AV_CHAN_LOW_FREQUENCY || channel == AV_CHAN_LOW_FREQUENCY_2) {
        return ChannelDecoder::Place::kLowFrequency;
    }
    if (channel >= 0 && channel < 64 && ((uint64_t{1} << channel) & kSurroundMask) != 0) {
        return ChannelDecoder::Place::kSurround;
    }
    return ChannelDecoder::Place::kFront;
}

}  // namespace

ChannelDecoder::~ChannelDecoder() { swr_free(&mConverter); }

bool ChannelDecoder::open(const std::string& path) {
    const std::shared_ptr<DataSource> source = DataSource::CreateFromURI(path.c_str());
    const std::shared_ptr<AvDemuxer> demuxer = source ? AvDemuxer::open(source) : nullptr;
    if (!demuxer) return false;
    int stream = -1;
    for (int i = 0; i < demuxer->streamCount() && stream < 0; ++i) {
        if (demuxer->stream(i)->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) stream = i;
    }
    if (stream < 0) return false;
    mCore = DecoderCore::open(
        std::make_shared<AvPacketTrack>(demuxer, stream, std::make_shared<MetaData>()));
    if (!mCore || mCore->start() != OK) return false;
    const AVCodecContext* codec = mCore->context();
    const int channels = codec->ch_layout.nb_channels;
    if (channels < 1 || codec->sample_rate < 1) return false;
    AVChannelLayout layout;
    if (codec->ch_layout.order == AV_CHANNEL_ORDER_NATIVE) {
        if (av_channel_layout_copy(&layout, &codec->ch_layout) < 0) return false;
    } else {
        av_channel_layout_default(&layout, channels);
    }
    // In a native layout the channels follow the order of their bits.
    uint64_t mask = layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
    for (int c = 0; c < channels; ++c) {
        int channel = -1;
        if (mask != 0) {
            channel = __builtin_ctzll(mask);
            mask &= mask - 1;
        }
        mPlaces.push_back(placeOf(channel));
    }
    const int made = swr_alloc_set_opts2(&mConverter, &layout, AV_SAMPLE_FMT_FLT,
                                         codec->sample_rate, &layout, codec->sample_fmt,
                                         codec->sample_rate, 0, nullptr);
    av_channel_layout_uninit(&layout);
    if (made < 0 || swr_init(mConverter) < 0) return false;
    mRate = static_cast<uint32_t>(codec->sample_rate);
    return true;
}

int ChannelDecoder::read(float* out, int maxFrames) {
    if (mConverter == nullptr || mFailed) return -1;
    const size_t channels = mPlaces.size();
    size_t written = 0;
    const size_t wanted = static_cast<size_t>(std::max(maxFrames, 0)) * channels;
    while (written < wanted) {
        if (mPendingAt == mPending.size()) {
            mPending.clear();
            mPendingAt = 0;
            if (!decodeMore()) break;
            continue;
        }
        const size_t n = std::min(wanted - written, mPending.size() - mPendingAt);
        std::memcpy(out + written, mPending.data() + mPendingAt, n * sizeof(float));
        written += n;
        mPendingAt += n;
    }
    if (mFailed) return -1;
    return static_cast<int>(written / channels);
}

bool ChannelDecoder::decodeMore() {
    while (!mEnded) {
        switch (mCore->decode(*this)) {
            case DecoderCore::Step::kFrame:
                if (!convert(mCore->frame())) {
                    mFailed = true;
                    return false;
                }
                if (!mPending.empty()) return true;
                break;
            case DecoderCore::Step::kDrained:
                mEnded = true;
                break;
            case DecoderCore::Step::kStopped:
            case DecoderCore::Step::kHungry:
                WV_LOGE("decoding failed");
                mFailed = true;
                return false;
        }
    }
    // What the converter still holds.
    return convert(nullptr) && !mPending.empty();
}

DecoderCore::Feed::Input ChannelDecoder::nextPacket(AVPacket* packet) {
    return mCore->track().readPacket(packet, nullptr) == OK ? Input::kPacket : Input::kEnd;
}

bool ChannelDecoder::skipDamaged(bool refused, int error) {
    return refused && error == AVERROR_INVALIDDATA;
}

bool ChannelDecoder::convert(const AVFrame* frame) {
    const int inFrames = frame != nullptr ? frame->nb_samples : 0;
    const int room = swr_get_out_samples(mConverter, inFrames);
    if (room < 0) return false;
    if (room == 0) return true;
    mPending.resize(static_cast<size_t>(room) * mPlaces.size());
    uint8_t* out[1] = {reinterpret_cast<uint8_t*>(mPending.data())};
    const int made =
        swr_convert(mConverter, out, room,
                    frame != nullptr ? const_cast<const uint8_t**>(frame->extended_data) : nullptr,
                    inFrames);
    if (made < 0) return false;
    mPending.resize(static_cast<size_t>(made) * mPlaces.size());
    mPendingAt = 0;
    return true;
}

}  // namespace wv
