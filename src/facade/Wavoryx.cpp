// The exported facade: forwards every call to the engine.
#include <wavoryx/Wavoryx.h>

#include <cerrno>
#include <cstring>

#include "engine/WavoryxPriv.h"
#include "platform/OutputFile.h"
#include "platform/StandardDescriptors.h"

namespace {
// The caller's encode_type as the integer it holds. Any value is documented
// to be accepted, but values other than the enumerators lie outside the
// enum's range, where loading one as an encode_type is undefined: the bytes
// are copied instead, and the engine keeps the type as an integer.
int32_t encodeTypeBits(const encode_type& type) {
    static_assert(sizeof(encode_type) == sizeof(int32_t), "encode_type is 32 bits wide");
    int32_t bits;
    std::memcpy(&bits, &type, sizeof bits);
    return bits;
}
}  // namespace

// Before any of the engine's threads can open a file that would otherwise
// take the number of a closed standard stream.
Wavoryx::Wavoryx() : mPriv((wv::keepStandardDescriptors(), new WavoryxPriv())) {}

Wavoryx::~Wavoryx() {
    delete mPriv;
    mPriv = nullptr;
}

int32_t Wavoryx::startThreadLoop(int inCallerThread) {
    return mPriv->startThreadLoop(inCallerThread);
}
int32_t Wavoryx::stopThreadLoop() { return mPriv->stopThreadLoop(); }
int32_t Wavoryx::setCallback(wavoryx_callback_t callback) {
    return mPriv->setCallback(callback, nullptr);
}
int32_t Wavoryx::setCallback(wavoryx_callback_t callback, void* user) {
    return mPriv->setCallback(callback, user);
}
int32_t Wavoryx::enableWaveformCallback(int, int, int, int) { return 0; }
int32_t Wavoryx::setWorkingDir(char const* dir) { return mPriv->setWorkingDir(dir); }
int32_t Wavoryx::setThreadPriority(thread_priority_t priority) {
    return mPriv->setThreadPriority(priority);
}
int32_t Wavoryx::dump() { return mPriv->dump(); }
int32_t Wavoryx::removePcm(int id) { return mPriv->removePcm(static_cast<uint32_t>(id)); }
int32_t Wavoryx::waitForJob(int id, int kinds, int timeoutMs, int32_t* value) {
    return mPriv->waitForJob(static_cast<uint32_t>(id), kinds, timeoutMs, value);
}

int32_t Wavoryx::loadFile(char const* path) { return mPriv->loadFile(path); }
int32_t Wavoryx::loadFileRange(char const* path, unsigned int startMs, unsigned int endMs) {
    return mPriv->loadFileRange(path, startMs, endMs);
}
int32_t Wavoryx::loadStream(int fd) { return mPriv->loadStream(fd); }
int32_t Wavoryx::cancelLoadFile(int id) { return mPriv->cancelLoadFile(static_cast<uint32_t>(id)); }
int32_t Wavoryx::getPcmSampleRate(int id) {
    return mPriv->getPcmSampleRate(static_cast<uint32_t>(id));
}
int32_t Wavoryx::getPcmChannelCount(int id) {
    return mPriv->getPcmChannelCount(static_cast<uint32_t>(id));
}
int32_t Wavoryx::getPcmFrameLength(int id) {
    return mPriv->getPcmFrameLength(static_cast<uint32_t>(id));
}
int32_t Wavoryx::getPcmDuration(int id) { return mPriv->getPcmDuration(static_cast<uint32_t>(id)); }
int32_t Wavoryx::openPcmData(int id, uint64_t* offset, uint64_t* bytes) {
    return mPriv->openPcmData(static_cast<uint32_t>(id), offset, bytes);
}
int32_t Wavoryx::getOutputBitRate(int id) {
    return mPriv->getOutputBitRate(static_cast<uint32_t>(id));
}
int32_t Wavoryx::getSourceInfo(int id, WvSourceInfo* info) {
    return mPriv->getSourceInfo(static_cast<uint32_t>(id), info);
}

int32_t Wavoryx::getSourceFrames(int id, uint32_t* frames) {
    return mPriv->getSourceFrames(static_cast<uint32_t>(id), frames);
}

int32_t Wavoryx::getSourceTag(int id, char const* name, char* value, unsigned int size) {
    return mPriv->getSourceTag(static_cast<uint32_t>(id), name, value, size);
}
int32_t Wavoryx::scanFile(char const* path, WvPeakSet const* sets, unsigned int setCount,
                          int loudness) {
    return mPriv->scanFile(path, sets, setCount, loudness);
}

int32_t Wavoryx::getScanPeaks(int id, unsigned int set, int16_t* minMax, unsigned int count) {
    return mPriv->getScanPeaks(static_cast<uint32_t>(id), set, minMax, count);
}

