// What the encoder's reading jobs (the loudness measurement, the silence
// scan) need to know of the item they read before they read it.
#pragma once

#include <cstdint>

#include "items/SPcmInfo.h"
#include "threads/ChunkedJobThread.h"

namespace wv {

// The item's own format, as a render of it would read it: a list's when the
// client set one, else the one its clips suggest; at most two channels.
// False while unknown.
bool measuredFormat(SPcmInfo* item, uint32_t* rate, uint32_t* channels);

// Frames a read of the whole item expects at `rate`; 0 while unknown.
uint64_t expectedFrames(SPcmInfo* item, uint32_t rate);

// A source whose data will never come: the item's own failed load, or one
// of a list's sources.
bool sourceFailed(SPcmInfo* item);

// The item has data to read, or will have: a list whose sources are ready, a
// file decoding or decoded.
bool readyToRead(SPcmInfo* item);

// Whether a reading job can begin on the item now, with its format in
// *rate and *channels. When not, *step is what the job does instead: end
// (a failed source, an item still recording) or wait for the format. The
// log says what cannot be `done` to the item ("measured", "scanned") and
// which `job` waits.
bool readableNow(SPcmInfo* item, const char* done, const char* job, uint32_t* rate,
                 uint32_t* channels, JobStep* step);

}  // namespace wv
