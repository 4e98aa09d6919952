// setOutputMode and placeOutput: where a render's finished file goes, and
// that nothing reaches the output's name before the client says so.
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <string>

#include <wavoryx/Wavoryx.h>

#include "AudioFixtures.h"
#include "TestSupport.h"

namespace {

std::set<std::string> namesIn(const std::string& folder) {
    std::set<std::string> names;
    if (DIR* d = opendir(folder.c_str())) {
        while (dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") names.insert(name);
        }
        closedir(d);
    }
    return names;
}

std::string contents(const std::string& path) {
    const auto bytes = wvtest::readFile(path);
    return std::string(bytes.begin(), bytes.end());
}

class OutputMode : public ::testing::Test {
protected:
    void SetUp() override {
        engine.setWorkingDir(work.prefix().c_str());
        engine.setCallback(wvtest::EventRecorder::callback);
        ASSERT_TRUE(wvtest::writeToneWav(work.file("tone.wav"), 44100, 2, 1.0, 440.0));
        engine.startThreadLoop(0);
        source = engine.loadFile(work.file("tone.wav").c_str());
        ASSERT_EQ(engine.waitForJob(source, WV_JOB_LOAD, 60000, nullptr), WV_EVENT_LOAD_DONE);
    }
    void TearDown() override { engine.stopThreadLoop(); }

    // A list of the tone's first half, rendered to `path` under `flags`:
    // the render's ending event.
    int render(const std::string& path, int flags, int* list) {
        *list = engine.newClipList();
        engine.addClipMs(*list, source, 0, 500);
        engine.setOutputPara(*list, path.c_str(), ENCODE_WAV);
        EXPECT_EQ(engine.setOutputMode(*list, flags), 0);
        EXPECT_EQ(engine.process(*list), 0);
        return engine.waitForJob(*list, WV_JOB_RENDER, 60000, nullptr);
    }

    wvtest::TempDir work;
    wvtest::TempDir out;
    wvtest::EventRecorder recorder;
    Wavoryx engine;
    int source = 0;
};

TEST_F(OutputMode, HeldOutputsTakeTheirNameOnlyWhenPlacedAndAsTheFlagsSay) {
    const std::string path = out.file("song.wav");
    const int hold = WV_OUTPUT_HOLD | WV_OUTPUT_NO_WAVEFORM | WV_OUTPUT_NO_REPLACE;
    int list = 0;
    ASSERT_EQ(render(path, hold, &list), WV_EVENT_RENDER_DONE);
    // Finished, held under a ".part" name: nothing at the name, no ".wave".
    std::set<std::string> names = namesIn(out.path());
    ASSERT_EQ(names.size(), 1u);
    EXPECT_EQ(names.count("song.wav"), 0u);
    EXPECT_EQ(engine.placeOutput(list, 1), 0);
    EXPECT_EQ(namesIn(out.path()), std::set<std::string>{"song.wav"});
    EXPECT_EQ(::access(path.c_str(), R_OK), 0);
    const std::string first = contents(path);
    EXPECT_EQ(first.size(), 44u + 22050u * 4u);
    EXPECT_EQ(engine.placeOutput(list, 1), -3);  // placed once only

    // The name is taken now: no-replace keeps the other file.
    ASSERT_EQ(render(path, hold, &list), WV_EVENT_RENDER_DONE);
    wvtest::writeFile(path, "theirs", 6);
    EXPECT_EQ(engine.placeOutput(list, 1), -17);
    EXPECT_EQ(contents(path), "theirs");
    EXPECT_EQ(namesIn(out.path()), std::set<std::string>{"song.wav"});

    // Without no-replace the held file replaces it; one not kept goes.
    ASSERT_EQ(render(path, WV_OUTPUT_HOLD | WV_OUTPUT_NO_WAVEFORM, &list), WV_EVENT_RENDER_DONE);
    EXPECT_EQ(engine.placeOutput(list, 0), 0);
    EXPECT_EQ(contents(path), "theirs");
    ASSERT_EQ(render(path, WV_OUTPUT_HOLD | WV_OUTPUT_NO_WAVEFORM, &list), WV_EVENT_RENDER_DONE);
    EXPECT_EQ(engine.placeOutput(list, 1), 0);
    EXPECT_EQ(contents(path), first);
    // Removing a list removes what it held.
    ASSERT_EQ(render(out.file("gone.wav"), hold, &list), WV_EVENT_RENDER_DONE);
    engine.removePcm(list);
    for (int i = 0; i < 500 && namesIn(out.path()).size() > 1; ++i) ::usleep(10000);
    EXPECT_EQ(namesIn(out.path()), std::set<std::string>{"song.wav"});
}

TEST_F(OutputMode, WholeAndNoReplaceEndTheRenderAndBadFlagsAreRefused) {
    const std::string path = out.file("a.wav");
    int list = 0;
    ASSERT_EQ(render(path, WV_OUTPUT_WHOLE, &list), WV_EVENT_RENDER_DONE);
    EXPECT_EQ(namesIn(out.path()), (std::set<std::string>{"a.wav", "a.wav.wave"}));
    EXPECT_EQ(engine.placeOutput(list, 1), -3);
    int32_t value = 0;
    ASSERT_EQ(render(path, WV_OUTPUT_NO_REPLACE | WV_OUTPUT_NO_WAVEFORM, &list), WV_EVENT_RENDER_FAILED);
    EXPECT_EQ(engine.waitForJob(list, WV_JOB_RENDER, 0, &value), WV_EVENT_RENDER_FAILED);
    EXPECT_EQ(value, -17);
    EXPECT_EQ(contents(path).size(), 44u + 22050u * 4u);
    EXPECT_EQ(engine.setOutputMode(list, 16), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.setOutputMode(source, 0), WV_ERR_WRONG_ITEM);
    EXPECT_EQ(engine.placeOutput(source, 1), WV_ERR_WRONG_ITEM);
}

}  // namespace

namespace {

TEST(OutputFileWrite, BytesTakeTheNameWholeAndOnlyAsTheFlagsSay) {
    wvtest::TempDir dir;
    const std::string path = dir.file("w.json");
    EXPECT_EQ(Wavoryx::writeOutputFile(path.c_str(), "{}", 2, WV_OUTPUT_WHOLE | WV_OUTPUT_NO_REPLACE), 0);
    EXPECT_EQ(contents(path), "{}");
    EXPECT_EQ(Wavoryx::writeOutputFile(path.c_str(), "[]", 2, WV_OUTPUT_WHOLE | WV_OUTPUT_NO_REPLACE),
              -EEXIST);
    EXPECT_EQ(contents(path), "{}");
    EXPECT_EQ(Wavoryx::writeOutputFile(path.c_str(), "[1]", 3, WV_OUTPUT_WHOLE), 0);
    EXPECT_EQ(contents(path), "[1]");
    EXPECT_EQ(Wavoryx::writeOutputFile(path.c_str(), "x", 1, WV_OUTPUT_HOLD), -EINVAL);
    EXPECT_EQ(Wavoryx::writeOutputFile(nullptr, "x", 1, 0), -EINVAL);
    EXPECT_EQ(Wavoryx::writeOutputFile(dir.file("no/such.json").c_str(), "x", 1, 0), -ENOENT);
    EXPECT_EQ(namesIn(dir.path()), std::set<std::string>{"w.json"});
}

}  // namespace
