// Storage that fills up under each kind of job, before its first write and
// part of the way through, on a small tmpfs that also holds a finished file.
// Whatever the stage, the job ends with exactly one ending event, leaves no
// unfinished output behind (a recording keeps what it wrote, as a whole
// file), and the finished file is untouched.
#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <tuple>
#include <vector>

#include "AudioFiles.h"
#include "AudioFixtures.h"
#include "FaultRig.h"
#include "SmallFilesystem.h"
#include "TestSupport.h"
#include "Wait.h"

namespace {

using faulttest::Event;
using faulttest::FaultEngine;

enum class Job { Load, RenderWav, RenderMp3, RenderFlac, RenderOpus, RenderAac, RenderVorbis, Record };

struct RenderCase {
    Job job;
    encode_type type;
    const char* name;
};
constexpr RenderCase kRenders[] = {
    {Job::RenderWav, ENCODE_WAV, "out.wav"},    {Job::RenderMp3, ENCODE_MP3, "out.mp3"},
    {Job::RenderFlac, ENCODE_FLAC, "out.flac"}, {Job::RenderOpus, ENCODE_OPUS, "out.opus"},
    {Job::RenderAac, ENCODE_AAC, "out.m4a"},    {Job::RenderVorbis, ENCODE_VORBIS, "out.ogg"},
};
const RenderCase* renderCase(Job job) {
    for (const RenderCase& c : kRenders) {
        if (c.job == job) return &c;
    }
    return nullptr;
}
enum class Space { None, Little };

constexpr long long kLittle = 48 * 1024;

class StorageFull : public ::testing::TestWithParam<std::tuple<Job, Space>> {
protected:
    void SetUp() override {
        if (!fs.mounted()) GTEST_SKIP() << fs.skipReason();
        if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg command missing";
        // 20 s at 8000 Hz mono: 320 KB of samples, far beyond what is left.
        ASSERT_TRUE(wvtest::writeToneWav(sources.file("long.wav"), 8000, 1, 20.0, 440));
        ASSERT_TRUE(wvtest::encodeWithFfmpeg(sources.file("long.wav"), sources.file("long.flac")));
        // Noise for the renders: a tone would fit in the room left once
        // FLAC has compressed it.
        ASSERT_TRUE(wvtest::writeWav(sources.file("noise.wav"), wvtest::makeNoise(20 * 8000, 1), 8000, 1));
        ASSERT_TRUE(wvtest::writeToneWav(fs.file("finished.wav"), 8000, 1, 1.0, 300));
        finished = wvtest::readFile(fs.file("finished.wav"));
        const long long filled = fs.fill("ballast");
        ASSERT_GT(filled, 2 * kLittle);
        if (std::get<1>(GetParam()) == Space::Little) {
            ASSERT_EQ(truncate(fs.file("ballast").c_str(), filled - kLittle), 0);
        }
    }
    void TearDown() override {
        if (!fs.mounted() || finished.empty()) return;
        EXPECT_EQ(wvtest::readFile(fs.file("finished.wav")), finished);
    }

    // Once every item is released, the working directory holds what it held
    // before the job (a render's waveform file may stay: it is no output).
    void expectOnlyTheEarlierFiles(FaultEngine& engine, const std::vector<int>& ids) {
        for (int id : ids) engine.api.removePcm(id);
        std::set<std::string> names;
        const bool onlyEarlier = wvtest::waitUntil(
            [&] {
                names = faulttest::namesIn(fs.path());
                for (auto it = names.begin(); it != names.end();) {
                    it = it->size() > 5 && it->compare(it->size() - 5, 5, ".wave") == 0 ? names.erase(it)
                                                                                        : std::next(it);
                }
                return names == std::set<std::string>{"ballast", "finished.wav"};
            },
            std::chrono::seconds(5));
        if (onlyEarlier) return;
        ADD_FAILURE() << "left in the working directory: " << ::testing::PrintToString(names);
    }

