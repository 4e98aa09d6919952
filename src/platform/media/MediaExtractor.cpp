#define WV_LOG_TAG "MediaLayer"
#include "platform/media/MediaExtractor.h"

#include "base/Log.h"
#include "platform/media/AvFormatExtractor.h"
#include "platform/media/WavPcmExtractor.h"

namespace wv {

std::shared_ptr<MediaExtractor> MediaExtractor::Create(const std::shared_ptr<DataSource>& source,
                                                       const char*) {
    if (!source) return nullptr;
    // A WAV is read in place only from a file; a stream's goes through the
    // general parser, which reads it once.
    if (!source->isStream()) {
        if (auto wav = WavPcmExtractor::Create(source)) return wav;
    }
    return AvFormatExtractor::Create(source);
}

int32_t channelMaskForCount(int32_t channels) {
    static const int32_t kMasks[] = {0x1, 0x3, 0x7, 0x33, 0x37, 0x3f, 0x13f, 0x63f};
    return (channels >= 1 && channels <= 8) ? kMasks[channels - 1] : 0;
}

}  // namespace wv
