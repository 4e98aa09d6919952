#include "platform/media/AvPacketTrack.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cstring>

namespace wv {

AvPacketTrack::AvPacketTrack(std::shared_ptr<AvDemuxer> demuxer, int streamIndex,
                             std::shared_ptr<MetaData> format)
    : mDemuxer(std::move(demuxer)), mStreamIndex(streamIndex), mFormat(std::move(format)) {}

AvPacketTrack::~AvPacketTrack() {
    if (mStarted) stop();
}

status_t AvPacketTrack::start(MetaData*) {
    std::lock_guard<std::mutex> guard(mLock);
    if (mStarted) return INVALID_OPERATION;
    mPacket = av_packet_alloc();
    if (mPacket == nullptr) return NO_INIT;
    mGroup = MediaBufferGroup::create();
    mDemuxer->setStreamWanted(mStreamIndex, true);
    mStarted = true;
    return OK;
}

status_t AvPacketTrack::stop() {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mStarted) return INVALID_OPERATION;
    mDemuxer->setStreamWanted(mStreamIndex, false);
    av_packet_free(&mPacket);
    mGroup.reset();
    mStarted = false;
    return OK;
}

status_t AvPacketTrack::seek(int64_t timeUs, ReadOptions::SeekMode mode) {
    return mDemuxer->seek(mStreamIndex, timeUs, mode);
}

status_t AvPacketTrack::readPacket(AVPacket* packet, const ReadOptions* options) {
    int64_t seekUs;
    ReadOptions::SeekMode mode;
    if (options != nullptr && options->getSeekTo(&seekUs, &mode)) seek(seekUs, mode);
    return mDemuxer->readPacket(mStreamIndex, packet);
}

status_t AvPacketTrack::read(MediaBuffer** out, const ReadOptions* options) {
    *out = nullptr;
    std::lock_guard<std::mutex> guard(mLock);
    if (!mStarted) return NO_INIT;
    const status_t status = readPacket(mPacket, options);
    if (status != OK) return status;
    MediaBuffer* buffer = mGroup->acquire(static_cast<size_t>(mPacket->size));
    std::memcpy(buffer->data(), mPacket->data, static_cast<size_t>(mPacket->size));
    buffer->set_range(0, static_cast<size_t>(mPacket->size));
    if (mPacket->pts != AV_NOPTS_VALUE) {
        buffer->meta_data()->setInt64(kKeyTime, mDemuxer->toMediaUs(mStreamIndex, mPacket->pts));
    }
    av_packet_unref(mPacket);
    *out = buffer;
    return OK;
}

const AVCodecParameters* AvPacketTrack::codecParameters() const {
    return mDemuxer->stream(mStreamIndex)->codecpar;
}

int64_t AvPacketTrack::statedEndUs() const {
    const AVStream* stream = mDemuxer->stream(mStreamIndex);
    const char* container = mDemuxer->containerName();
    if (container == nullptr || std::strncmp(container, "mov,", 4) != 0 ||
        stream->duration == AV_NOPTS_VALUE || stream->duration <= 0) {
        return -1;
    }
    const int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
    return mDemuxer->toMediaUs(mStreamIndex, start + stream->duration);
}

}  // namespace wv
