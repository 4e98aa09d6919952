// An ID3v2.4 tag for the start of an MP3 file: text frames for the tags
// (UTF-8), an APIC frame for a cover, and a CHAP frame per chapter with a
// CTOC that lists them all in order (players ignore CHAP frames no table
// of contents names).
//
// Chapter times are in ms, fixed-width fields: the same tags give a tag of
// the same size whatever the times, so a tag written before the audio's
// length was known can be written again over itself once it is.
#pragma once

#include <cstdint>
#include <vector>

#include "base/OutputTags.h"

namespace wv {

// The whole tag, header included; empty when `tags` is empty. `totalMs`
// ends the last chapter.
std::vector<uint8_t> id3v2Tag(const OutputTags& tags, int64_t totalMs);

}  // namespace wv