    wvtest::SmallFilesystem fs{512 * 1024};
    wvtest::TempDir sources;
    std::vector<char> finished;
};

TEST_P(StorageFull, JobEndsOnceLeavingNoUnfinishedOutput) {
    const Job job = std::get<0>(GetParam());
    const bool none = std::get<1>(GetParam()) == Space::None;
    FaultEngine engine(fs.prefix());
    if (job == Job::Load) {
        const int id = engine.api.loadFile(sources.file("long.flac").c_str());
        ASSERT_GT(id, 0);
        const std::vector<Event> ends = engine.endingsOf(id, faulttest::kLoadEndings);
        ASSERT_EQ(ends.size(), 1u);
        EXPECT_EQ(ends[0].code, 7);
        EXPECT_LT(engine.api.getPcmFrameLength(id), 20 * 8000);
        expectOnlyTheEarlierFiles(engine, {id});
    } else if (const RenderCase* render = renderCase(job)) {
        // Read in place: the source takes no room in the working directory.
        const int source = engine.loaded(sources.file("noise.wav"));
        ASSERT_GT(source, 0);
        const std::string out = fs.file(render->name);
        const int list = engine.renderAll(source, out, render->type);
        ASSERT_GT(list, 0);
        const std::vector<Event> ends = engine.endingsOf(list, faulttest::kRenderEndings);
        ASSERT_EQ(ends.size(), 1u);
        EXPECT_EQ(ends[0].code, 25);
        EXPECT_FALSE(wvtest::fileExists(out));
        expectOnlyTheEarlierFiles(engine, {list, source});
    } else {
        const std::string out = fs.file("rec.wav");
        const int id = engine.api.recordStart(out.c_str(), ENCODE_WAV, 8000, 1, 0, 0, 0);
        ASSERT_GT(id, 0);
        if (none) {
            // The header cannot be written: the start fails and takes the
            // item with it.
            const std::vector<Event> ends = engine.endingsOf(id, faulttest::kRecordEndings);
            ASSERT_EQ(ends.size(), 1u);
            EXPECT_EQ(ends[0].value, -1);
            EXPECT_EQ(faulttest::eventsOf(engine.events.events(), id, {60}).size(), 1u);
            EXPECT_FALSE(wvtest::fileExists(out));
            EXPECT_EQ(engine.api.getPcmFrameLength(id), -1);
        } else {
            // Storage full pauses; the stop then finishes what was written.
            ASSERT_TRUE(engine.events.waitForCode(64, id));
            ASSERT_TRUE(engine.events.waitForCode(66, id));
            ASSERT_EQ(engine.api.recordStop(), 0);
            const std::vector<Event> ends = engine.endingsOf(id, faulttest::kRecordEndings);
            ASSERT_EQ(ends.size(), 1u);
            EXPECT_TRUE(ends[0].value == 0 || ends[0].value == 3) << ends[0].value;
            std::vector<int16_t> samples;
            ASSERT_TRUE(wvtest::readWavSamples(out, &samples));
            EXPECT_GT(samples.size(), 0u);
            // A remainder the storage never took is left out of the file,
            // though the item counted its frames.
            const size_t counted = size_t(engine.api.getPcmFrameLength(id));
            EXPECT_LE(samples.size(), counted);
            EXPECT_GT(samples.size() + 2048, counted);
        }
        EXPECT_GT(engine.api.recordStart("", ENCODE_WAV, 8000, 1, 0, 0, 0), 0)
            << "the ended recording still blocks the next one";
        engine.api.recordStop();
    }
}

std::string caseName(const ::testing::TestParamInfo<std::tuple<Job, Space>>& info) {
    static const char* const jobs[] = {"Load",       "RenderWav", "RenderMp3",    "RenderFlac",
                                       "RenderOpus", "RenderAac", "RenderVorbis", "Record"};
    return std::string(jobs[int(std::get<0>(info.param))]) +
           (std::get<1>(info.param) == Space::None ? "AtTheFirstWrite" : "MidWay");
}

INSTANTIATE_TEST_SUITE_P(EveryStage, StorageFull,
                         ::testing::Combine(::testing::Values(Job::Load, Job::RenderWav, Job::RenderMp3,
                                                              Job::RenderFlac, Job::RenderOpus, Job::RenderAac,
                                                              Job::RenderVorbis, Job::Record),
                                            ::testing::Values(Space::None, Space::Little)),
                         caseName);

}  // namespace
