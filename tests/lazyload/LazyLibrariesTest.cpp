// Libraries opened on first use: the set itself, and the engine's promise
// that FFmpeg and PortAudio stay out of a process until a job needs them.
// This program links neither of them, so its process starts without them
// (each test runs in a process of its own under ctest).
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <thread>
#include <vector>

extern "C" {
#include <libavformat/version.h>
#include <libavutil/log.h>
}

#include <wavoryx/Wavoryx.h>
#include <wavoryx/platform.h>

#include "AudioFixtures.h"
#include "TestSupport.h"
#include "platform/LazyLibraries.h"

namespace {

#define STRINGIFY2(x) #x
#define STRINGIFY(x) STRINGIFY2(x)
const char* const kAvFormat = "libavformat.so." STRINGIFY(LIBAVFORMAT_VERSION_MAJOR);
const char* const kPortAudio = "libportaudio.so.2";

bool mapped(const char* soname) {
    void* handle = dlopen(soname, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
}

// --- the set ------------------------------------------------------------

const char* const kMath[] = {"libm.so.6", nullptr};
const char* const kMissingSecond[] = {"libm.so.6", "libwavoryx-no-such-library.so.9", nullptr};

std::atomic<int> gLoadedCalls{0};
wv::LazyLibraries* gMathSet = nullptr;
void* gSeenByOnLoaded = nullptr;

void onMathLoaded() {
    ++gLoadedCalls;
    gSeenByOnLoaded = gMathSet->lookUp("cos");  // must not wait for the load it is part of
}

TEST(LazyLibraries, OpensOnceForConcurrentCallersAndFindsFunctions) {
    static wv::LazyLibraries set(kMath, onMathLoaded);
    gMathSet = &set;
    EXPECT_FALSE(set.loaded());
    EXPECT_EQ(set.lookUp("cos"), nullptr);  // nothing opened yet
    std::vector<std::thread> callers;
    std::atomic<int> failures{0};
    for (int i = 0; i < 4; ++i) {
        callers.emplace_back([&] {
            if (set.symbol("cos") == nullptr) ++failures;
        });
    }
    for (auto& t : callers) t.join();
    EXPECT_EQ(failures.load(), 0);
    EXPECT_EQ(gLoadedCalls.load(), 1);
    EXPECT_TRUE(set.loaded());
    EXPECT_TRUE(set.presentInProcess());
    auto* cosine = reinterpret_cast<double (*)(double)>(set.symbolOrDie("cos"));
    EXPECT_EQ(cosine(0.0), 1.0);
    EXPECT_EQ(gSeenByOnLoaded, reinterpret_cast<void*>(cosine));
    EXPECT_EQ(set.symbol("wavoryx_no_such_function"), nullptr);
}

TEST(LazyLibraries, AMissingLibraryFailsTheSetAndSaysWhich) {
    static wv::LazyLibraries set(kMissingSecond, nullptr);
    wvtest::LogCapture capture;
    EXPECT_FALSE(set.load());
    EXPECT_FALSE(set.load());  // the outcome stays
    EXPECT_FALSE(set.loaded());
    EXPECT_EQ(set.symbol("cos"), nullptr);
    bool named = false;
    for (const auto& line : capture.lines()) {
        named = named || line.message.find("cannot load libwavoryx-no-such-library.so.9") == 0;
    }
    EXPECT_TRUE(named);
}

TEST(LazyLibrariesDeathTest, AMissingFunctionIsFatal) {
    static wv::LazyLibraries set(kMath, nullptr);
    EXPECT_DEATH(set.symbolOrDie("wavoryx_no_such_function"),
                 "LazyLibraries:[0-9]+ wavoryx_no_such_function is missing from libm.so.6");
}

// --- the engine -----------------------------------------------------------

TEST(EngineLibraries, FfmpegOpensWithTheFirstCompressedFileAndPortAudioNotForJobs) {
    if (mapped(kAvFormat) || mapped(kPortAudio)) GTEST_SKIP() << "linked into this program";
    wvtest::TempDir dir;
    ASSERT_TRUE(wvtest::writeToneWav(dir.file("tone.wav"), 44100, 2, 3.0, 440.0));
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(dir.file("tone.wav"), dir.file("tone.mp3"), "-c:a libmp3lame"));

    wvtest::EventRecorder events;
    Wavoryx engine;
    engine.setWorkingDir(dir.prefix().c_str());
    engine.setCallback(wvtest::EventRecorder::callback);
    engine.startThreadLoop(0);

    // A WAV read in place, its waveform and a render to WAV and to MP3.
    const int wav = engine.loadFile(dir.file("tone.wav").c_str());
    ASSERT_TRUE(events.waitForCode(4, wav));
    unsigned char points[100];
    EXPECT_EQ(engine.getWaveformSamples(wav, 0, 3000, 100, points), 100);
    for (encode_type type : {ENCODE_WAV, ENCODE_MP3}) {
        const int list = engine.newClipList();
        ASSERT_GT(engine.addClipMs(list, wav, 500, 2500), 0);
        engine.setOutputPara(list, dir.file(type == ENCODE_WAV ? "cut.wav" : "cut.mp3").c_str(), type);
        ASSERT_EQ(engine.process(list), 0);
        ASSERT_TRUE(events.waitForCode(22, list));
    }
    EXPECT_FALSE(mapped(kAvFormat));

    // The first compressed file opens FFmpeg, and the log settings the
    // engine made at start-up reach it: FFmpeg's own messages arrive in
    // the engine's log.
    const int mp3 = engine.loadFile(dir.file("tone.mp3").c_str());
    ASSERT_TRUE(events.waitForCode(4, mp3));
    EXPECT_TRUE(mapped(kAvFormat));
    EXPECT_NEAR(engine.getPcmDuration(mp3), 3000, 60);
    {
        wvtest::LogCapture capture;
        void* handle = dlopen(kAvFormat, RTLD_NOW | RTLD_NOLOAD);
        ASSERT_NE(handle, nullptr);
        auto* avLog = reinterpret_cast<void (*)(void*, int, const char*, ...)>(dlsym(handle, "av_log"));
        ASSERT_NE(avLog, nullptr);
        avLog(nullptr, AV_LOG_ERROR, "said by the library\n");
        dlclose(handle);
        EXPECT_TRUE(capture.contains("said by the library", "MediaLayer"));
    }
    engine.stopThreadLoop();
    EXPECT_FALSE(mapped(kPortAudio));
}

}  // namespace
