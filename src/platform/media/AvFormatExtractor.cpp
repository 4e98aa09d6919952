#define WV_LOG_TAG "MediaLayer"
#include "platform/media/AvFormatExtractor.h"

extern "C" {
#include <libavformat/avformat.h>
}

#include "base/Log.h"
#include "platform/media/AvPacketTrack.h"
#include "platform/media/MimeTypes.h"
#include "platform/media/Mp3InfoFrame.h"

namespace wv {

std::shared_ptr<AvFormatExtractor> AvFormatExtractor::Create(
    const std::shared_ptr<DataSource>& source) {
    std::shared_ptr<AvDemuxer> demuxer = AvDemuxer::open(source);
    if (!demuxer) return nullptr;
    WV_LOGV("%s: container %s, %d streams", source->path().c_str(), demuxer->containerName(),
            demuxer->streamCount());
    return std::shared_ptr<AvFormatExtractor>(new AvFormatExtractor(std::move(demuxer)));
}

AvFormatExtractor::AvFormatExtractor(std::shared_ptr<AvDemuxer> demuxer)
    : mDemuxer(std::move(demuxer)) {
    for (int i = 0; i < mDemuxer->streamCount(); ++i) mTrackMeta.push_back(describeStream(i));
}

std::shared_ptr<MetaData> AvFormatExtractor::describeStream(int index) const {
    const AVStream* st = mDemuxer->stream(index);
    const AVCodecParameters* codec = st->codecpar;
    auto meta = std::make_shared<MetaData>();
    const bool picture = (st->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    meta->setCString(kKeyMIMEType, mimeTypeForCodec(*codec, picture).c_str());
    if (codec->bit_rate > 0 && codec->bit_rate <= INT32_MAX) {
        meta->setInt32(kKeyBitRate, static_cast<int32_t>(codec->bit_rate));
    }
    if (codec->codec_type != AVMEDIA_TYPE_AUDIO) return meta;

    meta->setCString(kKeyContainerName, mDemuxer->containerName());
    meta->setCString(kKeyCodecName, avcodec_get_name(codec->codec_id));
    for (const TagKey& tag : kTagKeys) {
        const char* value = mDemuxer->metadataValue(index, tag.name);
        if (value != nullptr && value[0] != '\0') meta->setCString(tag.key, value);
    }
    const std::string chapters = mDemuxer->chaptersText();
    if (!chapters.empty()) meta->setCString(kKeyChapters, chapters.c_str());
    char layout[64] = "";
    if (codec->ch_layout.nb_channels > 0 &&
        av_channel_layout_describe(&codec->ch_layout, layout, sizeof layout) > 0) {
        meta->setCString(kKeyChannelLayout, layout);
    }
    // FLAC and friends state the width they code; PCM codecs have one.
    const int bits = codec->bits_per_raw_sample > 0 ? codec->bits_per_raw_sample
                                                    : av_get_bits_per_sample(codec->codec_id);
    if (bits > 0) meta->setInt32(kKeyBitsPerSample, bits);
    if (codec->sample_rate > 0) meta->setInt32(kKeySampleRate, codec->sample_rate);
    const int channels = codec->ch_layout.nb_channels;
    if (channels > 0) {
        const int delivered = channels > 2 ? 2 : channels;
        meta->setInt32(kKeyChannelCount, delivered);
        meta->setInt32(kKeySourceChannelCount, channels);
        meta->setInt32(kKeyChannelMask, channelMaskForCount(delivered));
    }
    int64_t durationUs = -1;
    if (st->duration != AV_NOPTS_VALUE && st->duration > 0) {
        durationUs = av_rescale_q(st->duration, st->time_base, AV_TIME_BASE_Q);
    } else {
        durationUs = mDemuxer->containerDurationUs();
    }
    if (durationUs >= 0) meta->setInt64(kKeyDuration, durationUs);
    int64_t frames = 0;
    if (statedFrames(*st, &frames)) meta->setInt64(kKeyFrameCount, frames);
    return meta;
}

bool AvFormatExtractor::statedFrames(const AVStream& st, int64_t* frames) const {
    const AVCodecParameters& codec = *st.codecpar;
    const std::string container = mDemuxer->containerName();
    if (codec.codec_id == AV_CODEC_ID_MP3 && container == "mp3") {
        return mp3StatedFrames(*mDemuxer->source(), frames);
    }
    // Containers that count the samples themselves (a data size, a total
    // in the stream header), in a time base of one sample: their duration
    // is the length, unless FFmpeg only guessed it from the bit rate.
    static const char* const kCounting[] = {"wav", "w64", "aiff", "flac", "wv"};
    bool counting = false;
    for (const char* name : kCounting) counting = counting || container == name;
    if (!counting || st.duration == AV_NOPTS_VALUE || st.duration <= 0) return false;
    if (mDemuxer->durationGuessed() || st.time_base.num != 1 || codec.sample_rate <= 0 ||
        st.time_base.den != codec.sample_rate) {
        return false;
    }
    *frames = st.duration;
    return true;
}

std::shared_ptr<MediaSource> AvFormatExtractor::getTrack(size_t index) {
    if (index >= mTrackMeta.size()) return nullptr;
    return std::make_shared<AvPacketTrack>(mDemuxer, static_cast<int>(index),
                                           std::make_shared<MetaData>(*mTrackMeta[index]));
}

std::shared_ptr<MetaData> AvFormatExtractor::getTrackMetaData(size_t index, uint32_t) {
    if (index >= mTrackMeta.size()) return nullptr;
    return std::make_shared<MetaData>(*mTrackMeta[index]);
}

}  // namespace wv