int32_t Wavoryx::getScanLoudness(int id, int32_t* integratedTenths, int32_t* rangeTenths,
                                 int32_t* truePeakTenths) {
    return mPriv->getScanLoudness(static_cast<uint32_t>(id), integratedTenths, rangeTenths,
                                  truePeakTenths);
}

int32_t Wavoryx::getLoadDamage(int id, unsigned int* firstMs) {
    return mPriv->getLoadDamage(static_cast<uint32_t>(id), firstMs);
}
int32_t Wavoryx::getWaveformSamples(int id, unsigned int startMs, unsigned int endMs,
                                    unsigned int count, void* buffer) {
    return mPriv->getWaveformSamples(static_cast<uint32_t>(id), startMs, endMs, count, buffer);
}
int32_t Wavoryx::getWaveformPeaks(int id, unsigned int startMs, unsigned int endMs,
                                  unsigned int count, int16_t* minMax) {
    return mPriv->getWaveformPeaks(static_cast<uint32_t>(id), startMs, endMs, count, minMax);
}
int32_t Wavoryx::getWaveformPeaksFrames(int id, uint32_t startFrame, uint32_t endFrame,
                                        unsigned int count, int16_t* minMax) {
    return mPriv->getWaveformPeaksFrames(static_cast<uint32_t>(id), startFrame, endFrame, count,
                                         minMax);
}
int32_t Wavoryx::readPcm(int id, uint32_t startFrame, int16_t* out, uint32_t frames) {
    return mPriv->readPcm(static_cast<uint32_t>(id), startFrame, out, frames);
}
int32_t Wavoryx::getPcmOutputFrames(int id, uint32_t* frames) {
    return mPriv->getPcmOutputFrames(static_cast<uint32_t>(id), frames);
}

int32_t Wavoryx::newClipList() { return mPriv->newClipList(); }
int32_t Wavoryx::addClip(int listId, int pcmId, unsigned int startFrame, unsigned int endFrame) {
    return mPriv->addClip(static_cast<uint32_t>(listId), static_cast<uint32_t>(pcmId), startFrame,
                          endFrame);
}
int32_t Wavoryx::addClipMs(int listId, int pcmId, unsigned int startMs, unsigned int endMs) {
    return mPriv->addClipMs(static_cast<uint32_t>(listId), static_cast<uint32_t>(pcmId), startMs,
                            endMs);
}
int32_t Wavoryx::setClipGain(int listId, int clip, int millibels) {
    return mPriv->setClipGain(static_cast<uint32_t>(listId), static_cast<uint32_t>(clip),
                              millibels);
}
int32_t Wavoryx::setClipFade(int listId, int clip, unsigned int inMs, unsigned int outMs,
                             int shape) {
    return mPriv->setClipFade(static_cast<uint32_t>(listId), static_cast<uint32_t>(clip), inMs,
                              outMs, shape);
}
int32_t Wavoryx::setListCrossfade(int listId, unsigned int ms, int shape) {
    return mPriv->setListCrossfade(static_cast<uint32_t>(listId), ms, shape);
}
int32_t Wavoryx::setListGain(int listId, int millibels) {
    return mPriv->setListGain(static_cast<uint32_t>(listId), millibels);
}

int32_t Wavoryx::setListDenoise(int listId, int amountDb) {
    return mPriv->setListDenoise(static_cast<uint32_t>(listId), amountDb);
}

int32_t Wavoryx::setListTempo(int listId, int tempoPercent) {
    return mPriv->setListTempo(static_cast<uint32_t>(listId), tempoPercent);
}
int32_t Wavoryx::setOutputPara(int listId, char const* path, encode_type type) {
    return mPriv->setOutputPara(static_cast<uint32_t>(listId), path, encodeTypeBits(type));
}
int32_t Wavoryx::setEncodePara(int listId, int sampleRate, int bitRate, int channelCount,
                               int forceStereo) {
    return mPriv->setEncodePara(static_cast<uint32_t>(listId), sampleRate, bitRate, channelCount,
                                forceStereo);
}

int32_t Wavoryx::setEncodeOptions(int id, int quality, int vbr, int jointStereo) {
    return mPriv->setEncodeOptions(static_cast<uint32_t>(id), quality, vbr, jointStereo);
}
int32_t Wavoryx::setOutputMode(int listId, int flags) {
    return mPriv->setOutputMode(static_cast<uint32_t>(listId), flags);
}
int32_t Wavoryx::placeOutput(int listId, int keep) {
    return mPriv->placeOutput(static_cast<uint32_t>(listId), keep);
}
int32_t Wavoryx::writeOutputFile(char const* path, const void* data, size_t size, int flags) {
    if (path == nullptr || (data == nullptr && size > 0) ||
        (flags & ~(WV_OUTPUT_WHOLE | WV_OUTPUT_NO_REPLACE)) != 0) {
        return -EINVAL;
    }
    const int placement =
        ((flags & WV_OUTPUT_WHOLE) != 0 ? wv::OutputFile::kCompleteOnly : 0) |
        ((flags & WV_OUTPUT_NO_REPLACE) != 0
             ? wv::OutputFile::kCompleteOnly | wv::OutputFile::kNoReplace
             : 0);
    return wv::writeWholeOutput(path, data, size, placement);
}
int32_t Wavoryx::setResampleQuality(int listId, int quality) {
    return mPriv->setResampleQuality(static_cast<uint32_t>(listId), quality);
}
int32_t Wavoryx::getSourceChapterCount(int id) {
    return mPriv->getSourceChapterCount(static_cast<uint32_t>(id));
}

