// MIME types of the tracks the general demuxer finds, in the style the
// engine expects: "audio/mpeg", "audio/mp4a-latm", "video/avc", ... A codec
// without a well-known type gets "<kind>/x-<codec name>". No type given here
// contains "raw": only the in-place WAV parser reports "audio/raw".
#pragma once

#include <string>

struct AVCodecParameters;

namespace wv {

std::string mimeTypeForCodec(const AVCodecParameters& codec, bool attachedPicture);

}  // namespace wv
