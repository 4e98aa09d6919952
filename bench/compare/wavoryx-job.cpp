// One engine job per invocation, over the public API only, for timing the
// whole process from outside next to the command-line tools doing the same
// job (bench/compare/run). The process does nothing but construct the
// engine, run the job to its final event and exit, so its wall time, CPU
// time and peak resident size are the job's own, start-up included, as they
// are for the other tools.
//
//   wavoryx-job [--work DIR] load FILE        loadFile to event 4
//   wavoryx-job [--work DIR] edit-mp3 FILE OUT  60-180 s + 300-420 s of FILE
//                                               to MP3 at 320 kbit/s
//   wavoryx-job [--work DIR] edit-wav FILE OUT  the same ranges to WAV
//   wavoryx-job [--work DIR] edit mp3|wav FILE OUT FROM-TO...
//                                               ranges in ms, as an
//                                               application cuts a long file:
//                                               each range loaded alone
//                                               (loadFileRange) and the list
//                                               rendered as soon as their
//                                               formats are known
//   wavoryx-job [--work DIR] info FILE          what the file states, read
//                                               at event 6; the load is then
//                                               cancelled
//   wavoryx-job [--work DIR] convert SRC OUT    all of SRC to 44.1 kHz
//                                               stereo WAV
//   wavoryx-job [--work DIR] waveform FILE      2000 peaks of the whole item
//   wavoryx-job [--work DIR] encode FORMAT FILE OUT
//                                               all of FILE to OUT as flac,
//                                               opus, m4a or ogg at the
//                                               format's default bit rate
//   wavoryx-job [--work DIR] normalise wav|mp3 FILE OUT
//                                               the same, normalised to
//                                               -16 LUFS, -1 dBTP
//
// DIR is the engine's working directory (its PCM files land there and are
// left for the caller to delete, outside the timing); without it a scratch
// directory is made and removed. Prints one line "<job> <seconds>" with the
// time from the first engine call to the job's last event; exit status 0
// when the job ended as it should, 1 when it failed, 2 on wrong usage.
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

