// The engine behind the Wavoryx facade: the registry of items, the job
// context shared with the workers, and four workers (decoder, encoder,
// recorder, client callback).
//
// Public operations run on the caller's thread: they check their arguments,
// look items up and either answer at once or post a command to a worker.
// Every member function is defined in this folder, one file per group of
// operations (LoadOps, RenderOps, WaveformOps, PlayOps, RecordOps,
// ClipListOps); the workers and players see the engine only through the
// JobContext it implements.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include <wavoryx/Wavoryx.h>

#include "engine/ErrorReports.h"
#include "engine/ReadPositions.h"
#include "items/InfoList.h"
#include "items/JobContext.h"
#include "items/PcmTypes.h"
#include "threads/ClientCallbackThread.h"
#include "threads/EngineHooks.h"
#include "threads/WVCmdThread.h"

namespace wv {
class DecoderThread;
class EncoderThread;
class RecorderThread;
}  // namespace wv

class WavoryxPriv : public wv::EngineHooks {
public:
    WavoryxPriv();
    virtual ~WavoryxPriv();
    WavoryxPriv(const WavoryxPriv&) = delete;
    WavoryxPriv& operator=(const WavoryxPriv&) = delete;

    // Lifecycle and settings.
    int32_t startThreadLoop(int32_t inCallerThread);
    int32_t stopThreadLoop();
    int32_t setCallback(wv::ClientCallback callback, void* user = nullptr);
    int32_t setWorkingDir(const char* dir);
    int32_t setThreadPriority(thread_priority_t priority);
    int32_t dump();
    int32_t removePcm(wv::pcm_id_t id);
    int32_t waitForJob(wv::pcm_id_t id, int32_t kinds, int32_t timeoutMs, int32_t* value);

    // Queries.
    int32_t getPcmSampleRate(uint32_t id);
    int32_t getPcmChannelCount(uint32_t id);
    int32_t getPcmFrameLength(uint32_t id);
    int32_t getPcmDuration(wv::pcm_id_t id);
    int32_t getOutputBitRate(uint32_t id);
    int32_t getSourceInfo(uint32_t id, WvSourceInfo* info);
    int32_t getSourceTag(uint32_t id, const char* name, char* value, uint32_t size);
    int32_t getSourceChapterCount(uint32_t id);
    int32_t getSourceChapter(uint32_t id, uint32_t index, uint32_t* startFrame, uint32_t* endFrame,
                             char* title, uint32_t size);
    int32_t getLoadDamage(uint32_t id, uint32_t* firstMs);
    int32_t getSourceFrames(uint32_t id, uint32_t* frames);
    int32_t openPcmData(wv::pcm_id_t id, uint64_t* offset, uint64_t* bytes);  // PcmDataOps.cpp

    // Clip lists.
    int32_t newClipList();
    int32_t addClip(uint32_t listId, uint32_t pcmId, uint32_t startFrame, uint32_t endFrame);
    int32_t addClipMs(uint32_t listId, uint32_t pcmId, wv::duration_t startMs,
                      wv::duration_t endMs);
    // Effects of lists and their clips (ClipListOps.cpp).
    int32_t setClipGain(uint32_t listId, uint32_t clip, int32_t millibels);
    int32_t setClipFade(uint32_t listId, uint32_t clip, uint32_t inMs, uint32_t outMs,
                        int32_t shape);
    int32_t setListCrossfade(uint32_t listId, uint32_t ms, int32_t shape);
    int32_t setListGain(uint32_t listId, int32_t millibels);
    int32_t setListDenoise(uint32_t listId, int32_t amountDb);
    int32_t setListTempo(uint32_t listId, int32_t percent);

    // Loading (LoadOps.cpp; the work runs in src/load).
    int32_t loadFile(const char* path);
    int32_t loadFileRange(const char* path, uint32_t startMs, uint32_t endMs);
    int32_t scanFile(const char* path, const WvPeakSet* sets, uint32_t setCount, int32_t loudness);
    int32_t scanFileSilence(const char* path, int32_t thresholdTenthsDb, uint32_t minMs);
    int32_t getScanPeaks(uint32_t id, uint32_t set, int16_t* minMax, uint32_t count);
    int32_t getScanLoudness(uint32_t id, int32_t* integrated, int32_t* range, int32_t* truePeak);
    int32_t loadStream(int fd);
    int32_t cancelLoadFile(wv::pcm_id_t id);

