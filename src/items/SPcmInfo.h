// One PCM item: a loaded file, a recording or a clip list.
//
// An item owns its PCM file (deleted when the item is destroyed), its clip
// list and its player. It lives while any of its per-holder reference
// counters is non-zero; the counters are guarded by the registry's lock.
//
// Threads: the fields other than the counters are written by the one
// worker that produces the item (or by the client before it starts a job)
// and read by other threads; the numeric ones are atomics so that readers
// always see whole values. The output and encoding choices are one value
// under the item's lock (renderSettings).
#pragma once

#include <atomic>
#include <climits>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "items/PcmClipList.h"
#include "items/PcmTypes.h"
#include "items/RenderSettings.h"
#include "items/SilenceResults.h"
#include "platform/OutputFile.h"

namespace wv {

class SourceScan;

// A text that one thread may set while another reads it (an output path
// changed by the client while a worker looks at it).
class LockedString {
public:
    std::string get() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mValue;
    }
    void set(std::string value) {
        std::lock_guard<std::mutex> guard(mLock);
        mValue = std::move(value);
    }
    bool empty() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mValue.empty();
    }

private:
    mutable std::mutex mLock;
    std::string mValue;
};

// How a normalised render came out: a wv_loudness_result and the loudness
// reached (tenths of LUFS, INT32_MIN for none), packed into one word so
// that a reader never pairs a reason with another render's loudness.
struct LoudnessResult {
    static constexpr int64_t kNone = -1;  // no normalised render has finished

    int32_t reason;
    int32_t reachedTenths;

    int64_t pack() const {
        return static_cast<int64_t>((static_cast<uint64_t>(static_cast<uint32_t>(reason)) << 32) |
                                    static_cast<uint32_t>(reachedTenths));
    }
    static LoudnessResult unpack(int64_t word) {
        if (word == kNone) return {-1, INT32_MIN};
        const auto bits = static_cast<uint64_t>(word);
        return {static_cast<int32_t>(static_cast<uint32_t>(bits >> 32)),
                static_cast<int32_t>(static_cast<uint32_t>(bits))};
    }
};

// What a loaded file's container and codec state about its audio track,
// for the client to show; see the public WvSourceInfo.
struct SourceFacts {
    std::string container;  // the container format's short name
    std::string codec;      // the codec's short name
    std::string layout;     // channel layout ("stereo", "5.1"); empty when unstated
    int32_t sampleRate = 0;
    int32_t channels = 0;       // in the file, before any downmix
    int32_t bitsPerSample = 0;  // 0 when the codec has no such width
    int32_t bitRate = 0;        // bit/s; 0 when unstated
    int64_t durationUs = -1;    // -1 when unstated
    // The length in frames at sampleRate: counted by the container when
    // framesExact, else from durationUs (rounded down); -1 when unstated.
    int64_t frames = -1;
    bool framesExact = false;
    // Tags by name ("title", "artist", ...), those the file states.
    std::vector<std::pair<std::string, std::string>> tags;
    // Chapters the container states, in frames of the item (a ranged
    // load's from its start: cut to the part, those outside it dropped).
    std::vector<SourceChapter> chapters;
};

// Whatever plays an item; destroying it stops and frees the playback.
class PcmItemPlayer {
public:
    virtual ~PcmItemPlayer() = default;
};

struct SPcmInfo {
    explicit SPcmInfo(pcm_status_t status);
    ~SPcmInfo();
    SPcmInfo(const SPcmInfo&) = delete;
    SPcmInfo& operator=(const SPcmInfo&) = delete;

    // Bytes per frame of the item's 16-bit data: 2 x channels, 4 while the
    // channel count is unknown.
    uint32_t frameSize() const;
    // The frame reached after consuming durationMs from frame s inside
    // [s, e); durationMs keeps what could not be consumed. A clip list
    // counts its own frames at its own rate (ownRate), as its reader hands
    // them out, from its start (s and e unused); an unloaded file gives 0.
    uint32_t duration2frame(uint32_t& durationMs, uint32_t s, uint32_t e) const;
    // The frame a range ending at `ms` ends at: ms x rate / 1000, except
    // that an end in the item's last, partial millisecond, or past it, is
    // the item's last frame (its expected one while it grows); a clip
    // list's in its own frames.
    uint32_t endFrameAtMs(uint32_t ms) const;
    // Length in ms of the frames [s, e) (of all clips for a list).
    uint32_t frame2duration(uint32_t s, uint32_t e) const;
    // Frames of [s, e) readable now, into frameCount. Returns 1 when the
    // range is not complete yet but the item may still grow. With useTotal
    // an item still loading or recording counts as if its expected length
    // were already present.
    int32_t availableFrames(uint32_t& frameCount, uint32_t s, uint32_t e, bool useTotal) const;
    // Removes the item's PCM file and drops its lock (see WorkingFile), at
    // most once: after a failed or cancelled load, or on release.
    void dropPcmFile();
    // Frees what the item owns: player (stopping its output), clip list,
    // PCM file. Called by the registry only, once the last reference is
    // gone.
    void release();
    void dump() const {}

    // The file that holds the item's output as it is now: writingPath while
    // one is set, else path.
    std::string currentPath() const;

    // The rate and channels of the frames the item hands out as its own: a
    // list's are those its render makes (setEncodePara's, else what its
    // clips suggest), which is what its frames count in where it is a clip
    // of another list; any other item's are its data's.
    int32_t ownRate() const;
    int32_t ownChannels() const;

