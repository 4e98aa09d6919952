// Renders on several encoder threads: the setting's checks, a list's MP3 of
// many segments (constant-rate or VBR) decodes to exactly the list's frames,
// and a cancel or a full storage mid-way leaves nothing behind and an
// existing file as it was.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "AudioFiles.h"
#include "RenderFixture.h"
#include "SmallFilesystem.h"
#include "codec/AudioEncoder.h"

namespace {

using rendertest::patternSamples;
using rendertest::waitUntil;
using wvtest::namesIn;

class EncodeThreads : public rendertest::RenderTest {
protected:
    std::string plantOutput(const std::string& folder, const std::string& name) {
        const std::string out = folder + "/" + name;
        wvtest::writeFile(out, "the user's own file", 19);
        return out;
    }
    void expectUntouched(const std::string& out) {
        const std::vector<char> bytes = wvtest::readFile(out);
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "the user's own file") << out;
    }
};

TEST_F(EncodeThreads, RefusesCountsOutOfRangeAndItemsThatAreNotLists) {
    const uint32_t list = newList({{addPcmItem(patternSamples(4410, 2, 1), 44100, 2), 0, 4410}});
    EXPECT_EQ(engine->setEncodeThreads(list, -1), -4);
    EXPECT_EQ(engine->setEncodeThreads(list, 65), -4);
    EXPECT_EQ(engine->setEncodeThreads(list + 1000, 2), -1);
    wv::SPcmInfo* item = addPcmItem(patternSamples(100, 2, 1), 44100, 2);
    EXPECT_EQ(engine->setEncodeThreads(item->id, 2), -2);
    for (int n : {0, 1, 2, 64}) EXPECT_EQ(engine->setEncodeThreads(list, n), 0);
}

TEST_F(EncodeThreads, AnMp3OfManySegmentsHoldsExactlyTheListsFrames) {
    if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
    const uint32_t frames = 35 * 44100 + 123;
    wv::SPcmInfo* a = addPcmItem(patternSamples(frames, 2, 4), 44100, 2);
    const uint32_t listFrames = frames / 2 - 1000 + frames - (frames / 2 + 5000);
    for (int vbr : {0, 3}) {
        const uint32_t list = newList({{a, 1000, frames / 2}, {a, frames / 2 + 5000, frames}});
        const std::string out = dir.file("many" + std::to_string(vbr) + ".mp3");
        ASSERT_EQ(engine->setOutputPara(list, out.c_str(), ENCODE_MP3), 0);
        ASSERT_EQ(engine->setEncodeThreads(list, 3), 0);
        ASSERT_EQ(engine->setEncodeOptions(list, 5, vbr, 1), 0);
        ASSERT_EQ(render(list).code, wv::EVT_RENDER_DONE) << "vbr " << vbr;
        EXPECT_EQ(engine->getPcmFrameLength(list), int32_t(listFrames)) << "vbr " << vbr;
        std::vector<int16_t> decoded;
        ASSERT_TRUE(wvtest::decodeToPcm16(out, dir.path(), &decoded));
        EXPECT_EQ(decoded.size(), size_t(listFrames) * 2) << "vbr " << vbr;
    }
}

TEST_F(EncodeThreads, FlacInSegmentsAndAacOnAThreadOfItsOwnWriteTheBytesOfOne) {
    const uint32_t frames = 12 * 44100 + 77;
    wv::SPcmInfo* a = addPcmItem(patternSamples(frames, 2, 5), 44100, 2);
    for (encode_type type : {ENCODE_FLAC, ENCODE_AAC}) {
        std::vector<std::vector<char>> files;
        for (int threads : {1, 2}) {
            const std::string out = dir.file("t" + std::to_string(threads) + wv::formatSuffix(wv::EncodeFormat(type)));
            const uint32_t list = newList({{a, 100, frames}});
            ASSERT_EQ(engine->setOutputPara(list, out.c_str(), type), 0);
            ASSERT_EQ(engine->setEncodeThreads(list, threads), 0);
            ASSERT_EQ(render(list).code, wv::EVT_RENDER_DONE);
            files.push_back(wvtest::readFile(out));
        }
        EXPECT_TRUE(files[0] == files[1]) << "type " << type;
    }
}