    // Rendering (RenderOps.cpp, WaveformOps.cpp; the work runs in src/render).
    // `type` is an encode_type's value, any int32_t.
    int32_t setOutputPara(uint32_t listId, const char* path, int32_t type);
    int32_t setEncodePara(uint32_t listId, int32_t sampleRate, int32_t bitRate,
                          int32_t channelCount, int32_t forceStereo);
    int32_t setEncodeOptions(uint32_t id, int32_t quality, int32_t vbr, int32_t jointStereo);
    int32_t setResampleQuality(uint32_t listId, int32_t quality);
    int32_t setOutputMode(uint32_t listId, int32_t flags);
    int32_t placeOutput(uint32_t listId, int32_t keep);
    int32_t setEncodeThreads(uint32_t listId, int32_t threads);
    int32_t setListLoudness(uint32_t listId, int32_t lufsTenths, int32_t truePeakTenths);
    int32_t setListTag(uint32_t listId, const char* name, const char* value);
    int32_t addListChapter(uint32_t listId, uint32_t startMs, const char* title);
    int32_t setListChapterCarry(uint32_t listId, int32_t carry);
    int32_t setListCover(uint32_t listId, const char* path);
    int32_t clearListTags(uint32_t listId);
    int32_t getListLoudnessResult(uint32_t listId, int32_t* reachedTenths);
    int32_t process(uint32_t listId);
    int32_t cancelProcess(uint32_t listId);
    int32_t measureLoudness(uint32_t id);  // LoudnessOps.cpp
    // SilenceOps.cpp
    int32_t scanSilence(uint32_t id, int32_t thresholdTenthsDb, uint32_t minMs);
    int32_t getSilences(uint32_t id, uint32_t* startEnd, uint32_t maxPairs);
    int32_t getSilenceScanFrames(uint32_t id, uint32_t* frames);
    int32_t getWaveformSamples(wv::pcm_id_t id, wv::duration_t startMs, wv::duration_t endMs,
                               uint32_t count, void* buffer);
    int32_t getWaveformPeaks(wv::pcm_id_t id, wv::duration_t startMs, wv::duration_t endMs,
                             uint32_t count, int16_t* minMax);
    int32_t getWaveformPeaksFrames(wv::pcm_id_t id, uint32_t startFrame, uint32_t endFrame,
                                   uint32_t count, int16_t* minMax);
    // A list's or an item's output as its render reads it (ReadPcmOps.cpp).
    int32_t readPcm(wv::pcm_id_t id, uint32_t startFrame, int16_t* out, uint32_t frames);
    int32_t getPcmOutputFrames(wv::pcm_id_t id, uint32_t* frames);

    // Playback (PlayOps.cpp; the player is in src/play).
    int32_t playStart(wv::pcm_id_t id);
    int32_t playPause(wv::pcm_id_t id);
    int32_t playResume(wv::pcm_id_t id);
    int32_t playStop(wv::pcm_id_t id) override;
    int32_t playSeekTo(int32_t ms);
    int32_t setPlaySpeed(int32_t speed);
    int32_t getPlayPositionMs();

    // Recording (RecordOps.cpp; the work runs in src/record).
    int32_t recordStart(const char* path, int32_t type, int32_t sampleRate, int32_t channelCount,
                        int32_t bitRate, int32_t audioSource, int32_t effect);
    int32_t recordPause();
    int32_t recordResume();
    int32_t recordStop();
    int32_t setRecordDuration(int32_t ms);

    // What the workers share with the engine (registry, events, settings).
    void notifyClient(wv::WVThreadCmd event, int32_t delayMs) {
        mContext.notifyClient(event, delayMs);
    }
    wv::SPcmInfo* getPcmInfo(wv::pcm_id_t id, wv::pcm_ref_t ref) {
        return mContext.getPcmInfo(id, ref);
    }
    wv::pcm_id_t releasePcm(wv::pcm_id_t id, wv::pcm_ref_t ref, bool all) {
        return mContext.releasePcm(id, ref, all);
    }
    std::string workingDir() const { return mContext.workingDir(); }
    thread_priority_t threadPriority() const { return mContext.threadPriority(); }
    wv::EventSink* events() const { return mContext.events(); }
    wv::JobContext* jobContext() { return &mContext; }
    wv::InfoList& infoList() { return mInfoList; }
    wv::EncoderThread& encoderThread() { return *mEncoder; }

