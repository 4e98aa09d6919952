// Chapters and tags through the public operations: the chapters a file
// states (whole and in a part), carried through a list's cuts, crossfade
// and rate conversion to where ffprobe finds them, the refusals, and a
// list with nothing set writing no tag at all.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "AudioFixtures.h"
#include "EventRecorder.h"
#include "TestSupport.h"

namespace {

using namespace wvtest;

constexpr int kRate = 44100;

std::string capture(const std::string& command) {
    std::string out;
    FILE* pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) return out;
    char buffer[512];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
    ::pclose(pipe);
    return out;
}

// (start ms, title) of each chapter ffprobe reads, as "start|title" lines.
std::string probedChapters(const std::string& path) {
    return capture("ffprobe -v error -show_chapters -of csv=p=0 -show_entries chapter=start_time:chapter_tags=title " +
                   shellQuote(path));
}

class ChapterTagsTest : public ::testing::Test {
protected:
    void SetUp() override {
        engine.setWorkingDir(work.prefix().c_str());
        engine.setCallback(wvtest::EventRecorder::callback);
        engine.startThreadLoop(0);
    }
    void TearDown() override { engine.stopThreadLoop(); }

    // A 10 s tone with chapters at `chapters` (ms, title) as an MP3.
    std::string source(const std::string& name, const std::vector<std::pair<int, std::string>>& chapters) {
        const std::string wav = files.file(name + ".wav");
        writeToneWav(wav, kRate, 2, 10.0, 440);
        std::string meta = ";FFMETADATA1\ntitle=Source\n";
        for (size_t i = 0; i < chapters.size(); ++i) {
            const int end = i + 1 < chapters.size() ? chapters[i + 1].first : 10000;
            meta += "[CHAPTER]\nTIMEBASE=1/1000\nSTART=" + std::to_string(chapters[i].first) +
                    "\nEND=" + std::to_string(end) + "\ntitle=" + chapters[i].second + "\n";
        }
        writeFile(files.file(name + ".txt"), meta.data(), meta.size());
        const std::string mp3 = files.file(name + ".mp3");
        EXPECT_TRUE(runFfmpeg("-v error -i " + shellQuote(wav) + " -i " + shellQuote(files.file(name + ".txt")) +
                              " -map 0:a -map_metadata 1 -map_chapters 1 " + shellQuote(mp3)));
        return mp3;
    }
    int loaded(int id) {
        EXPECT_EQ(engine.waitForJob(id, WV_JOB_LOAD, 60000, nullptr), WV_EVENT_LOAD_DONE);
        return id;
    }
    void render(int list, const std::string& path, encode_type type) {
        ASSERT_EQ(engine.setOutputPara(list, path.c_str(), type), 0);
        ASSERT_EQ(engine.process(list), 0);
        ASSERT_EQ(engine.waitForJob(list, WV_JOB_RENDER, 120000, nullptr), WV_EVENT_RENDER_DONE);
    }

    wvtest::EventRecorder recorder;
    wvtest::TempDir files;
    wvtest::TempDir work;
    Wavoryx engine;
};

