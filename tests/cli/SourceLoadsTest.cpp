// The damage line of a load the command no longer needs: told once the
// load is over, whatever ended it and whenever its ending event is taken.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "AudioFixtures.h"
#include "Jobs.h"
#include "Session.h"
#include "TestSupport.h"

using namespace wvcli;

namespace {

// A FLAC of `seconds` whose first frames are overwritten, so that its load
// skips damaged packets near its start.
bool writeDamagedFlac(const wvtest::TempDir& dir, double seconds, const std::string& path) {
    const std::string wav = dir.file("tone.wav");
    if (!wvtest::writeToneWav(wav, 44100, 2, seconds, 440.0) || !wvtest::encodeWithFfmpeg(wav, path)) return false;
    std::vector<char> data;
    {
        std::ifstream in(path, std::ios::binary);
        data.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    const std::string sync("\xff\xf8", 2);
    const size_t first = std::string(data.begin(), data.end()).find(sync, 42);
    if (first == std::string::npos || first + 3000 > data.size()) return false;
    for (size_t k = first + 10; k < first + 3000; ++k) data[k] = char((uint8_t(data[k]) * 7 + 13) & 0xFF);
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(data.data(), std::streamsize(data.size()));
    return bool(out);
}

struct QuietSession {
    explicit QuietSession(const wvtest::TempDir& dir) : session(options(dir)) {}
    static GlobalOptions options(const wvtest::TempDir& dir) {
        GlobalOptions global;
        global.quiet = true;
        global.workDir = dir.path();
        return global;
    }
    Session session;
};

void expectOneDamageLine(const std::string& told, const std::string& path) {
    const std::string prefix = "wavoryx: " + path + ": ";
    EXPECT_EQ(told.rfind(prefix, 0), 0u) << told;
    EXPECT_NE(told.find(" damaged packet"), std::string::npos) << told;
    EXPECT_NE(told.find(" skipped near 0:00."), std::string::npos) << told;
    EXPECT_EQ(told.find('\n'), told.size() - 1) << told;
}

// The load is over in the engine, its ending event still queued when the
// command is done with it: the line must not be lost with the event.
TEST(SourceLoads, EndingUnneededLoadsTellsTheDamageOfOneThatEndedUntaken) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg not installed";
    wvtest::TempDir dir;
    const std::string bad = dir.file("bad.flac");
    ASSERT_TRUE(writeDamagedFlac(dir, 3.0, bad));
    QuietSession run(dir);
    ASSERT_TRUE(run.session.open());
    SourceLoads loads(run.session);
    loads.start({bad});
    const int id = loads.sources()[0].id;
    ASSERT_EQ(run.session.engine().waitForJob(id, WV_JOB_LOAD, 60000, nullptr), WV_EVENT_LOAD_DONE);
    ASSERT_FALSE(loads.allEnded());
    testing::internal::CaptureStderr();
    loads.endUnneeded();
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(loads.allEnded());
    expectOneDamageLine(told, bad);
}

// Damage was skipped (event 8) and the command is done with the load: it
// has ended by itself or ends by the cancel, and either way gets its line.
TEST(SourceLoads, EndingUnneededLoadsTellsTheDamageSkippedBeforeTheCancel) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg not installed";
    wvtest::TempDir dir;
    const std::string bad = dir.file("bad.flac");
    ASSERT_TRUE(writeDamagedFlac(dir, 120.0, bad));
    QuietSession run(dir);
    ASSERT_TRUE(run.session.open());
    SourceLoads loads(run.session);
    loads.start({bad});
    const int id = loads.sources()[0].id;
    bool damaged = false;
    for (int polls = 0; !damaged && !loads.allEnded() && polls < 600; ++polls) {
        EngineEvent event;
        if (!run.session.waitEvent(event, 100)) continue;
        if (event.id == id && event.code == WV_EVENT_LOAD_DAMAGED) {
            damaged = true;
        } else {
            loads.take(event);
        }
    }
    ASSERT_TRUE(damaged);
    testing::internal::CaptureStderr();
    loads.endUnneeded();
    const std::string told = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(loads.allEnded());
    expectOneDamageLine(told, bad);
}

}  // namespace
