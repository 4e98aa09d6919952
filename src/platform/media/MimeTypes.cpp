#include "platform/media/MimeTypes.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstring>

namespace wv {
namespace {

struct KnownType {
    AVCodecID codec;
    const char* mime;
};

const KnownType kKnownTypes[] = {
    {AV_CODEC_ID_MP3, "audio/mpeg"},           {AV_CODEC_ID_MP2, "audio/mpeg-L2"},
    {AV_CODEC_ID_MP1, "audio/mpeg-L1"},        {AV_CODEC_ID_AAC, "audio/mp4a-latm"},
    {AV_CODEC_ID_AAC_LATM, "audio/mp4a-latm"}, {AV_CODEC_ID_VORBIS, "audio/vorbis"},
    {AV_CODEC_ID_OPUS, "audio/opus"},          {AV_CODEC_ID_FLAC, "audio/flac"},
    {AV_CODEC_ID_AMR_NB, "audio/3gpp"},        {AV_CODEC_ID_AMR_WB, "audio/amr-wb"},
    {AV_CODEC_ID_PCM_ALAW, "audio/g711-alaw"}, {AV_CODEC_ID_PCM_MULAW, "audio/g711-mlaw"},
    {AV_CODEC_ID_ALAC, "audio/alac"},          {AV_CODEC_ID_AC3, "audio/ac3"},
    {AV_CODEC_ID_EAC3, "audio/eac3"},          {AV_CODEC_ID_WMAV1, "audio/x-ms-wma"},
    {AV_CODEC_ID_WMAV2, "audio/x-ms-wma"},     {AV_CODEC_ID_H264, "video/avc"},
    {AV_CODEC_ID_HEVC, "video/hevc"},          {AV_CODEC_ID_MPEG4, "video/mp4v-es"},
    {AV_CODEC_ID_H263, "video/3gpp"},          {AV_CODEC_ID_VP8, "video/x-vnd.on2.vp8"},
    {AV_CODEC_ID_VP9, "video/x-vnd.on2.vp9"},  {AV_CODEC_ID_AV1, "video/av01"},
    {AV_CODEC_ID_MJPEG, "image/jpeg"},         {AV_CODEC_ID_PNG, "image/png"},
};

const char* kindOf(AVMediaType type) {
    switch (type) {
        case AVMEDIA_TYPE_AUDIO:
            return "audio/";
        case AVMEDIA_TYPE_VIDEO:
            return "video/";
        case AVMEDIA_TYPE_SUBTITLE:
            return "text/";
        default:
            return "application/";
    }
}

}  // namespace

std::string mimeTypeForCodec(const AVCodecParameters& codec, bool attachedPicture) {
    for (const KnownType& known : kKnownTypes) {
        if (known.codec != codec.codec_id) continue;
        // A cover picture is an image whatever its codec; a moving picture
        // coded as JPEG is still video.
        if (std::strncmp(known.mime, "image/", 6) == 0 && !attachedPicture) break;
        return known.mime;
    }
    if (codec.codec_type == AVMEDIA_TYPE_AUDIO) {
        const AVCodecDescriptor* desc = avcodec_descriptor_get(codec.codec_id);
        // Samples stored plainly but not in the in-place form.
        if (desc != nullptr && (desc->props & AV_CODEC_PROP_LOSSLESS) &&
            std::strncmp(desc->name, "pcm_", 4) == 0) {
            return "audio/x-wav";
        }
    }
    std::string name = avcodec_get_name(codec.codec_id);
    // Keep the promise that only the in-place parser says "raw".
    for (size_t at = name.find("raw"); at != std::string::npos; at = name.find("raw")) {
        name.replace(at, 3, "plain");
    }
    return (attachedPicture ? "image/" : kindOf(codec.codec_type)) + ("x-" + name);
}

}  // namespace wv