TEST_F(ChapterTagsTest, ChaptersAsTheFileStatesThem) {
    if (!ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg";
    const std::string mp3 = source("a", {{0, "Eins"}, {1234, "Zwei \xC3\xA4"}, {2500, "Drei"}});
    const int whole = loaded(engine.loadFile(mp3.c_str()));
    ASSERT_EQ(engine.getSourceChapterCount(whole), 3);
    uint32_t start = 0, end = 0;
    char title[64];
    EXPECT_EQ(engine.getSourceChapter(whole, 1, &start, &end, title, sizeof title), 7);
    EXPECT_EQ(std::string(title), "Zwei \xC3\xA4");
    EXPECT_EQ(start, 54419u);  // 1.234 s at 44.1 kHz, to the nearest frame
    EXPECT_EQ(end, 110250u);
    // Cut inside the two-byte character, never through it.
    EXPECT_EQ(engine.getSourceChapter(whole, 1, &start, &end, title, 7), 7);
    EXPECT_EQ(std::string(title), "Zwei ");
    EXPECT_EQ(engine.getSourceChapter(whole, 3, &start, &end, title, sizeof title), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.getSourceChapter(whole, 0, nullptr, &end, title, sizeof title), WV_ERR_OUT_OF_RANGE);

    // A part from 1.5 s: the chapter begun before it starts at 0, the
    // one wholly before it is gone, the others count from the part.
    const int part = loaded(engine.loadFileRange(mp3.c_str(), 1500, 5000));
    ASSERT_EQ(engine.getSourceChapterCount(part), 2);
    EXPECT_GE(engine.getSourceChapter(part, 0, &start, &end, title, sizeof title), 0);
    EXPECT_EQ(start, 0u);
    EXPECT_EQ(end, 110250u - 66150u);
    EXPECT_GE(engine.getSourceChapter(part, 1, &start, &end, title, sizeof title), 0);
    EXPECT_EQ(std::string(title), "Drei");
    EXPECT_EQ(start, 110250u - 66150u);
    EXPECT_EQ(end, 220500u - 66150u);  // cut at the part's end, 5 s
    // A part before the last chapter has none of it.
    const int early = loaded(engine.loadFileRange(mp3.c_str(), 100, 2500));
    EXPECT_EQ(engine.getSourceChapterCount(early), 2);

    const int list = engine.newClipList();
    EXPECT_EQ(engine.getSourceChapterCount(list), WV_ERR_WRONG_ITEM);
    EXPECT_EQ(engine.getSourceChapterCount(9999), WV_ERR_NO_ITEM);
}

TEST_F(ChapterTagsTest, CarriedThroughCrossfadeAndRateConversion) {
    if (!ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg";
    const int a = loaded(engine.loadFile(source("a", {{0, "A0"}, {3000, "A3"}, {6000, "A6"}}).c_str()));
    const int b = loaded(engine.loadFile(source("b", {{0, "B0"}, {2000, "B2"}}).c_str()));
    const int list = engine.newClipList();
    // a 1-4 s (A0 cut at its start, A3 inside), a 6-7 s (A6 exactly at
    // the cut), b 2-5 s (B2 at the cut, B0 wholly cut away).
    ASSERT_GT(engine.addClipMs(list, a, 1000, 4000), 0);
    ASSERT_GT(engine.addClipMs(list, a, 6000, 7000), 0);
    ASSERT_GT(engine.addClipMs(list, b, 2000, 5000), 0);
    ASSERT_EQ(engine.setListCrossfade(list, 200, WV_FADE_EQUAL_POWER), 0);
    ASSERT_EQ(engine.setEncodePara(list, 48000, 0, 2, 0), 0);
    ASSERT_EQ(engine.setResampleQuality(list, 1), 0);
    ASSERT_EQ(engine.setListChapterCarry(list, 1), 0);
    ASSERT_EQ(engine.addListChapter(list, 2500, "Added"), 0);
    const std::string out = files.file("out.flac");
    render(list, out, ENCODE_FLAC);
    // At 48 kHz each clip is its seconds x 48000 frames; each join takes
    // off 200 ms: clip 2 starts at 3.0 - 0.2 = 2.8 s, clip 3 at 3.6 s.
    EXPECT_EQ(probedChapters(out),
              "0.000000,A0\n2.000000,A3\n2.500000,Added\n2.800000,A6\n3.600000,B2\n");

    // Without the carry only the added chapter remains.
    ASSERT_EQ(engine.setListChapterCarry(list, 0), 0);
    render(list, out, ENCODE_FLAC);
    EXPECT_EQ(probedChapters(out), "2.500000,Added\n");
}

TEST_F(ChapterTagsTest, NothingSetWritesTheSameBytes) {
    if (!ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg";
    const int a = loaded(engine.loadFile(source("a", {{0, "A0"}, {3000, "A3"}}).c_str()));
    const int list = engine.newClipList();
    ASSERT_GT(engine.addClipMs(list, a, 500, 4500), 0);
    const std::string plain = files.file("plain.mp3"), again = files.file("again.mp3");
    render(list, plain, ENCODE_MP3);
    const std::vector<char> bytes = readFile(plain);
    ASSERT_GT(bytes.size(), 3u);
    EXPECT_NE(std::string(bytes.begin(), bytes.begin() + 3), "ID3");
    // Set, then taken back: the same bytes again.
    ASSERT_EQ(engine.setListTag(list, "TITLE", "x"), 0);
    ASSERT_EQ(engine.addListChapter(list, 0, "c"), 0);
    ASSERT_EQ(engine.setListChapterCarry(list, 1), 0);
    render(list, files.file("tagged.mp3"), ENCODE_MP3);
    EXPECT_EQ(std::string(readFile(files.file("tagged.mp3")).data(), 3), "ID3");
    ASSERT_EQ(engine.clearListTags(list), 0);
    render(list, again, ENCODE_MP3);
    EXPECT_EQ(readFile(again), bytes);
    ASSERT_EQ(engine.setListTag(list, "title", "x"), 0);
    ASSERT_EQ(engine.setListTag(list, "title", ""), 0);
    render(list, again, ENCODE_MP3);
    EXPECT_EQ(readFile(again), bytes);
}

TEST_F(ChapterTagsTest, Refusals) {
    const int list = engine.newClipList();
    EXPECT_EQ(engine.setListTag(list, "colour", "red"), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.setListTag(list, nullptr, "red"), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.setListTag(9999, "title", "x"), WV_ERR_NO_ITEM);
    EXPECT_EQ(engine.addListChapter(list, 0, nullptr), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.setListChapterCarry(list, 2), WV_ERR_OUT_OF_RANGE);
    const std::string text = files.file("not.png");
    writeFile(text, "not a picture", 13);
    EXPECT_EQ(engine.setListCover(list, text.c_str()), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.setListCover(list, files.file("missing.png").c_str()), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.setListCover(list, files.path().c_str()), WV_ERR_OUT_OF_RANGE);
    EXPECT_EQ(engine.setListCover(list, nullptr), WV_OK);
    const std::string wav = files.file("a.wav");
    writeToneWav(wav, kRate, 2, 1.0, 440);
    const int item = engine.loadFile(wav.c_str());
    EXPECT_EQ(engine.setListTag(item, "title", "x"), WV_ERR_WRONG_ITEM);
    EXPECT_EQ(engine.waitForJob(item, WV_JOB_LOAD, 60000, nullptr), WV_EVENT_LOAD_DONE);
    EXPECT_EQ(engine.getSourceChapterCount(item), 0);
}

}  // namespace