TEST_F(EncodeThreads, ACancelMidWayLeavesNoFileAndTheExistingOneWhole) {
    const std::pair<encode_type, int> kinds[] = {{ENCODE_MP3, 0}, {ENCODE_MP3, 2}, {ENCODE_FLAC, 0}, {ENCODE_OPUS, 0}};
    for (const auto& [type, vbr] : kinds) {
        SCOPED_TRACE("type " + std::to_string(type) + " vbr " + std::to_string(vbr));
        const uint32_t frames = 40 * 44100;
        wv::SPcmInfo* source = addPcmItem(patternSamples(frames, 2, 9), 44100, 2, wv::DECODING);
        source->totalFrames = frames + 44100;  // more to come, as far as the render knows
        const std::string suffix = wv::formatSuffix(wv::EncodeFormat(type));
        const std::string out = plantOutput(dir.path(), "kept" + suffix);
        const std::string absent = dir.file("absent" + suffix);
        std::vector<uint32_t> lists;
        for (const std::string& path : {out, absent}) {
            const uint32_t list = newList({{source, 0, frames + 44100}});
            ASSERT_EQ(engine->setOutputPara(list, path.c_str(), type), 0);
            ASSERT_EQ(engine->setEncodeThreads(list, 2), 0);
            ASSERT_EQ(engine->setEncodeOptions(list, 5, vbr, vbr > 0 ? 1 : 0), 0);
            ASSERT_EQ(engine->process(list), 0);
            lists.push_back(list);
        }
        for (uint32_t list : lists) {
            // Counted at the file's rate: Opus files are 48 kHz.
            const uint64_t rate = type == ENCODE_OPUS ? 48000 : 44100;
            const int32_t counted = int32_t((uint64_t(frames) * rate + 22050) / 44100);
            EXPECT_TRUE(waitUntil([&] { return engine->getPcmFrameLength(list) == counted; }));
            ASSERT_EQ(engine->cancelProcess(list), 0);
            EXPECT_EQ(waitForEnding(list).code, wv::EVT_RENDER_CANCELLED);
        }
        expectUntouched(out);
        const std::set<std::string> names = namesIn(dir.path());
        EXPECT_EQ(names.count("absent" + suffix), 0u);
        EXPECT_EQ(names.count("absent" + suffix + ".wave"), 0u);
        for (const std::string& name : names) EXPECT_EQ(name.find(".part"), std::string::npos) << name;
    }
}

TEST_F(EncodeThreads, StorageFullMidWayStopsAndKeepsTheExistingFile) {
    wvtest::SmallFilesystem fs(256 * 1024);
    if (!fs.mounted()) GTEST_SKIP() << fs.skipReason();
    const uint32_t frames = 30 * 44100;  // about 1.2 MB at 320 kbit/s, more as FLAC
    wv::SPcmInfo* item = addPcmItem(patternSamples(frames, 2, 3), 44100, 2);
    const std::pair<encode_type, int> kinds[] = {{ENCODE_MP3, 0}, {ENCODE_MP3, 1}, {ENCODE_FLAC, 0}, {ENCODE_AAC, 0}};
    for (const auto& [type, vbr] : kinds) {
        const std::string out = plantOutput(fs.path(), std::string("full") + wv::formatSuffix(wv::EncodeFormat(type)));
        const std::set<std::string> before = namesIn(fs.path());
        const uint32_t list = newList({{item, 0, frames}});
        ASSERT_EQ(engine->setOutputPara(list, out.c_str(), type), 0);
        ASSERT_EQ(engine->setEncodeThreads(list, 2), 0);
        ASSERT_EQ(engine->setEncodeOptions(list, 5, vbr, vbr > 0 ? 1 : 0), 0);
        EXPECT_EQ(render(list).code, wv::EVT_RENDER_STOPPED) << "type " << type << " vbr " << vbr;
        expectUntouched(out);
        EXPECT_EQ(namesIn(fs.path()), before);
    }
}

}  // namespace