    // The two-line reports of a failed item check ("line %d in %s:" then the
    // message), at error level; the line and signature come from the table
    // of ErrorReports.h.
    static void reportMissing(int line, const char* signature, uint32_t id);
    // The first of those lines; without a line (0) "in %s:".
    static void reportWhere(int line, const char* signature);
    static void reportStatus(int line, const char* signature, const wv::SPcmInfo* item,
                             wv::pcm_status_t wanted);
    // Keeps an item alive through one public call on the caller's thread
    // with a REF_PLAYER reference, so that another thread dropping the last
    // other reference meanwhile (removePcm, a job ending) cannot free the
    // item, its clip list or its player under the call; the last release
    // then happens when the call lets go. Every public operation that
    // touches an item looks it up through one of these, never bare.
    // Null when there is no item.
    class ItemHold {
    public:
        ItemHold(WavoryxPriv* engine, wv::pcm_id_t id)
            : mEngine(engine), mItem(engine->mInfoList.get(id, wv::REF_PLAYER)) {}
        ~ItemHold() {
            if (mItem != nullptr) mEngine->releasePcm(mItem->id, wv::REF_PLAYER, false);
        }
        ItemHold(const ItemHold&) = delete;
        ItemHold& operator=(const ItemHold&) = delete;
        wv::SPcmInfo* get() const { return mItem; }

    private:
        WavoryxPriv* const mEngine;
        wv::SPcmInfo* const mItem;
    };
    // Registers a new item to decode (its kind's fields set) with the
    // client's and the decoder's references, and queues its load job.
    // Returns its id.
    int32_t queueLoad(wv::SPcmInfo* item);
    // The held item, or null after reporting it missing.
    wv::SPcmInfo* holdItem(const ItemHold& hold, uint32_t id, wv::Report report) {
        if (hold.get() == nullptr) {
            const wv::ReportSite& site = wv::reportSite(report);
            reportMissing(site.missingLine, site.signature, id);
        }
        return hold.get();
    }
    // The held item if it has `wanted` status; null after the report
    // otherwise, with *result set to -1 or -2.
    wv::SPcmInfo* holdItemWithStatus(const ItemHold& hold, uint32_t id, wv::pcm_status_t wanted,
                                     wv::Report report, int32_t* result);

    std::atomic<wv::pcm_id_t> mPlayingId{0};

    // The ranges setListLoudness accepts, in tenths of LUFS and of dBTP.
    static constexpr int32_t kMinLoudnessTenths = -700;
    static constexpr int32_t kMaxLoudnessTenths = -50;
    static constexpr int32_t kMinTruePeakTenths = -200;
    static constexpr int32_t kMaxTruePeakTenths = 0;

private:
    int32_t addClipTo(uint32_t listId, uint32_t pcmId, uint32_t start, uint32_t end, bool inMs,
                      wv::Report report);

    // Serialise the controls that change engine-wide state in several
    // steps: the current play item and its player (created on first play),
    // the current recording, and the clip graph (a clip added to one list
    // while another list is added to it could close a cycle that neither
    // check saw).
    std::mutex mPlayLock;
    std::mutex mRecordLock;
    // The encoding options of recordings started from now on (id 0 of
    // setEncodeOptions); guarded by mRecordLock.
    int32_t mRecordQuality = 5;
    int32_t mRecordVbr = 0;
    int32_t mRecordJointStereo = 0;
    std::mutex mClipLock;
    wv::InfoList mInfoList;
    // readPcm's readers between reads; released before the items go.
    wv::ReadPositions mReadPositions;
    void releaseReads(wv::ReadPositions::Entries entries);
    // readPcm's reader of `item` standing at startFrame; null with *result.
    std::unique_ptr<wv::ReadPositions::Entry> readerAt(wv::SPcmInfo* item, uint32_t startFrame,
                                                       int32_t* result);
    // Before the context, which holds on to it.
    std::unique_ptr<wv::ClientCallbackThread> mCallbackThread;
    wv::JobContext mContext;
    std::unique_ptr<wv::DecoderThread> mDecoder;
    std::unique_ptr<wv::EncoderThread> mEncoder;
    std::unique_ptr<wv::RecorderThread> mRecorder;
};
