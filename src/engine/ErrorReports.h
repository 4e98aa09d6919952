// The reports of the engine's public operations when an item check fails:
// "line <n> in <signature>:" followed by the error. Clients and their tests
// match those lines, so each operation keeps its own fixed line numbers and
// signature text whatever file or line it is defined at; they are kept here,
// in one table, and call sites name their entry.
#pragma once

#include <cstddef>

namespace wv {

enum class Report : int {
    kGetPcmSampleRate,
    kGetPcmChannelCount,
    kGetPcmFrameLength,
    kGetPcmDuration,
    kAddClip,
    kAddClipMs,
    kSetOutputPara,
    kSetEncodePara,
    kSetEncodeOptions,
    kSetResampleQuality,
    kSetOutputMode,
    kPlaceOutput,
    kSetEncodeThreads,
    kCancelLoadFile,
    kProcess,
    kCancelProcess,
    kGetWaveformSamples,
    kPlayStart,
    kPlayPause,
    kPlayResume,
    kPlayStop,
    kPlaySeekTo,
    kSetPlaySpeed,
    kGetPlayPositionMs,
    kSetThreadPriority,
    kGetOutputBitRate,
    kGetSourceInfo,
    kMeasureLoudness,
    kGetSourceTag,
    kSetClipGain,
    kSetClipFade,
    kSetListCrossfade,
    kSetListGain,
    kSetListLoudness,
    kGetWaveformPeaks,
    kGetListLoudnessResult,
    kGetLoadDamage,
    kGetSourceFrames,
    kGetScanPeaks,
    kGetScanLoudness,
    kScanSilence,
    kGetSilences,
    kGetSilenceScanFrames,
    kGetSourceChapterCount,
    kGetSourceChapter,
    kSetListTag,
    kAddListChapter,
    kSetListChapterCarry,
    kSetListCover,
    kClearListTags,
    kSetListDenoise,
    kSetListTempo,
    kGetWaveformPeaksFrames,
    kReadPcm,
    kGetPcmOutputFrames,
    kCount
};

// The lines an operation reports: its item missing, its item with the wrong
// status, and (adding a clip) the clip's source missing. 0 where the
// operation makes no such check.
struct ReportSite {
    Report report;  // the entry's own name, to keep the table in enum order
    int missingLine;
    int statusLine;
    int sourceMissingLine;
    const char* signature;
};

inline constexpr ReportSite kReportSites[] = {
    {Report::kGetPcmSampleRate, 331, 0, 0, "int32_t WavoryxPriv::getPcmSampleRate(uint32_t)"},
    {Report::kGetPcmChannelCount, 338, 0, 0, "int32_t WavoryxPriv::getPcmChannelCount(uint32_t)"},
    {Report::kGetPcmFrameLength, 345, 0, 0, "int32_t WavoryxPriv::getPcmFrameLength(uint32_t)"},
    {Report::kGetPcmDuration, 352, 0, 0, "int32_t WavoryxPriv::getPcmDuration(pcm_id_t)"},
    {Report::kAddClip, 395, 397, 399,
     "int32_t WavoryxPriv::addClip(uint32_t, uint32_t, uint32_t, uint32_t)"},
    {Report::kAddClipMs, 411, 413, 415,
     "int32_t WavoryxPriv::addClipMs(uint32_t, uint32_t, duration_t, duration_t)"},
    {Report::kSetOutputPara, 433, 435, 0,
     "int32_t WavoryxPriv::setOutputPara(uint32_t, const char*, encode_type)"},
    {Report::kSetEncodePara, 446, 448, 0,
     "int32_t WavoryxPriv::setEncodePara(uint32_t, int32_t, int32_t, int32_t, int32_t)"},
    {Report::kSetEncodeOptions, 0, 0, 0,
     "int32_t WavoryxPriv::setEncodeOptions(uint32_t, int32_t, int32_t, int32_t)"},
    {Report::kSetResampleQuality, 0, 0, 0,
     "int32_t WavoryxPriv::setResampleQuality(uint32_t, int32_t)"},
    {Report::kSetOutputMode, 0, 0, 0, "int32_t WavoryxPriv::setOutputMode(uint32_t, int32_t)"},
    {Report::kPlaceOutput, 0, 0, 0, "int32_t WavoryxPriv::placeOutput(uint32_t, int32_t)"},
    {Report::kSetEncodeThreads, 0, 0, 0,
     "int32_t WavoryxPriv::setEncodeThreads(uint32_t, int32_t)"},
    {Report::kCancelLoadFile, 532, 0, 0, "int32_t WavoryxPriv::cancelLoadFile(pcm_id_t)"},
    {Report::kProcess, 544, 546, 0, "int32_t WavoryxPriv::process(uint32_t)"},
    {Report::kCancelProcess, 556, 0, 0, "int32_t WavoryxPriv::cancelProcess(uint32_t)"},
    {Report::kGetWaveformSamples, 568, 0, 0,
     "int32_t WavoryxPriv::getWaveformSamples(pcm_id_t, duration_t, duration_t, uint32_t, void*)"},
    {Report::kPlayStart, 604, 0, 0, "int32_t WavoryxPriv::playStart(pcm_id_t)"},
    {Report::kPlayPause, 651, 0, 0, "int32_t WavoryxPriv::playPause(pcm_id_t)"},
    {Report::kPlayResume, 662, 0, 0, "int32_t WavoryxPriv::playResume(pcm_id_t)"},
    {Report::kPlayStop, 677, 0, 0, "int32_t WavoryxPriv::playStop(pcm_id_t)"},
    {Report::kPlaySeekTo, 689, 0, 0, "int32_t WavoryxPriv::playSeekTo(int32_t)"},
    {Report::kSetPlaySpeed, 700, 0, 0, "int32_t WavoryxPriv::setPlaySpeed(int32_t)"},
    {Report::kGetPlayPositionMs, 709, 0, 0, "int32_t WavoryxPriv::getPlayPositionMs()"},
    // Names itself in its warning only.
    {Report::kSetThreadPriority, 0, 0, 0,
     "int32_t WavoryxPriv::setThreadPriority(thread_priority_t)"},
    {Report::kGetOutputBitRate, 0, 0, 0, "int32_t WavoryxPriv::getOutputBitRate(uint32_t)"},
    {Report::kGetSourceInfo, 0, 0, 0,
     "int32_t WavoryxPriv::getSourceInfo(uint32_t, WvSourceInfo*)"},
    {Report::kMeasureLoudness, 0, 0, 0, "int32_t WavoryxPriv::measureLoudness(uint32_t)"},
    {Report::kGetSourceTag, 0, 0, 0,
     "int32_t WavoryxPriv::getSourceTag(uint32_t, const char*, char*, uint32_t)"},
    {Report::kSetClipGain, 0, 0, 0,
     "int32_t WavoryxPriv::setClipGain(uint32_t, uint32_t, int32_t)"},
    {Report::kSetClipFade, 0, 0, 0,
     "int32_t WavoryxPriv::setClipFade(uint32_t, uint32_t, uint32_t, uint32_t, int32_t)"},
    {Report::kSetListCrossfade, 0, 0, 0,
     "int32_t WavoryxPriv::setListCrossfade(uint32_t, uint32_t, int32_t)"},
    {Report::kSetListGain, 0, 0, 0, "int32_t WavoryxPriv::setListGain(uint32_t, int32_t)"},
    {Report::kSetListLoudness, 0, 0, 0,
     "int32_t WavoryxPriv::setListLoudness(uint32_t, int32_t, int32_t)"},
    {Report::kGetWaveformPeaks, 0, 0, 0,
     "int32_t WavoryxPriv::getWaveformPeaks(pcm_id_t, duration_t, duration_t, uint32_t, int16_t*)"},
    {Report::kGetListLoudnessResult, 0, 0, 0,
     "int32_t WavoryxPriv::getListLoudnessResult(uint32_t, int32_t*)"},
    {Report::kGetLoadDamage, 0, 0, 0, "int32_t WavoryxPriv::getLoadDamage(uint32_t, uint32_t*)"},
    {Report::kGetSourceFrames, 0, 0, 0, "int32_t WavoryxPriv::getSourceFrames(uint32_t, uint32_t*)"},
    {Report::kGetScanPeaks, 0, 0, 0,
     "int32_t WavoryxPriv::getScanPeaks(uint32_t, uint32_t, int16_t*, uint32_t)"},
    {Report::kGetScanLoudness, 0, 0, 0,
     "int32_t WavoryxPriv::getScanLoudness(uint32_t, int32_t*, int32_t*, int32_t*)"},
    {Report::kScanSilence, 0, 0, 0,
     "int32_t WavoryxPriv::scanSilence(uint32_t, int32_t, uint32_t)"},
    {Report::kGetSilences, 0, 0, 0,
     "int32_t WavoryxPriv::getSilences(uint32_t, uint32_t*, uint32_t)"},
    {Report::kGetSilenceScanFrames, 0, 0, 0,
     "int32_t WavoryxPriv::getSilenceScanFrames(uint32_t, uint32_t*)"},
    {Report::kGetSourceChapterCount, 0, 0, 0,
     "int32_t WavoryxPriv::getSourceChapterCount(uint32_t)"},
    {Report::kGetSourceChapter, 0, 0, 0,
     "int32_t WavoryxPriv::getSourceChapter(uint32_t, uint32_t, uint32_t*, uint32_t*, char*, uint32_t)"},
    {Report::kSetListTag, 0, 0, 0,
     "int32_t WavoryxPriv::setListTag(uint32_t, const char*, const char*)"},
    {Report::kAddListChapter, 0, 0, 0,
     "int32_t WavoryxPriv::addListChapter(uint32_t, uint32_t, const char*)"},
    {Report::kSetListChapterCarry, 0, 0, 0,
     "int32_t WavoryxPriv::setListChapterCarry(uint32_t, int32_t)"},
    {Report::kSetListCover, 0, 0, 0,
     "int32_t WavoryxPriv::setListCover(uint32_t, const char*)"},
    {Report::kClearListTags, 0, 0, 0,
     "int32_t WavoryxPriv::clearListTags(uint32_t)"},
    {Report::kSetListDenoise, 0, 0, 0, "int32_t WavoryxPriv::setListDenoise(uint32_t, int32_t)"},
    {Report::kSetListTempo, 0, 0, 0, "int32_t WavoryxPriv::setListTempo(uint32_t, int32_t)"},
    {Report::kGetWaveformPeaksFrames, 0, 0, 0,
     "int32_t WavoryxPriv::getWaveformPeaksFrames(pcm_id_t, uint32_t, uint32_t, uint32_t, int16_t*)"},
    {Report::kReadPcm, 0, 0, 0, "int32_t WavoryxPriv::readPcm(pcm_id_t, uint32_t, int16_t*, uint32_t)"},
    {Report::kGetPcmOutputFrames, 0, 0, 0, "int32_t WavoryxPriv::getPcmOutputFrames(pcm_id_t, uint32_t*)"},
};

constexpr bool reportSitesInOrder() {
    for (int i = 0; i < static_cast<int>(Report::kCount); ++i) {
        if (static_cast<int>(kReportSites[i].report) != i) return false;
    }
    return true;
}
static_assert(sizeof kReportSites / sizeof kReportSites[0] ==
                  static_cast<std::size_t>(Report::kCount),
              "one site per report");
static_assert(reportSitesInOrder(), "the sites follow the order of Report");

constexpr const ReportSite& reportSite(Report report) {
    return kReportSites[static_cast<int>(report)];
}

}  // namespace wv
