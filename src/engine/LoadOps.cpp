// The engine's loading requests: they register items and post to the
// decoder worker.
#define WV_LOG_TAG "WavoryxPriv"
#include "engine/WavoryxPriv.h"

#include <fcntl.h>
#include <strings.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "load/DecoderThread.h"
#include "platform/media/MetaData.h"

using namespace wv;

// Every kind of decode (file, range, stream, scan) is registered and
// queued here, so that each is a job waitForJob knows of.
int32_t WavoryxPriv::queueLoad(SPcmInfo* item) {
    item->refs[REF_CLIENT] = 1;
    item->refs[REF_DECODER] = 1;
    const pcm_id_t id = mInfoList.add(item);
    mCallbackThread->jobEnds().begin(id, JobEnds::kLoad);
    mDecoder->sendCmd(WVThreadCmd(DecoderThread::kCmdStart, id, -1), 7);
    return static_cast<int32_t>(id);
}

int32_t WavoryxPriv::loadFile(const char* path) {
    SPcmInfo* item = new SPcmInfo(ENCODED_FILE);
    item->path.set(path != nullptr ? path : "");
    return queueLoad(item);
}

int32_t WavoryxPriv::loadStream(int fd) {
    // The engine's own descriptor: the caller may close its own at once.
    const int own = fd >= 0 ? ::fcntl(fd, F_DUPFD_CLOEXEC, 0) : -1;
    if (own < 0) return -4;
    SPcmInfo* item = new SPcmInfo(ENCODED_FILE);
    item->path.set("");
    item->streamFd.store(own);
    return queueLoad(item);
}

namespace {
void copyText(char (&to)[32], const std::string& from) {
    const size_t n = std::min(from.size(), sizeof to - 1);
    std::memcpy(to, from.data(), n);
    to[n] = '\0';
}
}  // namespace

int32_t WavoryxPriv::getSourceInfo(uint32_t id, WvSourceInfo* info) {
    if (info == nullptr) return -4;
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetSourceInfo);
    if (item == nullptr) return -1;
    const int32_t status = item->status.load();
    if (status == CLIP_LIST || status == RECORDING) return -2;
    SourceFacts facts;
    if (!item->sourceFacts(&facts)) return -3;
    copyText(info->container, facts.container);
    copyText(info->codec, facts.codec);
    copyText(info->channelLayout, facts.layout);
    info->sampleRate = facts.sampleRate;
    info->channels = facts.channels;
    info->bitsPerSample = facts.bitsPerSample;
    info->bitRate = facts.bitRate;
    info->durationUs = facts.durationUs;
    return 0;
}

int32_t WavoryxPriv::getSourceFrames(uint32_t id, uint32_t* frames) {
    if (frames == nullptr) return -4;
    *frames = 0;
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetSourceFrames);
    if (item == nullptr) return -1;
    const int32_t status = item->status.load();
    if (status == CLIP_LIST || status == RECORDING) return -2;
    SourceFacts facts;
    if (!item->sourceFacts(&facts) || facts.frames < 0) return -3;
    // totalFrames is set before the facts become visible and never changes
    // after: the answer does not depend on how far the load has gone.
    *frames = item->totalFrames.load();
    return facts.framesExact ? 1 : 0;
}

int32_t WavoryxPriv::getSourceTag(uint32_t id, const char* name, char* value, uint32_t size) {
    if (name == nullptr || value == nullptr || size == 0) return -4;
    bool known = false;
    for (const TagKey& tag : kTagKeys) known = known || strcasecmp(tag.name, name) == 0;
    if (!known) return -4;
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetSourceTag);
    if (item == nullptr) return -1;
    const int32_t status = item->status.load();
    if (status == CLIP_LIST || status == RECORDING) return -2;
    SourceFacts facts;
    if (!item->sourceFacts(&facts)) return -3;
    value[0] = '\0';
    for (const auto& tag : facts.tags) {
        if (strcasecmp(tag.first.c_str(), name) != 0) continue;
        // Cut at a character's start, so that a cut UTF-8 text stays valid.
        size_t n = std::min<size_t>(tag.second.size(), size - 1);
        if (n < tag.second.size()) {
            while (n > 0 && (uint8_t(tag.second[n]) & 0xC0) == 0x80) --n;
        }
        std::memcpy(value, tag.second.data(), n);
        value[n] = '\0';
        return static_cast<int32_t>(std::min<size_t>(tag.second.size(), INT32_MAX));
    }
    return 0;
}

int32_t WavoryxPriv::getLoadDamage(uint32_t id, uint32_t* firstMs) {
    ItemHold hold(this, id);
    SPcmInfo* item = holdItem(hold, id, Report::kGetLoadDamage);
    if (item == nullptr) return -1;
    const uint32_t packets = item->damagedPackets.load();
    if (firstMs != nullptr) *firstMs = packets > 0 ? item->firstDamageMs.load() : 0;
    return static_cast<int32_t>(std::min<uint32_t>(packets, INT32_MAX));
}

int32_t WavoryxPriv::loadFileRange(const char* path, uint32_t startMs, uint32_t endMs) {
    if (endMs <= startMs) return -4;
    SPcmInfo* item = new SPcmInfo(ENCODED_FILE);
    item->path.set(path != nullptr ? path : "");
    item->ranged = true;
    item->rangeStartMs = startMs;
    item->rangeEndMs = endMs;
    return queueLoad(item);
}

int32_t WavoryxPriv::cancelLoadFile(pcm_id_t id) {
    ItemHold hold(this, id);
    if (holdItem(hold, id, Report::kCancelLoadFile) == nullptr) return -1;
    // The first pattern removes a load that has not started, the second
    // the next chunk of one in progress.
    mDecoder->cancelCmd(WVThreadCmd(DecoderThread::kCmdStart, id, static_cast<int32_t>(WVCMD_ANY)));
    mDecoder->cancelCmd(
        WVThreadCmd(DecoderThread::kCmdContinue, id, static_cast<int32_t>(WVCMD_ANY)));
    return 0;
}