namespace {

// Event codes the jobs wait for (include/wavoryx/Wavoryx.h).
constexpr int kLoadFailed = 0;
constexpr int kLoadDone = 4;
constexpr int kLoadCancelled = 5;
constexpr int kLoadStarted = 6;
constexpr int kLoadStorageFull = 7;
constexpr int kRenderFailed = 20;
constexpr int kRenderDone = 22;
constexpr int kRenderCancelled = 23;
constexpr int kRenderStopped = 25;

// The last ending event seen for each item id.
class Endings {
public:
    void post(int code, int id) {
        std::lock_guard<std::mutex> guard(mLock);
        mLast[id] = code;
        mChanged.notify_all();
    }
    // Blocks until item `id` has one of `codes`; returns that code.
    int waitFor(int id, std::initializer_list<int> codes) {
        std::unique_lock<std::mutex> lock(mLock);
        for (;;) {
            auto it = mLast.find(id);
            if (it != mLast.end()) {
                for (int code : codes) {
                    if (it->second == code) return code;
                }
            }
            mChanged.wait(lock);
        }
    }

private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::map<int, int> mLast;
};

Endings gEndings;

void onEvent(int code, int id, int, char*, void*) {
    switch (code) {
        case kLoadFailed:
        case kLoadDone:
        case kLoadCancelled:
        case kLoadStarted:
        case kLoadStorageFull:
        case kRenderFailed:
        case kRenderDone:
        case kRenderCancelled:
        case kRenderStopped: gEndings.post(code, id); break;
        default: break;
    }
}

double nowSeconds() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

int usage() {
    std::fprintf(stderr,
                 "usage: wavoryx-job [--work DIR] load FILE | info FILE | edit-mp3 FILE OUT | edit-wav FILE OUT |\n"
                 "       edit mp3|wav FILE OUT FROM-TO... |\n"
                 "       encode mp3|mp3v2|flac|opus|m4a|ogg FILE OUT | normalise wav|mp3 FILE OUT |\n"
                 "                   convert SRC OUT | waveform FILE\n");
    return 2;
}

// Loads `file` and waits for the end of its load; the id, or 0 on failure.
int loadAndWait(Wavoryx& engine, const char* file) {
    const int id = engine.loadFile(file);
    if (id <= 0) return 0;
    const int end = gEndings.waitFor(id, {kLoadFailed, kLoadDone, kLoadCancelled, kLoadStorageFull});
    if (end != kLoadDone) {
        std::fprintf(stderr, "wavoryx-job: load of %s ended with event %d\n", file, end);
        return 0;
    }
    return id;
}

// Renders the list to `out` and waits for the end; true when it finished.
bool renderAndWait(Wavoryx& engine, int list) {
    if (engine.process(list) != 0) return false;
    const int end = gEndings.waitFor(list, {kRenderFailed, kRenderDone, kRenderCancelled, kRenderStopped});
    if (end != kRenderDone) std::fprintf(stderr, "wavoryx-job: render ended with event %d\n", end);
    return end == kRenderDone;
}

struct Range {
    unsigned fromMs;
    unsigned toMs;
};

// The ranges of `file` rendered to `out` at 320 kbit/s: each range loaded
// alone, the list cut as soon as every load has begun (the ranges lie
// inside the file) and rendered while the loads go on. A WAV is read in
// place, whole.
bool editJob(Wavoryx& engine, const char* file, const char* out, encode_type type, const std::vector<Range>& ranges) {
    const std::string name = file;
    if (name.size() > 4 && name.compare(name.size() - 4, 4, ".wav") == 0) {
        const int source = loadAndWait(engine, file);
        if (source == 0) return false;
        const int list = engine.newClipList();
        for (const Range& range : ranges) {
            if (engine.addClipMs(list, source, range.fromMs, range.toMs) <= 0) return false;
        }
        engine.setOutputPara(list, out, type);
        engine.setEncodePara(list, 0, 320, 0, 0);
        return renderAndWait(engine, list);
    }
    std::vector<int> parts;
    for (const Range& range : ranges) {
        const int id = engine.loadFileRange(file, range.fromMs, range.toMs);
        if (id <= 0) return false;
        parts.push_back(id);
    }
    const int list = engine.newClipList();
    for (size_t i = 0; i < parts.size(); ++i) {
        const int began =
            gEndings.waitFor(parts[i], {kLoadStarted, kLoadDone, kLoadFailed, kLoadCancelled, kLoadStorageFull});
        if (began != kLoadStarted && began != kLoadDone) return false;
        const uint64_t rate = uint64_t(engine.getPcmSampleRate(parts[i]));
        const uint32_t frames = uint32_t(ranges[i].toMs * rate / 1000 - ranges[i].fromMs * rate / 1000);
        if (engine.addClip(list, parts[i], 0, frames) <= 0) return false;
    }
    engine.setOutputPara(list, out, type);
    engine.setEncodePara(list, 0, 320, 0, 0);
    return renderAndWait(engine, list);
}

bool parseRanges(char** args, int count, std::vector<Range>* ranges) {
    for (int i = 0; i < count; ++i) {
        Range range;
        if (std::sscanf(args[i], "%u-%u", &range.fromMs, &range.toMs) != 2 || range.toMs <= range.fromMs) {
            return false;
        }
        ranges->push_back(range);
    }
    return !ranges->empty();
}

// What the file states, as the command's `info` reads it: nothing decoded.
bool infoJob(Wavoryx& engine, const char* file) {
    const int id = engine.loadFile(file);
    if (id <= 0) return false;
    const int began = gEndings.waitFor(id, {kLoadStarted, kLoadDone, kLoadFailed, kLoadCancelled, kLoadStorageFull});
    if (began != kLoadStarted && began != kLoadDone) return false;
    WvSourceInfo info;
    if (engine.getSourceInfo(id, &info) != 0) return false;
    engine.cancelLoadFile(id);
    gEndings.waitFor(id, {kLoadDone, kLoadCancelled});
    std::fprintf(stderr, "wavoryx-job: %s, %s, %d Hz, %d channels, %lld us\n", info.container, info.codec,
                 info.sampleRate, info.channels, static_cast<long long>(info.durationUs));
    return true;
}

// All of `file` rendered to `out` as 44.1 kHz stereo WAV.
bool convertJob(Wavoryx& engine, const char* file, const char* out) {
    const int source = loadAndWait(engine, file);
    if (source == 0) return false;
    const int list = engine.newClipList();
    if (engine.addClip(list, source, 0, 0xFFFFFFFFu) <= 0) return false;
    engine.setOutputPara(list, out, ENCODE_WAV);
    engine.setEncodePara(list, 44100, 0, 2, 1);
    return renderAndWait(engine, list);
}

// All of `file` encoded to `out` in `format`, at the source's rate and
// channels and the format's default bit rate; normalised to `lufsTenths`
// under a -1 dBTP ceiling unless 0.
bool encodeJob(Wavoryx& engine, const std::string& format, const char* file, const char* out, int lufsTenths = 0) {
    encode_type type;
    int vbr = 0;
    if (format == "mp3" || format == "mp3v2") {
        type = ENCODE_MP3;
        vbr = format == "mp3v2" ? 2 : 0;
    } else if (format == "flac") {
        type = ENCODE_FLAC;
    } else if (format == "opus") {
        type = ENCODE_OPUS;
    } else if (format == "m4a") {
        type = ENCODE_AAC;
    } else if (format == "ogg") {
        type = ENCODE_VORBIS;
    } else if (format == "wav") {
        type = ENCODE_WAV;
    } else {
        return false;
    }
    const int source = loadAndWait(engine, file);
    if (source == 0) return false;
    const int list = engine.newClipList();
    if (engine.addClip(list, source, 0, 0xFFFFFFFFu) <= 0) return false;
    engine.setOutputPara(list, out, type);
    if (type == ENCODE_MP3) {
        engine.setEncodePara(list, 0, 320, 0, 0);
        // VBR in joint stereo, as lame -V does by default.
        engine.setEncodeOptions(list, 5, vbr, vbr > 0 ? 1 : 0);
    }
    if (lufsTenths != 0) engine.setListLoudness(list, lufsTenths, -10);
    return renderAndWait(engine, list);
}

bool waveformJob(Wavoryx& engine, const char* file) {
    const int source = loadAndWait(engine, file);
    if (source == 0) return false;
    const int32_t durationMs = engine.getPcmDuration(source);
    if (durationMs <= 0) return false;
    std::vector<unsigned char> points(2000);
    if (engine.getWaveformSamples(source, 0, static_cast<unsigned>(durationMs), 2000, points.data()) != 2000)
        return false;
    unsigned sum = 0;
    for (unsigned char p : points) sum += p;
    std::fprintf(stderr, "wavoryx-job: waveform sum %u\n", sum);
    return true;
}

bool runJob(Wavoryx& engine, const std::string& job, char** args, int count) {
    if (job == "load" && count == 1) return loadAndWait(engine, args[0]) != 0;
    const std::vector<Range> fixed = {{60000, 180000}, {300000, 420000}};
    if (job == "edit-mp3" && count == 2) return editJob(engine, args[0], args[1], ENCODE_MP3, fixed);
    if (job == "edit-wav" && count == 2) return editJob(engine, args[0], args[1], ENCODE_WAV, fixed);
    if (job == "edit" && count >= 4) {
        std::vector<Range> ranges;
        if (!parseRanges(args + 3, count - 3, &ranges)) return false;
        const std::string format = args[0];
        if (format != "mp3" && format != "wav") return false;
        return editJob(engine, args[1], args[2], format == "mp3" ? ENCODE_MP3 : ENCODE_WAV, ranges);
    }
    if (job == "info" && count == 1) return infoJob(engine, args[0]);
    if (job == "convert" && count == 2) return convertJob(engine, args[0], args[1]);
    if (job == "waveform" && count == 1) return waveformJob(engine, args[0]);
    if (job == "encode" && count == 3) return encodeJob(engine, args[0], args[1], args[2]);
    if (job == "normalise" && count == 3) return encodeJob(engine, args[0], args[1], args[2], -160);
    return false;
}

bool knownJob(const std::string& job, int count) {
    return ((job == "load" || job == "waveform" || job == "info") && count == 1) || (job == "edit" && count >= 4) ||
           ((job == "edit-mp3" || job == "edit-wav" || job == "convert") && count == 2) ||
           ((job == "encode" || job == "normalise") && count == 3);
}

}  // namespace