    // Frames of [s, e) inside the item's length (see duration2frame).
    uint32_t span(uint32_t s, uint32_t e) const;

    // The output and encoding choices of the item's renders or recording,
    // as they are now: one copy, taken under the item's lock.
    RenderSettings renderSettings() const {
        std::lock_guard<std::mutex> guard(mLock);
        return mSettings;
    }
    // Applies `change` (a callable taking RenderSettings&) under the item's
    // lock, so that two setters on two threads never lose each other's
    // fields and a copy never holds half of one change.
    template <class Change>
    void changeRenderSettings(Change change) {
        std::lock_guard<std::mutex> guard(mLock);
        change(mSettings);
    }
    // The source file's facts, once its load has begun (false before).
    bool sourceFacts(SourceFacts* facts) const {
        std::lock_guard<std::mutex> guard(mLock);
        if (!mHasFacts) return false;
        *facts = mFacts;
        return true;
    }
    void setSourceFacts(const SourceFacts& facts) {
        std::lock_guard<std::mutex> guard(mLock);
        mFacts = facts;
        mHasFacts = true;
    }

    // A finished render's output held back from its name
    // (WV_OUTPUT_HOLD) until placeOutput: a new one discards the old.
    void holdOutput(std::unique_ptr<OutputFile> output) {
        std::unique_ptr<OutputFile> old;
        std::lock_guard<std::mutex> guard(mLock);
        old = std::move(mHeldOutput);
        mHeldOutput = std::move(output);
    }
    std::unique_ptr<OutputFile> takeHeldOutput() {
        std::lock_guard<std::mutex> guard(mLock);
        return std::move(mHeldOutput);
    }

    // Notes what the output file holds (Hz, channels, kbit/s), once its
    // encoder has started, for the client's queries.
    void takeOutputFormat(uint32_t rate, uint32_t channels, uint32_t kbps) {
        outputRate.store(static_cast<int32_t>(rate));
        outputChannels.store(static_cast<int32_t>(channels));
        outputBitRate.store(static_cast<int32_t>(kbps));
    }

    pcm_id_t id = 0;
    std::atomic<int32_t> status;
    // The format of the item's data: a file's as decoded, a recording's, a
    // list's as its renders make it (what setEncodePara chose, else settled
    // by the render from the clips).
    std::atomic<int32_t> sampleRate{0};
    std::atomic<int32_t> channelCount{0};
    std::atomic<int32_t> format{0};
    std::atomic<uint32_t> frames{0};       // present now; final when PCM_READY
    std::atomic<uint32_t> totalFrames{0};  // expected length; 0 when unknown
    LockedString pcmPath;                  // the item's own PCM file, or empty
    std::atomic<int> pcmFd{-1};            // holds pcmPath's lock while the item lives
    std::atomic<bool> loadFailed{false};   // the load failed or was cancelled: no data will come
    // Damaged packets the load skipped so far, and the media time (ms) of
    // the first one (set before the count grows past 0).
    std::atomic<uint32_t> damagedPackets{0};
    std::atomic<uint32_t> firstDamageMs{0};
    // A load of part of the file: frames [rangeStartMs x rate / 1000,
    // rangeEndMs x rate / 1000); set by the client before the load starts.
    bool ranged = false;
    uint32_t rangeStartMs = 0;
    uint32_t rangeEndMs = 0;
    // A scan (scanFile): what its pass works out. Such an item keeps no
    // audio, so nothing reads it. Set before the load starts.
    std::unique_ptr<SourceScan> scan;
    // A load of a stream (loadStream): the descriptor it reads, until the
    // decoder takes it; closed with the item when never taken.
    std::atomic<int> streamFd{-1};
    // How the last normalised render that finished came out (a packed
    // LoudnessResult), LoudnessResult::kNone while none has.
    std::atomic<int64_t> loudnessResult{LoudnessResult::kNone};
    // The intervals the last silence scan (scanSilence) found.
    SilenceResults silences;
    // What the render's or recording's file holds, once its encoder has
    // started: the client's queries report these. 0 until then.
    std::atomic<int32_t> outputRate{0};
    std::atomic<int32_t> outputChannels{0};
    std::atomic<int32_t> outputBitRate{0};  // kbit/s; 0 when the format has no fixed one
    // A recording ends by itself once it holds this many frames (at
    // sampleRate, pauses not counted); 0 when only recordStop ends it.
    // Unlike the render settings, a live control: setRecordDuration may
    // change it while the recording runs.
    std::atomic<uint32_t> recordLimitFrames{0};
    LockedString path;  // source file, or output file of a list/recording
    // While a render or recording replaces an existing file at `path`, the
    // name its output is written under until it is complete; else empty.
    LockedString writingPath;
    std::unique_ptr<PcmClipList> clipList;  // present exactly for CLIP_LIST
    std::unique_ptr<PcmItemPlayer> player;  // created the first time the item is played
    uint32_t refs[kRefCount] = {};          // guarded by the registry lock

    static const char* const status_name[kStatusCount];
    static const char* const ref_name[kRefCount];
    static const char* statusName(int32_t status);

private:
    mutable std::mutex mLock;  // the item's lock: its settings and its source facts
    RenderSettings mSettings;
    SourceFacts mFacts;
    bool mHasFacts = false;
    std::unique_ptr<OutputFile> mHeldOutput;
};

}  // namespace wv
