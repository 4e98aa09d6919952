#define WV_LOG_TAG "FfmpegEncoder"
#include "codec/FfmpegEncoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/base64.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/Log.h"
#include "codec/FlacSegments.h"
#include "codec/MuxerOutput.h"

namespace wv {
namespace {

struct Container {
    const char* encoder;
    const char* muxer;
    bool lossy;             // takes the caller's bit rate
    uint32_t requiredRate;  // the only rate the codec encodes at, 0 if none
};

Container containerOf(EncodeFormat format) {
    switch (format) {
        case EncodeFormat::Flac:
            return {"flac", "flac", false, 0};
        case EncodeFormat::Opus:
            // Opus takes lower rates too, but its files are decoded at
            // 48 kHz whatever they were made from.
            return {"libopus", "opus", true, 48000};
        case EncodeFormat::Aac:
            return {"aac", "ipod", true, 0};
        case EncodeFormat::Vorbis:
            return {"libvorbis", "ogg", true, 0};
        default:
            return {nullptr, nullptr, false, 0};
    }
}

// The input's rate when the codec lists it (or lists none), else the
// nearest listed rate above it, else the highest listed.
uint32_t rateFor(const AVCodec* codec, uint32_t inputRate) {
    if (codec->supported_samplerates == nullptr) return inputRate;
    uint32_t above = 0, highest = 0;
    for (const int* rate = codec->supported_samplerates; *rate != 0; ++rate) {
        const auto r = static_cast<uint32_t>(*rate);
        if (r == inputRate) return r;
        if (r > inputRate && (above == 0 || r < above)) above = r;
        highest = std::max(highest, r);
    }
    return above != 0 ? above : highest;
}

// 16-bit when the codec takes it (FLAC then stores the input unchanged),
// else the codec's first format.
AVSampleFormat sampleFormatFor(const AVCodec* codec) {
    if (codec->sample_fmts == nullptr) return AV_SAMPLE_FMT_S16;
    for (const AVSampleFormat* f = codec->sample_fmts; *f != AV_SAMPLE_FMT_NONE; ++f) {
        if (*f == AV_SAMPLE_FMT_S16) return *f;
    }
    return codec->sample_fmts[0];
}

std::string errorText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

// A FLAC PICTURE block as Vorbis comments carry it: type, MIME type,
// description, size, depth and colours (0: unstated), then the data.
std::vector<uint8_t> pictureBlock(const std::vector<uint8_t>& data, const std::string& mime) {
    std::vector<uint8_t> block;
    const auto put32 = [&block](uint32_t value) {
        for (int shift = 24; shift >= 0; shift -= 8) block.push_back(uint8_t(value >> shift));
    };
    put32(3);  // the front cover
    put32(static_cast<uint32_t>(mime.size()));
    block.insert(block.end(), mime.begin(), mime.end());
    put32(0);  // no description
    for (int i = 0; i < 4; ++i) put32(0);
    put32(static_cast<uint32_t>(data.size()));
    block.insert(block.end(), data.begin(), data.end());
    return block;
}

// A PNG's or JPEG's width and height (the MP4 muxer wants them stated);
// 1 x 1 when they cannot be found.
void pictureSize(const std::vector<uint8_t>& data, int* width, int* height) {
    *width = *height = 1;
    const auto be16 = [&data](size_t at) { return (data[at] << 8) | data[at + 1]; };
    if (data.size() >= 24 && data[0] == 0x89 && data[1] == 'P') {
        *width = static_cast<int>((uint32_t(be16(16)) << 16) | uint32_t(be16(18)));
        *height = static_cast<int>((uint32_t(be16(20)) << 16) | uint32_t(be16(22)));
        return;
    }
    // JPEG: walk the markers to the first start of frame.
    size_t at = 2;
    while (at + 9 < data.size() && data[at] == 0xFF) {
        const uint8_t marker = data[at + 1];
        const bool startOfFrame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 &&
                                  marker != 0xCC;
        if (startOfFrame) {
            *height = be16(at + 5);
            *width = be16(at + 7);
            return;
        }
        at += 2 + static_cast<size_t>(be16(at + 2));
    }
}

}  // namespace

FfmpegEncoder::FfmpegEncoder(EncodeFormat format) : mFormat(format) {}

FfmpegEncoder::~FfmpegEncoder() { release(); }

void FfmpegEncoder::setOptions(const EncodeOptions& options) {
    mThreads = std::min(kMaxEncodeThreads, std::max(1, options.threads));
}

void FfmpegEncoder::release() {
    mSegments.reset();
    if (mMuxer != nullptr) mMuxer->pb = nullptr;  // owned by mOutput
    avformat_free_context(mMuxer);
    mMuxer = nullptr;
    mStream = nullptr;
    mOutput.reset();
    avcodec_free_context(&mCodec);
    swr_free(&mConverter);
    if (mFifo != nullptr) av_audio_fifo_free(mFifo);
    mFifo = nullptr;
    av_frame_free(&mFrame);
    av_packet_free(&mPacket);
    mOutputRate = 0;
    mBitRate = 0;
    mFrameSize = 0;
    mInputFrames = mSentFrames = 0;
    mTrailerWritten = false;
    mEndFailed = false;
    mEndPts = -1;
}

void FfmpegEncoder::dropHeld() {
    if (mOutput) mOutput->forgetHeld(heldLength());
    AudioEncoder::dropHeld();
}

uint32_t FfmpegEncoder::outputSampleRate() const {
    return mOutputRate != 0 ? mOutputRate : mInputRate;
}

int FfmpegEncoder::initEncoder(uint32_t sampleRate, uint32_t channels, uint32_t bitrate,
                               int format) {
    release();
    mInputRate = sampleRate;
    mInputChannels = channels;
    const Container container = containerOf(mFormat);
    if (container.encoder == nullptr || format != FORMAT_PCM_16) return INIT_FAILED;
    if ((channels != 1 && channels != 2) || sampleRate == 0) return INIT_FAILED;
    if (container.lossy && bitrate == 0) return INIT_FAILED;

    const AVCodec* codec = avcodec_find_encoder_by_name(container.encoder);
    if (codec == nullptr) {
        WV_LOGE("no %s encoder", container.encoder);
        return INIT_FAILED;
    }
    mOutputRate = container.requiredRate != 0 ? container.requiredRate : rateFor(codec, sampleRate);
    if (avformat_alloc_output_context2(&mMuxer, nullptr, container.muxer, nullptr) < 0) {
        release();
        return INIT_FAILED;
    }
    // libvorbis refuses nominal rates above what its modes reach for the
    // sample rate and channels: a lower one beats no file at all.
    int64_t bitRate = container.lossy ? int64_t{bitrate} * 1000 : 0;
    bool opened = openCodec(bitRate);
    while (!opened && mFormat == EncodeFormat::Vorbis && bitRate > 16000 && mOutputRate <= 50000) {
        bitRate = bitRate * 3 / 4;
        opened = openCodec(bitRate);
    }
    if (!opened && mFormat == EncodeFormat::Vorbis) {
        // Its bit rate modes cover neither rates above 50 kHz nor rates
        // under about 22 kbit/s a channel; its quality mode covers every
        // rate it encodes at.
        const int quality = vorbisQualityFor(int64_t{bitrate} * 1000 / channels);
        opened = openCodec(0, quality);
        if (opened) {
            WV_LOGW("libvorbis takes no bit rate near %u kbit/s at %u Hz, %u channels: quality %d",
                    bitrate, mOutputRate, channels, quality);
            bitRate = 0;
        }
    }
    if (!opened || !openConverter() || !openMuxer()) {
        release();
        return INIT_FAILED;
    }
    if (bitRate != int64_t{bitrate} * 1000 && bitRate != 0 && container.lossy) {
        WV_LOGW("%s takes %lld bit/s at most here", container.encoder,
                static_cast<long long>(bitRate));
    }
    mBitRate = bitRate;
    if (mFormat == EncodeFormat::Flac && mThreads > 1 && mOutputRate == mInputRate &&
        mCodec->sample_fmt == AV_SAMPLE_FMT_S16) {
        const bool globalHeader = (mCodec->flags & AV_CODEC_FLAG_GLOBAL_HEADER) != 0;
        mSegments.reset(new FlacSegments([this, globalHeader] { return newCodec(0, kNoQuality, globalHeader); },
                                         mThreads, mOutputRate, mInputChannels, static_cast<uint32_t>(mFrameSize)));
    }
    return 0;
}

AVCodecContext* FfmpegEncoder::newCodec(int64_t bitRate, int quality, bool globalHeader) const {
    const AVCodec* codec = avcodec_find_encoder_by_name(containerOf(mFormat).encoder);
    AVCodecContext* context = avcodec_alloc_context3(codec);
    if (context == nullptr) return nullptr;
    context->sample_rate = static_cast<int>(mOutputRate);
    context->sample_fmt = sampleFormatFor(codec);
    av_channel_layout_default(&context->ch_layout, static_cast<int>(mInputChannels));
    context->time_base = AVRational{1, static_cast<int>(mOutputRate)};
    context->bit_rate = bitRate;
    if (quality != kNoQuality) {
        context->flags |= AV_CODEC_FLAG_QSCALE;
        context->global_quality = quality * FF_QP2LAMBDA;
    }
    if (globalHeader) context->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    const int result = avcodec_open2(context, codec, nullptr);
    if (result < 0) {
        WV_LOGW("%s refuses %u Hz, %u channels, %lld bit/s: %s", codec->name, mOutputRate,
                mInputChannels, static_cast<long long>(bitRate), errorText(result).c_str());
        avcodec_free_context(&context);
    }
    return context;
}

int FfmpegEncoder::vorbisQualityFor(int64_t bitsPerChannel) {
    // libvorbis's nominal rates a channel at 44.1 kHz for qualities -1 to
    // 10: the highest quality that stays at or under the rate asked.
    static const int64_t kNominal[] = {22500,  32000,  40000,  48000,  56000, 64000,
                                       80000,  96000,  112000, 128000, 160000, 250000};
    int quality = -1;
    for (int q = 0; q < 12; ++q) {
        if (kNominal[q] <= bitsPerChannel) quality = q - 1;
    }
    return quality;
}

bool FfmpegEncoder::openCodec(int64_t bitRate, int quality) {
    avcodec_free_context(&mCodec);
    mCodec = newCodec(bitRate, quality, (mMuxer->oformat->flags & AVFMT_GLOBALHEADER) != 0);
    if (mCodec == nullptr) return false;
    const AVCodec* codec = mCodec->codec;
    const bool anySize = (codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE) != 0;
    mFrameSize = anySize || mCodec->frame_size <= 0 ? 4096 : mCodec->frame_size;
    return true;
}

bool FfmpegEncoder::openConverter() {
    AVChannelLayout layout;
    av_channel_layout_default(&layout, static_cast<int>(mInputChannels));
    const int made =
        swr_alloc_set_opts2(&mConverter, &layout, mCodec->sample_fmt, static_cast<int>(mOutputRate),
                            &layout, AV_SAMPLE_FMT_S16, static_cast<int>(mInputRate), 0, nullptr);
    av_channel_layout_uninit(&layout);
    if (made < 0 || swr_init(mConverter) < 0) return false;
    mFifo = av_audio_fifo_alloc(mCodec->sample_fmt, static_cast<int>(mInputChannels), mFrameSize);
    mFrame = av_frame_alloc();
    mPacket = av_packet_alloc();
    return mFifo != nullptr && mFrame != nullptr && mPacket != nullptr;
}

bool FfmpegEncoder::openMuxer() {
    mOutput.reset(new MuxerOutput(*this));
    if (mOutput->context() == nullptr) return false;
    mMuxer->pb = mOutput->context();
    mMuxer->flags |= AVFMT_FLAG_CUSTOM_IO;
    mStream = avformat_new_stream(mMuxer, nullptr);
    if (mStream == nullptr) return false;
    if (avcodec_parameters_from_context(mStream->codecpar, mCodec) < 0) return false;
    mStream->time_base = mCodec->time_base;

    if (!addTags()) return false;
    // MP4 takes a cover as a picture stream whose one packet the muxer
    // keeps for its tags.
    AVStream* cover = nullptr;
    if (mTags.cover && mFormat == EncodeFormat::Aac) {
        cover = avformat_new_stream(mMuxer, nullptr);
        if (cover == nullptr) return false;
        cover->disposition = AV_DISPOSITION_ATTACHED_PIC;
        cover->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
        cover->codecpar->codec_id = mTags.coverMime == "image/png" ? AV_CODEC_ID_PNG : AV_CODEC_ID_MJPEG;
        cover->time_base = AVRational{1, 90000};
        pictureSize(*mTags.cover, &cover->codecpar->width, &cover->codecpar->height);
    }
    AVDictionary* options = nullptr;
    if (mFormat == EncodeFormat::Aac) {
        // The edit list's length is counted in the movie's time scale: at
        // the sample rate it cuts the padding to the frame, not to the
        // millisecond.
        av_dict_set(&options, "movie_timescale", std::to_string(mOutputRate).c_str(), 0);
    }
    const int result = avformat_write_header(mMuxer, &options);
    av_dict_free(&options);
    if (result < 0) {
        WV_LOGE("%s header not written: %s", mMuxer->oformat->name, errorText(result).c_str());
        return false;
    }
    if (cover != nullptr) {
        if (av_new_packet(mPacket, static_cast<int>(mTags.cover->size())) < 0) return false;
        std::memcpy(mPacket->data, mTags.cover->data(), mTags.cover->size());
        mPacket->stream_index = cover->index;
        mPacket->pts = mPacket->dts = 0;
        mPacket->flags |= AV_PKT_FLAG_KEY;
        if (av_interleaved_write_frame(mMuxer, mPacket) < 0) return false;
    }
    return mOutput->commit() == WRITE_OK;
}

bool FfmpegEncoder::addTags() {
    for (const auto& tag : mTags.tags) {
        if (av_dict_set(&mMuxer->metadata, tag.first.c_str(), tag.second.c_str(), 0) < 0) return false;
    }
    if (mTags.cover && mFormat != EncodeFormat::Aac) {
        const std::vector<uint8_t> block = pictureBlock(*mTags.cover, mTags.coverMime);
        std::string text(AV_BASE64_SIZE(block.size()), '\0');
        if (av_base64_encode(&text[0], static_cast<int>(text.size()), block.data(),
                             static_cast<int>(block.size())) == nullptr) {
            return false;
        }
        text.resize(std::strlen(text.c_str()));
        if (av_dict_set(&mMuxer->metadata, "METADATA_BLOCK_PICTURE", text.c_str(), 0) < 0) {
            return false;
        }
    }
    // FFmpeg's FLAC and Vorbis muxers write no chapters, and its Opus muxer
    // rounds a chapter's seconds up from half a second on (1.750 s becomes
    // "00:00:02.750"): the comments are written here for all three.
    if (mFormat != EncodeFormat::Aac) {
        for (size_t i = 0; i < mTags.chapters.size(); ++i) {
            const int64_t ms = (mTags.chapters[i].startUs + 500) / 1000;
            char key[32], time[48];
            std::snprintf(key, sizeof key, "CHAPTER%03zu", i);
            std::snprintf(time, sizeof time, "%02lld:%02lld:%02lld.%03lld",
                          static_cast<long long>(ms / 3600000), static_cast<long long>(ms / 60000 % 60),
                          static_cast<long long>(ms / 1000 % 60), static_cast<long long>(ms % 1000));
            if (av_dict_set(&mMuxer->metadata, key, time, 0) < 0) return false;
            std::strncat(key, "NAME", sizeof key - std::strlen(key) - 1);
            if (av_dict_set(&mMuxer->metadata, key, mTags.chapters[i].title.c_str(), 0) < 0) return false;
        }
    }
    // MP4's chapters go to the muxer at the trailer (endChapters), once the
    // last one's end is known.
    return true;
}

bool FfmpegEncoder::endChapters() {
    const unsigned count = static_cast<unsigned>(mTags.chapters.size());
    if (mFormat != EncodeFormat::Aac || count == 0 || mInputRate == 0) return true;
    const auto totalMs = static_cast<int64_t>(mInputFrames * 1000 / mInputRate);
    // Freed with the muxer's context, as its own chapters are.
    auto** chapters = static_cast<AVChapter**>(av_calloc(count, sizeof(AVChapter*)));
    if (chapters == nullptr) return false;
    mMuxer->chapters = chapters;
    for (unsigned i = 0; i < count; ++i) {
        auto* chapter = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
        if (chapter == nullptr) return false;
        chapters[i] = chapter;
        mMuxer->nb_chapters = i + 1;
        chapter->id = i + 1;
        chapter->time_base = AVRational{1, 1000};
        chapter->start = (mTags.chapters[i].startUs + 500) / 1000;
        chapter->end = chapterEndMs(mTags.chapters, i, totalMs);
        if (av_dict_set(&chapter->metadata, "title", mTags.chapters[i].title.c_str(), 0) < 0) {
            return false;
        }
    }
    return true;
}

int FfmpegEncoder::encoding(const int16_t* pcm, int bytes) {
    if (mCodec == nullptr || mTrailerWritten || bytes < 0) return WRITE_ERROR;
    const int frameBytes = static_cast<int>(mInputChannels) * 2;
    int frames = bytes / frameBytes;
    if (mSegments) {
        if (!pushSegments(pcm, frames)) return WRITE_ERROR;
        frames = 0;
    }
    while (frames > 0) {
        const int chunk = std::min(frames, static_cast<int>(MAX_FRAMES_PER_CONVERSION));
        if (!convert(pcm, chunk)) return WRITE_ERROR;
        mInputFrames += static_cast<uint64_t>(chunk);
        pcm += static_cast<size_t>(chunk) * mInputChannels;
        frames -= chunk;
        while (av_audio_fifo_size(mFifo) >= mFrameSize) {
            if (!sendFrame(mFrameSize)) return WRITE_ERROR;
        }
    }
    return mOutput->commit();
}

bool FfmpegEncoder::convert(const int16_t* pcm, int frames) {
    const int room = swr_get_out_samples(mConverter, frames);
    if (room < 0) return false;
    const bool planar = av_sample_fmt_is_planar(mCodec->sample_fmt) != 0;
    const int planes = planar ? static_cast<int>(mInputChannels) : 1;
    const size_t planeBytes = static_cast<size_t>(room) *
                              static_cast<size_t>(av_get_bytes_per_sample(mCodec->sample_fmt)) *
                              (planar ? 1 : mInputChannels);
    uint8_t* out[2] = {};
    for (int p = 0; p < planes; ++p) {
        if (mConverted[p].size() < planeBytes) mConverted[p].resize(planeBytes);
        out[p] = mConverted[p].data();
    }
    const auto* in = reinterpret_cast<const uint8_t*>(pcm);
    const int made = swr_convert(mConverter, out, room, pcm != nullptr ? &in : nullptr, frames);
    if (made < 0) return false;
    return av_audio_fifo_write(mFifo, reinterpret_cast<void**>(out), made) == made;
}

bool FfmpegEncoder::sendFrame(int count) {
    mFrame->nb_samples = count;
    mFrame->format = mCodec->sample_fmt;
    mFrame->sample_rate = mCodec->sample_rate;
    if (av_channel_layout_copy(&mFrame->ch_layout, &mCodec->ch_layout) < 0) return false;
    if (av_frame_get_buffer(mFrame, 0) < 0) return false;
    const int read = av_audio_fifo_read(mFifo, reinterpret_cast<void**>(mFrame->data), count);
    mFrame->pts = static_cast<int64_t>(mSentFrames);
    mSentFrames += static_cast<uint64_t>(count);
    const int sent = read == count ? avcodec_send_frame(mCodec, mFrame) : -1;
    av_frame_unref(mFrame);
    if (sent < 0) {
        WV_LOGE("%s encode failed: %s", mCodec->codec->name, errorText(sent).c_str());
        return false;
    }
    return writePackets();
}

bool FfmpegEncoder::writePackets() {
    for (;;) {
        const int received = avcodec_receive_packet(mCodec, mPacket);
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) return true;
        if (received < 0) return false;
        if (mEndPts >= 0 && mPacket->pts != AV_NOPTS_VALUE) {
            // Past the input's end the codec may still emit a packet of
            // padding, or end its stream short of a whole block: cut at the
            // end, so that the container's end position (the Ogg granule,
            // the MP4 sample durations) falls within the last packet kept,
            // where demuxers can trim.
            // A packet of no audio that carries new stream information
            // (FLAC's length and MD5, sent at the end) is kept: the muxer
            // writes it over the header's.
            const bool infoOnly = mPacket->size == 0 && mPacket->side_data_elems > 0;
            if (mPacket->pts >= mEndPts && !infoOnly) {
                av_packet_unref(mPacket);
                continue;
            }
            mPacket->duration = std::max<int64_t>(0, std::min(mPacket->duration, mEndPts - mPacket->pts));
        }
        av_packet_rescale_ts(mPacket, mCodec->time_base, mStream->time_base);
        mPacket->stream_index = mStream->index;
        // Takes the packet's data and leaves it blank for the next one.
        if (av_interleaved_write_frame(mMuxer, mPacket) < 0) return false;
    }
}