int main(int argc, char** argv) {
    int first = 1;
    std::string workDir;
    if (argc > 2 && std::strcmp(argv[1], "--work") == 0) {
        workDir = argv[2];
        first = 3;
    }
    if (argc <= first) return usage();
    const std::string job = argv[first];
    const int count = argc - first - 1;
    if (!knownJob(job, count)) return usage();

    bool scratch = false;
    if (workDir.empty()) {
        const char* tmp = std::getenv("TMPDIR");
        std::string templ = std::string(tmp && *tmp ? tmp : "/tmp") + "/wavoryx-job-XXXXXX";
        if (mkdtemp(&templ[0]) == nullptr) {
            std::perror("wavoryx-job: mkdtemp");
            return 1;
        }
        workDir = templ;
        scratch = true;
    }
    if (workDir.back() != '/') workDir += '/';

    bool ok = false;
    double seconds = 0;
    {
        Wavoryx engine;
        engine.setWorkingDir(workDir.c_str());
        engine.setCallback(onEvent);
        engine.startThreadLoop(0);
        const double start = nowSeconds();
        ok = runJob(engine, job, argv + first + 1, count);
        seconds = nowSeconds() - start;
        engine.stopThreadLoop();
    }
    if (scratch) {
        std::error_code ignored;
        std::filesystem::remove_all(workDir, ignored);
    }
    std::printf("%s %.6f\n", job.c_str(), seconds);
    return ok ? 0 : 1;
}
