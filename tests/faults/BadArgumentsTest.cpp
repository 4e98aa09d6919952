// Every public operation given what a careless caller might pass: ids that
// name nothing or an item of the wrong kind, negative and huge numbers, null
// pointers and empty texts. Each gives its documented result, and the engine
// goes on working afterwards.
#include <gtest/gtest.h>

#include <algorithm>

#include <climits>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>
#include <wavoryx/platform.h>

#include "AudioFixtures.h"
#include "TestSupport.h"

namespace {

using wvtest::Event;

constexpr int32_t kNewId = INT32_MIN;  // expected: a new item's id (> 0)

struct Row {
    std::string what;
    std::function<int32_t()> call;
    int32_t expected;
};

class BadArguments : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("WAVORYX_DEVICE_PACE", "20", 1);
        wavoryx_set_audio_input("silence");
        wavoryx_set_audio_output("null");
        api.setWorkingDir(dir.prefix().c_str());
        api.setCallback(wvtest::EventRecorder::callback);
        api.startThreadLoop(0);

        ASSERT_TRUE(wvtest::writeToneWav(dir.file("tone.wav"), 8000, 1, 1.0, 440));
        file = api.loadFile(dir.file("tone.wav").c_str());
        ASSERT_TRUE(events.waitForCode(4, file));
        list = api.newClipList();
        ASSERT_GT(api.addClip(list, file, 0, 4000), 0);
        recording = api.recordStart(dir.file("rec.wav").c_str(), ENCODE_WAV, 8000, 1, 0, 0, 0);
        ASSERT_GT(recording, 0);
        ASSERT_TRUE(events.waitForCode(61, recording));
        ASSERT_EQ(api.recordStop(), 0);
        ASSERT_TRUE(events.waitForCode(63, recording));
    }
    void TearDown() override {
        api.stopThreadLoop();
        wavoryx_set_audio_input(nullptr);
        wavoryx_set_audio_output(nullptr);
        unsetenv("WAVORYX_DEVICE_PACE");
    }

    void check(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            const int32_t got = row.call();
            if (row.expected == kNewId) {
                EXPECT_GT(got, 0) << row.what;
            } else {
                EXPECT_EQ(got, row.expected) << row.what;
            }
        }
    }

    wvtest::TempDir dir;
    wvtest::EventRecorder events;  // outlives the engine's callback thread
    Wavoryx api;
    int file = 0, list = 0, recording = 0;
};

