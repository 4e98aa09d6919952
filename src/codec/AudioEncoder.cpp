#define WV_LOG_TAG "AudioEncoder"
#include "codec/AudioEncoder.h"

#include "base/Log.h"
#include "codec/FfmpegEncoder.h"
#include "codec/Mp3Encoder.h"
#include "codec/WaveEncoder.h"

namespace wv {

bool isEncodeFormat(int32_t value) {
    return value >= static_cast<int32_t>(EncodeFormat::Wav) &&
           value <= static_cast<int32_t>(EncodeFormat::Vorbis);
}

const char* formatSuffix(EncodeFormat format) {
    switch (format) {
        case EncodeFormat::Mp3:
            return ".mp3";
        case EncodeFormat::Flac:
            return ".flac";
        case EncodeFormat::Opus:
            return ".opus";
        case EncodeFormat::Aac:
            return ".m4a";
        case EncodeFormat::Vorbis:
            return ".ogg";
        default:
            return ".wav";
    }
}

bool hasBitRate(EncodeFormat format) {
    return format != EncodeFormat::Wav && format != EncodeFormat::Flac &&
           isEncodeFormat(static_cast<int32_t>(format));
}

int32_t defaultBitRate(EncodeFormat format) {
    switch (format) {
        case EncodeFormat::Opus:
            return 128;
        case EncodeFormat::Aac:
        case EncodeFormat::Vorbis:
            return 192;
        default:
            return 320;
    }
}

AudioEncoder* AudioEncoder::createAudioEncoder(EncodeFormat format, const char* path,
                                               int outputFlags) {
    AudioEncoder* encoder = nullptr;
    switch (format) {
        case EncodeFormat::Wav:
            encoder = new WaveEncoder();
            break;
        case EncodeFormat::Mp3:
            encoder = new Mp3Encoder();
            break;
        case EncodeFormat::Flac:
        case EncodeFormat::Opus:
        case EncodeFormat::Aac:
        case EncodeFormat::Vorbis:
            encoder = new FfmpegEncoder(format);
            break;
        default:
            WV_LOGW("Unsupported type %d", static_cast<int>(format));
            return nullptr;
    }
    if (encoder->openOutput(path, outputFlags) != 0) {
        delete encoder;
        return nullptr;
    }
    return encoder;
}

int AudioEncoder::finishEncoding() {
    const int flushed = flushEncoding();
    if (flushed != 0) return flushed;
    return finishOutput();
}

}  // namespace wv
