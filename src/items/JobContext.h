// What a job's worker or player may ask of the engine that runs it: the item
// registry, the client's events, the settings, and the end of a recording.
// The engine implements it and outlives every worker and player it hands it
// to; all of it may be called from any thread.
#pragma once

#include <cstdint>
#include <string>

#include <wavoryx/Wavoryx.h>

#include "items/PcmTypes.h"
#include "threads/ClientEvents.h"

namespace wv {

struct SPcmInfo;

class JobContext : public EventSink {
public:
    // The registered item `id`, taking one reference for `ref` unless it is
    // REF_NONE; null when there is none. See InfoList::get.
    virtual SPcmInfo* getPcmInfo(pcm_id_t id, pcm_ref_t ref) = 0;
    // Drops one reference for `ref` (all of them with `all`); the item is
    // freed with its last reference. Returns `id`, or 0 when not registered.
    virtual pcm_id_t releasePcm(pcm_id_t id, pcm_ref_t ref, bool all) = 0;
    // The folder prefix for generated files, as the client set it (may lack
    // the trailing slash: names are appended to it as they are).
    virtual std::string workingDir() const = 0;
    // WV_PRIORITY_LOW asks the chunked workers to leave the CPU idle as long
    // as each chunk took.
    virtual thread_priority_t threadPriority() const = 0;
    // The recording `id` has ended (finished, failed or never started): it
    // stops being the engine's current recording, unless a newer one already
    // took its place.
    virtual void recordingEnded(pcm_id_t id) = 0;

protected:
    ~JobContext() = default;
};

}  // namespace wv
