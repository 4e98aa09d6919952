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

ChannelDecoder::~ChannelDecoder() {
    av_frame_free(&mFrame);
    av_packet_free(&mPacket);
    swr_free(&mConverter);
    avcodec_free_context(&mCodec);
    avformat_close_input(&mFormat);
}

bool ChannelDecoder::open(const std::string& path) {
    if (avformat_open_input(&mFormat, path.c_str(), nullptr, nullptr) < 0) return false;
    if (avformat_find_stream_info(mFormat, nullptr) < 0) return false;
    for (unsigned i = 0; i < mFormat->nb_streams && mStream < 0; ++i) {
        if (mFormat->streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) mStream = int(i);
    }
    if (mStream < 0) return false;
    const AVCodecParameters* parameters = mFormat->streams[mStream]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    if (codec == nullptr) return false;
    mCodec = avcodec_alloc_context3(codec);
    if (mCodec == nullptr || avcodec_parameters_to_context(mCodec, parameters) < 0 ||
        avcodec_open2(mCodec, codec, nullptr) < 0) {
        return false;
    }
    const int channels = mCodec->ch_layout.nb_channels;
    if (channels < 1 || mCodec->sample_rate < 1) return false;
    AVChannelLayout layout;
    if (mCodec->ch_layout.order == AV_CHANNEL_ORDER_NATIVE) {
        if (av_channel_layout_copy(&layout, &mCodec->ch_layout) < 0) return false;
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
                                         mCodec->sample_rate, &layout, mCodec->sample_fmt,
                                         mCodec->sample_rate, 0, nullptr);
    av_channel_layout_uninit(&layout);
    if (made < 0 || swr_init(mConverter) < 0) return false;
    mPacket = av_packet_alloc();
    mFrame = av_frame_alloc();
    mRate = static_cast<uint32_t>(mCodec->sample_rate);
    return mPacket != nullptr && mFrame != nullptr;
}

int ChannelDecoder::read(float* out, int maxFrames) {
    if (mCodec == nullptr || mFailed) return -1;
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
        const int received = avcodec_receive_frame(mCodec, mFrame);
        if (received == 0) {
            const bool converted = convert(mFrame);
            av_frame_unref(mFrame);
            if (!converted) {
                mFailed = true;
                return false;
            }
            if (!mPending.empty()) return true;
            continue;
        }
        if (received == AVERROR_EOF) {
            mEnded = true;
            break;
        }
        if (received != AVERROR(EAGAIN) || mInputEnded) {
            mFailed = true;
            return false;
        }
        // The codec wants a packet of the track, or the end.
        int status;
        while ((status = av_read_frame(mFormat, mPacket)) >= 0 &&
               mPacket->stream_index != mStream) {
            av_packet_unref(mPacket);
        }
        if (status < 0) {
            mInputEnded = true;
            status = avcodec_send_packet(mCodec, nullptr);
        } else {
            status = avcodec_send_packet(mCodec, mPacket);
            av_packet_unref(mPacket);
            // A packet the codec refuses is skipped, as ffmpeg does.
            if (status == AVERROR_INVALIDDATA) status = 0;
        }
        if (status < 0) {
            WV_LOGE("decoding failed");
            mFailed = true;
            return false;
        }
    }
    // What the converter still holds.
    return convert(nullptr) && !mPending.empty();
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
