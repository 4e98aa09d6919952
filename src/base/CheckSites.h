// Where each fatal check of the library reports itself: the unit and line
// that its message names ("<unit>:<line> CHECK(...) failed."). Those names
// are part of the message, which crash reports are matched against, so they
// stay fixed whatever file or line the check lives at today; they are kept
// here, in one table, rather than as literals at every check.
//
// The table sits in base so that every layer, from the workers up to the
// engine, can name its sites.
#pragma once

#include <cstddef>

#include "base/Log.h"

namespace wv {

enum class Check : int {
    // The engine.
    kEngineConnect,
    // The job workers: a command whose item is gone.
    kChunkedJobItem,
    kDecoderJobItem,
    kEncoderJobItem,
    // The decoder of a load.
    kDecoderStopOnRelease,
    kDecoderStart,
    kDecoderStopOnEnd,
    // The recorder.
    kRecorderBufferTime,
    kRecorderLostBytesEven,
    kRecorderBlockEven,
    // The player's set-up and controls.
    kPlayerFlagMode,
    kPlayerSourceMime,
    kPlayerSourceMade,
    kPlayerDecoderMime,
    kPlayerStartNotStarted,
    kPlayerStartHasSource,
    kPlayerStartMime,
    kPlayerStartRawFormat,
    kPlayerStartRate,
    kPlayerStartChannels,
    kPlayerPauseStarted,
    kPlayerResumeStarted,
    kPlayerResetStarted,
    // The player's fill.
    kPlayerFillStarted,
    kPlayerFillRate,
    kPlayerReadResult,
    kPlayerBufferTime,
    // The MP3 encoder and the lazily opened libraries.
    kMp3EncoderOutput,
    kMp3EncoderTag,
    kLazyLibrarySlots,
    kLazyLibrarySymbol,
    kCount
};

struct CheckSite {
    Check check;  // the entry's own name, to keep the table in enum order
    const char* unit;
    int line;
};

inline constexpr CheckSite kCheckSites[] = {
    {Check::kEngineConnect, "WavoryxPriv", 460},
    {Check::kChunkedJobItem, "WavoryxPriv", 19},
    {Check::kDecoderJobItem, "WavoryxPriv", 24},
    {Check::kEncoderJobItem, "WavoryxPriv", 20},
    {Check::kDecoderStopOnRelease, "AudioDecoder", 52},
    {Check::kDecoderStart, "AudioDecoder", 138},
    {Check::kDecoderStopOnEnd, "AudioDecoder", 162},
    {Check::kRecorderBufferTime, "AudioRecorder", 305},
    {Check::kRecorderLostBytesEven, "AudioRecorder", 391},
    {Check::kRecorderBlockEven, "AudioRecorder", 392},
    {Check::kPlayerFlagMode, "AudioPlayer", 870},
    {Check::kPlayerSourceMime, "AudioPlayer", 115},
    {Check::kPlayerSourceMade, "AudioPlayer", 137},
    {Check::kPlayerDecoderMime, "AudioPlayer", 826},
    {Check::kPlayerStartNotStarted, "AudioPlayer", 153},
    {Check::kPlayerStartHasSource, "AudioPlayer", 154},
    {Check::kPlayerStartMime, "AudioPlayer", 204},
    {Check::kPlayerStartRawFormat, "AudioPlayer", 205},
    {Check::kPlayerStartRate, "AudioPlayer", 208},
    {Check::kPlayerStartChannels, "AudioPlayer", 212},
    {Check::kPlayerPauseStarted, "AudioPlayer", 274},
    {Check::kPlayerResumeStarted, "AudioPlayer", 308},
    {Check::kPlayerResetStarted, "AudioPlayer", 320},
    {Check::kPlayerFillStarted, "AudioPlayer", 739},
    {Check::kPlayerFillRate, "AudioPlayer", 740},
    {Check::kPlayerReadResult, "AudioPlayer", 619},
    {Check::kPlayerBufferTime, "AudioPlayer", 674},
    {Check::kMp3EncoderOutput, "codec/Mp3Encoder", 15},
    {Check::kMp3EncoderTag, "codec/Mp3Encoder", 50},
    {Check::kLazyLibrarySlots, "LazyLibraries", 20},
    {Check::kLazyLibrarySymbol, "LazyLibraries", 60},
};

constexpr bool checkSitesInOrder() {
    for (int i = 0; i < static_cast<int>(Check::kCount); ++i) {
        if (static_cast<int>(kCheckSites[i].check) != i) return false;
    }
    return true;
}
static_assert(sizeof kCheckSites / sizeof kCheckSites[0] == static_cast<std::size_t>(Check::kCount),
              "one site per check");
static_assert(checkSitesInOrder(), "the sites follow the order of Check");

constexpr const CheckSite& checkSite(Check check) { return kCheckSites[static_cast<int>(check)]; }

}  // namespace wv

// The checks of base/Log.h at a site of the table.
#define WV_CHECK_AT(site, cond)                                     \
    do {                                                            \
        if (!(cond)) WV_FATAL_AT(site, "CHECK(%s) failed.", #cond); \
    } while (0)
#define WV_CHECK_EQ_AT(site, text, a, b) \
    WV_CHECK_EQ(::wv::checkSite(site).unit, ::wv::checkSite(site).line, text, a, b)
// fatalCheck at a site of the table, for messages of their own form.
#define WV_FATAL_AT(site, ...)                                                           \
    ::wv::fatalCheck(WV_LOG_TAG, ::wv::checkSite(site).unit, ::wv::checkSite(site).line, \
                     __VA_ARGS__)
