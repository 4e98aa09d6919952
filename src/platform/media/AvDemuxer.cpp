#define WV_LOG_TAG "MediaLayer"
#include "platform/media/AvDemuxer.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

#include <cinttypes>
#include <climits>

#include "base/Log.h"

namespace wv {
namespace {
constexpr int kIoBufferBytes = 64 * 1024;
// Input read since the last packet beyond which the rest counts as no audio.
// A parser fed endless garbage (a pipe of zeros after a FLAC stream) buffers
// all of it and, past 512 MB, aborts the process inside FFmpeg; no real
// container puts 64 MB between two packets.
constexpr int64_t kMaxBytesWithoutPacket = 64LL * 1024 * 1024;

void freeIo(AVIOContext** io) {
    if (*io == nullptr) return;
    // The buffer may have been replaced by the parser; free the current one.
    av_freep(&(*io)->buffer);
    avio_context_free(io);
}
}  // namespace

int AvDemuxer::ioRead(void* opaque, uint8_t* buffer, int size) {
    auto* self = static_cast<AvDemuxer*>(opaque);
    const ssize_t n =
        self->mSource->readSomeAt(self->mIoPosition, buffer, static_cast<size_t>(size));
    if (n < 0) return AVERROR(EIO);
    if (n == 0) return AVERROR_EOF;
    self->mIoPosition += n;
    if (self->mOpened && (self->mSincePacket += n) > kMaxBytesWithoutPacket) {
        if (!self->mGarbageEnded) {
            WV_LOGW("%s: no packet in %" PRId64 " MB: taken as the end of the audio",
                    self->mSource->path().c_str(), kMaxBytesWithoutPacket >> 20);
        }
        self->mGarbageEnded = true;
        return AVERROR_EOF;
    }
    return static_cast<int>(n);
}

int64_t AvDemuxer::ioSeek(void* opaque, int64_t offset, int whence) {
    auto* self = static_cast<AvDemuxer*>(opaque);
    int64_t size = -1;
    const int how = whence & ~AVSEEK_FORCE;
    if (how == AVSEEK_SIZE || how == SEEK_END) {
        if (self->mSource->getSize(&size) != OK) return AVERROR(EIO);
        if (how == AVSEEK_SIZE) return size;
    }
    int64_t target;
    switch (how) {
        case SEEK_SET:
            target = offset;
            break;
        case SEEK_CUR:
            target = self->mIoPosition + offset;
            break;
        case SEEK_END:
            target = size + offset;
            break;
        default:
            return AVERROR(EINVAL);
    }
    if (target < 0) return AVERROR(EINVAL);
    self->mIoPosition = target;
    return target;
}

std::shared_ptr<AvDemuxer> AvDemuxer::open(const std::shared_ptr<DataSource>& source) {
    std::shared_ptr<AvDemuxer> self(new AvDemuxer());
    self->mSource = source;
    auto* ioBuffer = static_cast<uint8_t*>(av_malloc(kIoBufferBytes));
    if (ioBuffer == nullptr) return nullptr;
    // A stream gets no seek callback: the parsers then read it front to back.
    self->mIo = avio_alloc_context(ioBuffer, kIoBufferBytes, 0, self.get(), &AvDemuxer::ioRead,
                                   nullptr, source->isStream() ? nullptr : &AvDemuxer::ioSeek);
    if (self->mIo == nullptr) {
        av_free(ioBuffer);
        return nullptr;
    }
    if (source->isStream()) self->mIo->seekable = 0;
    AVFormatContext* format = avformat_alloc_context();
    if (format == nullptr) return nullptr;
    format->pb = self->mIo;
    format->flags |= AVFMT_FLAG_CUSTOM_IO;
    // The path only serves as a hint (its extension) to format detection.
    if (avformat_open_input(&format, source->path().c_str(), nullptr, nullptr) < 0) {
        return nullptr;  // the context was freed by the failed open
    }
    self->mFormat = format;
    if (avformat_find_stream_info(format, nullptr) < 0) {
        WV_LOGW("stream info incomplete for %s", source->path().c_str());
    }
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const AVStream* st = format->streams[i];
        self->mOriginPts.push_back(
            st->start_time != AV_NOPTS_VALUE && st->start_time > 0 ? st->start_time : 0);
        format->streams[i]->discard = AVDISCARD_ALL;
    }
    // Headers (tags, pictures) may be long; the limit holds between packets.
    self->mOpened = true;
    return self;
}

