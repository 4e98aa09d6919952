#include "platform/media/AudioTrackOpener.h"

#include <strings.h>

#include "platform/media/AudioCodec.h"
#include "platform/media/DataSource.h"
#include "platform/media/FrameRangeCodec.h"
#include "platform/media/WavPcmExtractor.h"

namespace wv {

FirstAudioTrack findFirstAudioTrack(const char* path) {
    DataSource::RegisterDefaultSniffers();
    return findFirstAudioTrack(DataSource::CreateFromURI(path));
}

FirstAudioTrack findFirstAudioTrack(const std::shared_ptr<DataSource>& dataSource) {
    FirstAudioTrack found;
    if (!dataSource) {
        found.status = FirstAudioTrack::kNotOpenable;
        return found;
    }
    found.extractor = MediaExtractor::Create(dataSource);
    if (!found.extractor) {
        found.status = FirstAudioTrack::kNoParser;
        return found;
    }
    for (size_t i = 0; i < found.extractor->countTracks(); ++i) {
        std::shared_ptr<MetaData> meta =
            found.extractor->getTrackMetaData(i, MediaExtractor::kIncludeExtensiveMetaData);
        const char* mime = nullptr;
        if (!meta || !meta->findCString(kKeyMIMEType, &mime)) {
            found.sawTrackWithoutMime = true;
            continue;
        }
        if (strncasecmp(mime, "audio/", 6) == 0) {
            found.status = FirstAudioTrack::kFound;
            found.meta = std::move(meta);
            found.mime = mime;
            found.index = i;
            return found;
        }
    }
    found.status = FirstAudioTrack::kNoAudioTrack;
    return found;
}

bool isRawAudioMime(const char* mime) {
    return mime != nullptr && strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_RAW) == 0;
}

std::shared_ptr<MediaSource> pcmSourceOf(const std::shared_ptr<MediaSource>& track,
                                         const AudioDecoderFactory& makeDecoder) {
    if (!track) return nullptr;
    std::shared_ptr<MetaData> format = track->getFormat();
    const char* mime = nullptr;
    if (format && format->findCString(kKeyMIMEType, &mime) && isRawAudioMime(mime)) return track;
    return makeDecoder(format, track);
}

std::shared_ptr<MediaSource> pcmSourceOf(const std::shared_ptr<MediaSource>& track) {
    return pcmSourceOf(track, &AudioCodec::Create);
}

std::shared_ptr<MediaSource> pcmRangeSourceOf(const FirstAudioTrack& found, int64_t firstFrame,
                                              int64_t endFrame) {
    if (found.status != FirstAudioTrack::kFound) return nullptr;
    if (isRawAudioMime(found.mime)) {
        auto wav = std::dynamic_pointer_cast<WavPcmExtractor>(found.extractor);
        return wav ? wav->getTrackFrames(firstFrame, endFrame) : nullptr;
    }
    return FrameRangeCodec::Create(found.meta, found.openTrack(), firstFrame, endFrame);
}

}  // namespace wv