bool FfmpegEncoder::pushSegments(const int16_t* pcm, int frames) {
    std::vector<FlacSegments::Frame> ready;
    if (!mSegments->push(pcm, static_cast<size_t>(frames), &ready)) return false;
    mInputFrames += static_cast<uint64_t>(frames);
    for (const FlacSegments::Frame& frame : ready) {
        if (!muxFrame(frame.bytes.data(), frame.bytes.size(), frame.samples)) return false;
    }
    return true;
}

bool FfmpegEncoder::finishSegments() {
    std::vector<FlacSegments::Frame> ready;
    if (!mSegments->finish(&ready)) return false;
    for (const FlacSegments::Frame& frame : ready) {
        if (!muxFrame(frame.bytes.data(), frame.bytes.size(), frame.samples)) return false;
    }
    // The information one encoder sends last, for the muxer to write over
    // its header's.
    std::vector<uint8_t> info(mCodec->extradata, mCodec->extradata + mCodec->extradata_size);
    if (!mSegments->restateStreamInfo(&info)) return false;
    uint8_t* side = av_packet_new_side_data(mPacket, AV_PKT_DATA_NEW_EXTRADATA, info.size());
    if (side == nullptr) return false;
    std::memcpy(side, info.data(), info.size());
    return muxFrame(nullptr, 0, 0);
}