AvDemuxer::~AvDemuxer() {
    avformat_close_input(&mFormat);
    freeIo(&mIo);
}

int AvDemuxer::streamCount() const { return static_cast<int>(mFormat->nb_streams); }

const AVStream* AvDemuxer::stream(int index) const { return mFormat->streams[index]; }

const char* AvDemuxer::containerName() const { return mFormat->iformat->name; }

const char* AvDemuxer::metadataValue(int index, const char* name) const {
    const AVDictionaryEntry* entry = av_dict_get(mFormat->metadata, name, nullptr, 0);
    if (entry == nullptr) entry = av_dict_get(mFormat->streams[index]->metadata, name, nullptr, 0);
    return entry != nullptr ? entry->value : nullptr;
}

std::string AvDemuxer::chaptersText() const {
    std::string text;
    for (unsigned i = 0; i < mFormat->nb_chapters; ++i) {
        const AVChapter* chapter = mFormat->chapters[i];
        const AVDictionaryEntry* title = av_dict_get(chapter->metadata, "title", nullptr, 0);
        std::string name = title != nullptr ? title->value : "";
        for (char& c : name) {
            if (c == '\n' || c == '\r') c = ' ';
        }
        text += std::to_string(av_rescale_q(chapter->start, chapter->time_base, AV_TIME_BASE_Q)) +
                " " + std::to_string(av_rescale_q(chapter->end, chapter->time_base, AV_TIME_BASE_Q)) +
                " " + name + "\n";
    }
    return text;
}

int64_t AvDemuxer::containerDurationUs() const {
    return mFormat->duration == AV_NOPTS_VALUE || mFormat->duration <= 0 ? -1 : mFormat->duration;
}

bool AvDemuxer::durationGuessed() const {
    return mFormat->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE;
}

void AvDemuxer::setStreamWanted(int index, bool wanted) {
    std::lock_guard<std::mutex> guard(mLock);
    mFormat->streams[index]->discard = wanted ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
}

status_t AvDemuxer::readPacket(int index, AVPacket* packet) {
    std::lock_guard<std::mutex> guard(mLock);
    for (;;) {
        const int ret = av_read_frame(mFormat, packet);
        if (ret == AVERROR_EOF) return ERROR_END_OF_STREAM;
        if (ret == AVERROR(EAGAIN)) continue;
        if (ret < 0) return ret == AVERROR(EIO) ? ERROR_IO : ERROR_MALFORMED;
        mSincePacket = 0;
        if (packet->stream_index == index) return OK;
        av_packet_unref(packet);
    }
}

int64_t AvDemuxer::toMediaUs(int index, int64_t pts) const {
    return av_rescale_q(pts - mOriginPts[index], mFormat->streams[index]->time_base,
                        AV_TIME_BASE_Q);
}

int64_t AvDemuxer::fromMediaUs(int index, int64_t timeUs) const {
    return av_rescale_q(timeUs, AV_TIME_BASE_Q, mFormat->streams[index]->time_base) +
           mOriginPts[index];
}

status_t AvDemuxer::seek(int index, int64_t timeUs, MediaSource::ReadOptions::SeekMode mode) {
    std::lock_guard<std::mutex> guard(mLock);
    mSincePacket = 0;
    mGarbageEnded = false;
    if (timeUs < 0) timeUs = 0;
    const int64_t ts = fromMediaUs(index, timeUs);
    int ret;
    switch (mode) {
        case MediaSource::ReadOptions::SEEK_PREVIOUS_SYNC:
            ret = avformat_seek_file(mFormat, index, INT64_MIN, ts, ts, 0);
            break;
        case MediaSource::ReadOptions::SEEK_NEXT_SYNC:
            ret = avformat_seek_file(mFormat, index, ts, ts, INT64_MAX, 0);
            break;
        default:
            ret = avformat_seek_file(mFormat, index, INT64_MIN, ts, INT64_MAX, 0);
            break;
    }
    // Some formats can only round one way; any landing near the time will do.
    if (ret < 0) ret = av_seek_frame(mFormat, index, ts, AVSEEK_FLAG_BACKWARD);
    if (ret < 0) ret = av_seek_frame(mFormat, index, ts, AVSEEK_FLAG_ANY);
    if (ret < 0) {
        WV_LOGW("seek to %" PRId64 " us failed in %s", timeUs, mSource->path().c_str());
        return ERROR_UNSUPPORTED;
    }
    return OK;
}

}  // namespace wv