TEST_F(BadArguments, EveryOperationGivesItsDocumentedResult) {
    uint8_t points[16];
    std::vector<Row> rows;
    // Ids of nothing: never handed out, 0, negative, the extremes.
    for (int id : {999, 0, -1, INT_MIN, INT_MAX}) {
        const std::string n = " id " + std::to_string(id);
        rows.push_back({"removePcm" + n, [=] { return api.removePcm(id); }, 0});
        rows.push_back({"cancelLoadFile" + n, [=] { return api.cancelLoadFile(id); }, -1});
        rows.push_back({"getPcmSampleRate" + n, [=] { return api.getPcmSampleRate(id); }, -1});
        rows.push_back({"getPcmChannelCount" + n, [=] { return api.getPcmChannelCount(id); }, -1});
        rows.push_back({"getPcmFrameLength" + n, [=] { return api.getPcmFrameLength(id); }, -1});
        rows.push_back({"getPcmDuration" + n, [=] { return api.getPcmDuration(id); }, -1});
        rows.push_back(
            {"getWaveformSamples" + n, [&, id] { return api.getWaveformSamples(id, 0, 100, 4, points); }, -1});
        rows.push_back({"addClip list" + n, [=] { return api.addClip(id, file, 0, 10); }, -1});
        rows.push_back({"addClip source" + n, [=] { return api.addClip(list, id, 0, 10); }, -1});
        rows.push_back({"addClipMs list" + n, [=] { return api.addClipMs(id, file, 0, 10); }, -1});
        rows.push_back({"addClipMs source" + n, [=] { return api.addClipMs(list, id, 0, 10); }, -1});
        rows.push_back({"setOutputPara" + n, [=] { return api.setOutputPara(id, "x.wav", ENCODE_WAV); }, -1});
        rows.push_back({"setEncodePara" + n, [=] { return api.setEncodePara(id, 8000, 64, 1, 0); }, -1});
        rows.push_back({"setOutputMode" + n, [=] { return api.setOutputMode(id, WV_OUTPUT_WHOLE); }, -1});
        rows.push_back({"placeOutput" + n, [=] { return api.placeOutput(id, 1); }, -1});
        // 0 names the recordings to come, always there.
        rows.push_back({"setEncodeOptions" + n, [=] { return api.setEncodeOptions(id, 5, 0, 1); }, id == 0 ? 0 : -1});
        rows.push_back({"process" + n, [=] { return api.process(id); }, -1});
        rows.push_back({"cancelProcess" + n, [=] { return api.cancelProcess(id); }, -1});
        rows.push_back({"playStart" + n, [=] { return api.playStart(id); }, -1});
    }
    // Nothing is playing or recording.
    rows.push_back({"playPause idle", [&] { return api.playPause(); }, -1});
    rows.push_back({"playResume idle", [&] { return api.playResume(); }, -1});
    rows.push_back({"playStop idle", [&] { return api.playStop(); }, -1});
    rows.push_back({"playSeekTo idle", [&] { return api.playSeekTo(-1); }, -1});
    rows.push_back({"setPlaySpeed idle", [&] { return api.setPlaySpeed(INT_MAX); }, -1});
    rows.push_back({"getPlayPositionMs idle", [&] { return api.getPlayPositionMs(); }, -1});
    rows.push_back({"recordPause idle", [&] { return api.recordPause(); }, -5});
    rows.push_back({"recordResume idle", [&] { return api.recordResume(); }, -5});
    rows.push_back({"recordStop idle", [&] { return api.recordStop(); }, -5});
    // Items of the wrong kind: only clip lists take clips and outputs.
    for (int other : {file, recording}) {
        const std::string n = " on item " + std::to_string(other);
        rows.push_back({"addClip" + n, [=] { return api.addClip(other, file, 0, 10); }, -2});
        rows.push_back({"addClipMs" + n, [=] { return api.addClipMs(other, file, 0, 10); }, -2});
        rows.push_back({"setOutputPara" + n, [=] { return api.setOutputPara(other, "", ENCODE_MP3); }, -2});
        rows.push_back({"setEncodePara" + n, [=] { return api.setEncodePara(other, 0, 0, 0, 1); }, -2});
        rows.push_back({"setOutputMode" + n, [=] { return api.setOutputMode(other, 0); }, -2});
        rows.push_back({"placeOutput" + n, [=] { return api.placeOutput(other, 0); }, -2});
        rows.push_back({"setEncodeOptions" + n, [=] { return api.setEncodeOptions(other, 0, 9, 0); }, -2});
        rows.push_back({"process" + n, [=] { return api.process(other); }, -2});
    }
    rows.push_back({"addClip of a list into itself", [&] { return api.addClip(list, list, 0, 10); }, -4});
    // The cancels only look the item up: nothing runs, nothing happens.
    rows.push_back({"cancelLoadFile of a list", [&] { return api.cancelLoadFile(list); }, 0});
    rows.push_back({"cancelProcess of a file", [&] { return api.cancelProcess(file); }, 0});
    // Ranges and counts.
    rows.push_back(
        {"waveform of an empty range", [&] { return api.getWaveformSamples(file, 100, 100, 4, points); }, -4});
    rows.push_back(
        {"waveform of a reversed range", [&] { return api.getWaveformSamples(file, 200, 100, 4, points); }, -4});
    rows.push_back({"waveform of no points", [&] { return api.getWaveformSamples(file, 0, 100, 0, points); }, -4});
    rows.push_back({"waveform into no buffer", [&] { return api.getWaveformSamples(file, 0, 100, 4, nullptr); }, -4});
    rows.push_back(
        {"waveform beyond the end", [&] { return api.getWaveformSamples(file, 0, UINT_MAX, 16, points); }, 16});
    rows.push_back({"waveform wholly after the end",
                    [&] { return api.getWaveformSamples(file, 5000, UINT_MAX, 16, points); }, -4});
    rows.push_back({"addClip of huge frames", [&] { return api.addClip(list, file, UINT_MAX - 1, UINT_MAX); }, 2});
    rows.push_back({"addClipMs of huge times", [&] { return api.addClipMs(list, file, 0, UINT_MAX); }, 3});
    rows.push_back({"setEncodePara negative", [&] { return api.setEncodePara(list, -1, INT_MIN, -1, 0); }, 0});
    rows.push_back({"setOutputMode flags", [&] { return api.setOutputMode(list, -1); }, -4});
    rows.push_back({"placeOutput nothing held", [&] { return api.placeOutput(list, 1); }, -3});
    rows.push_back({"setEncodeOptions quality", [&] { return api.setEncodeOptions(list, INT_MIN, 0, 0); }, -4});
    rows.push_back({"setEncodeOptions vbr", [&] { return api.setEncodeOptions(list, 0, INT_MAX, 0); }, -4});
    rows.push_back({"setEncodeOptions joint", [&] { return api.setEncodeOptions(list, 0, 0, -1); }, -4});
    rows.push_back({"setEncodePara huge", [&] { return api.setEncodePara(list, INT_MAX, INT_MAX, INT_MAX, -1); }, 0});
    rows.push_back({"setThreadPriority negative", [&] { return api.setThreadPriority(-7); }, 0});
    rows.push_back({"setThreadPriority huge", [&] { return api.setThreadPriority(INT_MAX); }, 0});
    rows.push_back({"recordStart type 6", [&] { return api.recordStart("", encode_type(6), 8000, 1, 0, 0, 0); }, -4});
    rows.push_back({"recordStart type -1", [&] { return api.recordStart("", encode_type(-1), 8000, 1, 0, 0, 0); }, -4});
    rows.push_back({"recordStart 3 channels", [&] { return api.recordStart("", ENCODE_WAV, 8000, 3, 0, 0, 0); }, -4});
    rows.push_back(
        {"recordStart huge channels", [&] { return api.recordStart("", ENCODE_WAV, 8000, INT_MAX, 0, 0, 0); }, -4});
    // Null pointers and empty texts.
    rows.push_back({"setOutputPara null path", [&] { return api.setOutputPara(list, nullptr, ENCODE_WAV); }, 0});
    rows.push_back({"setOutputPara empty path", [&] { return api.setOutputPara(list, "", encode_type(7)); }, 0});
    rows.push_back({"loadFile null path", [&] { return api.loadFile(nullptr); }, kNewId});
    rows.push_back({"loadFile empty path", [&] { return api.loadFile(""); }, kNewId});
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    rows.push_back({"compatibility stubs",
                    [&] {
                        return api.enableWaveformCallback(-1, INT_MAX, 0, INT_MIN) +
                               insertClip(INT_MIN, -1, 0, UINT_MAX, 0) + insertClipMs(-1, INT_MAX, -1, 0, UINT_MAX) +
                               removeClip(INT_MIN, UINT_MAX);
                    },
                    0});
#pragma GCC diagnostic pop
    check(rows);

    // A failing file is an event, not a result: both texts are unreadable.
    const int emptyPath = api.loadFile("");
    ASSERT_TRUE(events.waitForCode(0, emptyPath));
    // The recording still under way keeps sending its levels: look for the
    // load's event among them, not at the end.
    const std::vector<Event> heard = events.events();
    EXPECT_NE(std::find(heard.begin(), heard.end(), (Event{0, emptyPath, 2})), heard.end());
}