int32_t Wavoryx::getSourceChapter(int id, unsigned int index, uint32_t* startFrame,
                                  uint32_t* endFrame, char* title, unsigned int size) {
    return mPriv->getSourceChapter(static_cast<uint32_t>(id), index, startFrame, endFrame, title,
                                   size);
}

int32_t Wavoryx::setListTag(int listId, char const* name, char const* value) {
    return mPriv->setListTag(static_cast<uint32_t>(listId), name, value);
}

int32_t Wavoryx::addListChapter(int listId, unsigned int startMs, char const* title) {
    return mPriv->addListChapter(static_cast<uint32_t>(listId), startMs, title);
}

int32_t Wavoryx::setListChapterCarry(int listId, int carry) {
    return mPriv->setListChapterCarry(static_cast<uint32_t>(listId), carry);
}

int32_t Wavoryx::setListCover(int listId, char const* path) {
    return mPriv->setListCover(static_cast<uint32_t>(listId), path);
}

int32_t Wavoryx::clearListTags(int listId) {
    return mPriv->clearListTags(static_cast<uint32_t>(listId));
}

int32_t Wavoryx::setEncodeThreads(int listId, int threads) {
    return mPriv->setEncodeThreads(static_cast<uint32_t>(listId), threads);
}
int32_t Wavoryx::setListLoudness(int listId, int lufsTenths, int truePeakTenths) {
    return mPriv->setListLoudness(static_cast<uint32_t>(listId), lufsTenths, truePeakTenths);
}

int32_t Wavoryx::getListLoudnessResult(int listId, int32_t* reachedTenths) {
    return mPriv->getListLoudnessResult(static_cast<uint32_t>(listId), reachedTenths);
}
int32_t Wavoryx::process(int listId) { return mPriv->process(static_cast<uint32_t>(listId)); }
int32_t Wavoryx::measureLoudness(int id) {
    return mPriv->measureLoudness(static_cast<uint32_t>(id));
}
int32_t Wavoryx::scanSilence(int id, int thresholdTenthsDb, unsigned int minMs) {
    return mPriv->scanSilence(static_cast<uint32_t>(id), thresholdTenthsDb, minMs);
}
int32_t Wavoryx::scanFileSilence(char const* path, int thresholdTenthsDb, unsigned int minMs) {
    return mPriv->scanFileSilence(path, thresholdTenthsDb, minMs);
}
int32_t Wavoryx::getSilences(int id, uint32_t* startEnd, unsigned int maxPairs) {
    return mPriv->getSilences(static_cast<uint32_t>(id), startEnd, maxPairs);
}
int32_t Wavoryx::getSilenceScanFrames(int id, uint32_t* frames) {
    return mPriv->getSilenceScanFrames(static_cast<uint32_t>(id), frames);
}
int32_t Wavoryx::cancelProcess(int listId) {
    return mPriv->cancelProcess(static_cast<uint32_t>(listId));
}

int32_t Wavoryx::playStart(int id) { return mPriv->playStart(static_cast<uint32_t>(id)); }
int32_t Wavoryx::playPause() { return mPriv->playPause(0); }
int32_t Wavoryx::playResume() { return mPriv->playResume(0); }
int32_t Wavoryx::playStop() { return mPriv->playStop(0); }
int32_t Wavoryx::playSeekTo(int ms) { return mPriv->playSeekTo(ms); }
int32_t Wavoryx::setPlaySpeed(int speed) { return mPriv->setPlaySpeed(speed); }
int32_t Wavoryx::getPlayPositionMs() { return mPriv->getPlayPositionMs(); }

int32_t Wavoryx::recordStart(char const* path, encode_type type, int sampleRate, int channelCount,
                             int bitRate, int audioSource, int effect) {
    return mPriv->recordStart(path, encodeTypeBits(type), sampleRate, channelCount, bitRate,
                              audioSource, effect);
}
int32_t Wavoryx::recordPause() { return mPriv->recordPause(); }
int32_t Wavoryx::recordResume() { return mPriv->recordResume(); }
int32_t Wavoryx::recordStop() { return mPriv->recordStop(); }
int32_t Wavoryx::setRecordDuration(int ms) { return mPriv->setRecordDuration(ms); }

int32_t insertClip(int, int, int, unsigned int, unsigned int) { return 0; }
int32_t insertClipMs(int, int, int, unsigned int, unsigned int) { return 0; }
int32_t removeClip(int, unsigned int) { return 0; }
