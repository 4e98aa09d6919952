#include "MediaDecode.h"

#include <strings.h>

#include <cstring>

#include "platform/media/AudioCodec.h"
#include "platform/media/DataSource.h"
#include "platform/media/MediaExtractor.h"

namespace wvtest {

std::shared_ptr<wv::MediaSource> openPcmSource(const std::string& path, std::string* mime) {
    auto data = wv::DataSource::CreateFromURI(path.c_str());
    if (!data) return nullptr;
    auto extractor = wv::MediaExtractor::Create(data);
    if (!extractor) return nullptr;
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        auto meta = extractor->getTrackMetaData(i);
        const char* type = nullptr;
        if (!meta->findCString(wv::kKeyMIMEType, &type) || strncasecmp(type, "audio/", 6) != 0) continue;
        if (mime) *mime = type;
        auto track = extractor->getTrack(i);
        std::shared_ptr<wv::MediaSource> source =
            std::strcmp(type, wv::MEDIA_MIMETYPE_AUDIO_RAW) == 0 ? track : wv::AudioCodec::Create(meta, track);
        if (!source || source->start() != wv::OK) return nullptr;
        return source;
    }
    return nullptr;
}

int readAll(wv::MediaSource& source, DecodedAudio* out, int64_t seekUs, size_t maxBuffers) {
    auto format = source.getFormat();
    int32_t rate = 0, channels = 0;
    format->findInt32(wv::kKeySampleRate, &rate);
    format->findInt32(wv::kKeyChannelCount, &channels);
    out->rate = rate;
    out->channels = channels;
    wv::MediaSource::ReadOptions options;
    if (seekUs >= 0) options.setSeekTo(seekUs);
    for (size_t n = 0; n < maxBuffers; ++n) {
        wv::MediaBuffer* buffer = nullptr;
        const int status = source.read(&buffer, &options);
        options.clearSeekTo();
        if (status != wv::OK) return status;
        const auto* bytes = static_cast<const uint8_t*>(buffer->data()) + buffer->range_offset();
        const size_t count = buffer->range_length() / 2;
        const size_t old = out->samples.size();
        out->samples.resize(old + count);
        std::memcpy(out->samples.data() + old, bytes, count * 2);
        int64_t timeUs = -1;
        buffer->meta_data()->findInt64(wv::kKeyTime, &timeUs);
        out->bufferTimesUs.push_back(timeUs);
        out->bufferFrames.push_back(channels ? count / size_t(channels) : 0);
        buffer->release();
    }
    return wv::OK;
}

bool decodeWithMediaLayer(const std::string& path, DecodedAudio* out) {
    auto source = openPcmSource(path, &out->mime);
    if (!source) return false;
    readAll(*source, out);
    source->stop();
    return true;
}

}  // namespace wvtest
