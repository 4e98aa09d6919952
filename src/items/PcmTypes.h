// Basic types of the engine's PCM items.
#pragma once

#include <cstdint>

namespace wv {

// Item id: handed out from 1 upward, never reused; 0 names no item.
typedef uint32_t pcm_id_t;
// Duration in milliseconds.
typedef uint32_t duration_t;

// Kind and state of an item; the values index SPcmInfo::status_name.
enum pcm_status_t : int32_t {
    ENCODED_FILE = 0,  // registered by loadFile; no PCM data yet
    DECODING = 1,      // the decoder is writing the PCM file; frames grows
    RECORDING = 2,     // being recorded
    CLIP_LIST = 3,     // a clip list; no PCM file of its own
    PCM_READY = 4,     // all PCM data present; frames is final
};
constexpr int kStatusCount = 5;

// Reference holders; the values index SPcmInfo::ref_name and the counters.
enum pcm_ref_t : int32_t {
    REF_NONE = 0,      // a look-up that takes no reference
    REF_CLIENT = 1,    // the application (loadFile, newClipList, recordStart)
    REF_LIST = 2,      // one per clip that uses the item as its source
    REF_ENCODER = 3,   // a render of the list (process)
    REF_RECORDER = 4,  // the recording job
    REF_DECODER = 5,   // the load job
    REF_PLAYER = 6,    // a public call (ItemHold), for the length of the call
};
constexpr int kRefCount = 7;

}  // namespace wv