bool FfmpegEncoder::muxFrame(const uint8_t* data, size_t size, uint32_t samples) {
    if (size > 0) {
        if (av_new_packet(mPacket, static_cast<int>(size)) < 0) return false;
        std::memcpy(mPacket->data, data, size);
    }
    mPacket->pts = mPacket->dts = static_cast<int64_t>(mSentFrames);
    mPacket->duration = samples;
    mSentFrames += samples;
    av_packet_rescale_ts(mPacket, mCodec->time_base, mStream->time_base);
    mPacket->stream_index = mStream->index;
    return av_interleaved_write_frame(mMuxer, mPacket) >= 0;
}

bool FfmpegEncoder::encodeRest() {
    if (mSegments) return finishSegments();
    // What the converter still holds: its filter's tail.
    if (mOutputRate != mInputRate) {
        for (;;) {
            const int before = av_audio_fifo_size(mFifo);
            if (!convert(nullptr, 0)) return false;
            if (av_audio_fifo_size(mFifo) == before) break;
        }
    }
    // Exactly the input's length at the output rate, rounded to the
    // nearest frame: the converter's tail can run a little long or short.
    const uint64_t total =
        (mInputFrames * mOutputRate + mInputRate / 2) / static_cast<uint64_t>(mInputRate);
    int64_t left = static_cast<int64_t>(total) - static_cast<int64_t>(mSentFrames);
    const int64_t held = av_audio_fifo_size(mFifo);
    if (held < left) {
        std::vector<uint8_t> silence;
        const bool planar = av_sample_fmt_is_planar(mCodec->sample_fmt) != 0;
        const int missing = static_cast<int>(left - held);
        silence.resize(static_cast<size_t>(missing) * av_get_bytes_per_sample(mCodec->sample_fmt) *
                       mInputChannels);
        void* planes[2] = {silence.data(), silence.data()};
        if (!planar) planes[1] = nullptr;
        if (av_audio_fifo_write(mFifo, planes, missing) != missing) return false;
    }
    mEndPts = static_cast<int64_t>(total);
    while (left > 0) {
        // The last frame is short: its duration is what tells the
        // container where the audio ends.
        const int count = static_cast<int>(std::min<int64_t>(left, mFrameSize));
        if (!sendFrame(count)) return false;
        left -= count;
    }
    if (avcodec_send_frame(mCodec, nullptr) < 0) return false;
    return writePackets();
}

int FfmpegEncoder::flushEncoding() {
    const int held = checkStatus();
    if (held != WRITE_OK) return held;
    if (mCodec == nullptr) return 0;  // never set up: nothing was encoded
    if (mEndFailed) return WRITE_ERROR;
    if (mTrailerWritten) return 0;  // a retry: the held trailer bytes just went out
    mTrailerWritten = true;
    mEndFailed = true;
    if (!encodeRest()) return WRITE_ERROR;
    if (!endChapters()) return WRITE_ERROR;
    const int trailer = av_write_trailer(mMuxer);
    const int status = mOutput->commit();
    if (trailer < 0) {
        WV_LOGE("%s trailer not written: %s", mMuxer->oformat->name, errorText(trailer).c_str());
        // A trailer lost to a full storage is reported as that.
        return status != WRITE_OK ? status : WRITE_ERROR;
    }
    // A remainder still held can be retried by the next call.
    mEndFailed = false;
    return status == WRITE_OK ? 0 : status;
}

}  // namespace wv