TEST_F(BadArguments, ExtremeValuesWhileItemsPlayAndRecord) {
    ASSERT_EQ(api.playStart(file), 0);
    check({
        {"setPlaySpeed 0", [&] { return api.setPlaySpeed(0); }, -4},
        {"setPlaySpeed backwards huge", [&] { return api.setPlaySpeed(INT_MIN); }, 0},
        {"playSeekTo negative", [&] { return api.playSeekTo(-1000); }, 0},
        {"playSeekTo huge", [&] { return api.playSeekTo(INT_MAX); }, 0},
        {"playResume", [&] { return api.playResume(); }, 0},
        {"playStart of a list without output", [&] { return api.playStart(list); }, -14},
    });
    const int32_t position = api.getPlayPositionMs();
    EXPECT_TRUE(position == -1 || (position >= 0 && position <= 1000)) << position;

    // Negative rate and bit rate take the defaults; a null path the default name.
    const int32_t id = api.recordStart(nullptr, ENCODE_WAV, -8000, 0, INT_MIN, -1, INT_MAX);
    ASSERT_GT(id, 0);
    ASSERT_TRUE(events.waitForCode(61, id));  // stopped before its start, it would make no file
    check({
        {"second recordStart", [&] { return api.recordStart("", ENCODE_WAV, 8000, 1, 0, 0, 0); }, -5},
        {"recordPause", [&] { return api.recordPause(); }, 0},
        {"recordPause again", [&] { return api.recordPause(); }, 0},
        {"recordResume", [&] { return api.recordResume(); }, 0},
        {"recordStop", [&] { return api.recordStop(); }, 0},
        {"recordStop again", [&] { return api.recordStop(); }, -5},
    });
    ASSERT_TRUE(events.waitForCode(63, id));
    EXPECT_EQ(api.getPcmSampleRate(id), 8000);
    EXPECT_EQ(api.getPcmChannelCount(id), 1);
    EXPECT_TRUE(wvtest::fileExists(dir.file(std::to_string(id) + ".wav")));

    // A null callback drops events; a null working directory counts as "".
    EXPECT_EQ(api.setCallback(nullptr), 0);
    EXPECT_EQ(api.setWorkingDir(nullptr), 0);
    EXPECT_EQ(api.setWorkingDir(dir.prefix().c_str()), 0);
    EXPECT_EQ(api.setCallback(wvtest::EventRecorder::callback), 0);
    const int again = api.loadFile(dir.file("tone.wav").c_str());
    EXPECT_TRUE(events.waitForCode(4, again));
}

}  // namespace
