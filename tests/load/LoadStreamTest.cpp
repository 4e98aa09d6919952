// Loads from a stream (loadStream): the frames equal a load of the same
// file, bit for bit, for each format that streams; the item grows while
// the bytes arrive, before the stream ends; a format that must seek gives
// nothing;
// and a descriptor that is not open registers nothing.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "AudioFixtures.h"
#include "LoadTestHelpers.h"

namespace {

using loadtest::LoadRig;
using wvtest::Event;

// Writes `bytes` into a new pipe from a thread and returns the read end;
// the write end is closed at the end unless `keepOpen`, then by `closeWriter`.
class PipeFeed {
public:
    PipeFeed(std::vector<char> bytes, bool keepOpen) {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        mRead = ends[0];
        mWrite = ends[1];
        mThread = std::thread([this, bytes = std::move(bytes), keepOpen] {
            size_t done = 0;
            while (done < bytes.size()) {
                const ssize_t n = ::write(mWrite, bytes.data() + done, bytes.size() - done);
                if (n <= 0) break;
                done += size_t(n);
            }
            if (!keepOpen) closeWriter();
        });
    }
    ~PipeFeed() {
        endStream();
        if (mRead >= 0) ::close(mRead);
    }
    // Closes the write end once every byte is written: closing it under a
    // write still under way would be a race on the descriptor.
    void endStream() {
        if (mThread.joinable()) mThread.join();
        closeWriter();
    }
    int readEnd() const { return mRead; }
    void closeWriter() {
        const int fd = mWrite.exchange(-1);
        if (fd >= 0) ::close(fd);
    }

private:
    int mRead = -1;
    std::atomic<int> mWrite{-1};
    std::thread mThread;
};

std::string encoded(LoadRig& rig, const std::string& ext, const std::string& options, double seconds = 3.0) {
    const std::string wav = rig.scratch("tone" + std::to_string(int(seconds)) + ".wav");
    if (!wvtest::fileExists(wav) && !wvtest::writeToneWav(wav, 44100, 2, seconds, 440.0)) return "";
    if (ext == "wav") return wav;
    const std::string out = rig.scratch("tone" + std::to_string(int(seconds)) + "." + ext);
    if (!wvtest::runFfmpeg("-i " + wvtest::shellQuote(wav) + " " + options + " " + wvtest::shellQuote(out))) return "";
    return out;
}

// The item's PCM bytes once its load ended well.
std::vector<char> loadedPcm(LoadRig& rig, int id, const std::string& file) {
    EXPECT_TRUE(rig.waitForEnd(id));
    EXPECT_EQ(rig.eventsOf(id).back(), (Event{4, id, -1}));
    if (wvtest::fileExists(rig.pcmPath(id))) return wvtest::readFile(rig.pcmPath(id));
    // A WAV loaded by name is read in place, after its 44-byte header.
    std::vector<char> whole = wvtest::readFile(file);
    return std::vector<char>(whole.begin() + 44, whole.end());
}

TEST(LoadStream, GivesTheFramesOfTheFileForEveryFormatThatStreams) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg";
    LoadRig rig;
    const std::pair<const char*, const char*> formats[] = {
        {"mp3", "-b:a 128k"}, {"flac", ""}, {"wav", ""}, {"ogg", "-c:a libvorbis"}, {"aac", "-c:a aac"}};
    for (const auto& [ext, options] : formats) {
        SCOPED_TRACE(ext);
        const std::string file = encoded(rig, ext, options);
        ASSERT_FALSE(file.empty());
        const int byName = rig.engine().loadFile(file.c_str());
        const std::vector<char> want = loadedPcm(rig, byName, file);
        PipeFeed feed(wvtest::readFile(file), false);
        const int streamed = rig.engine().loadStream(feed.readEnd());
        ASSERT_GT(streamed, 0);
        const std::vector<char> got = loadedPcm(rig, streamed, "");
        EXPECT_EQ(got.size(), want.size());
        EXPECT_TRUE(got == want);
        EXPECT_EQ(rig.engine().getPcmFrameLength(streamed), rig.engine().getPcmFrameLength(byName));
    }
}

TEST(LoadStream, AnMp3DropsItsPaddingButKeepsWhatFollowsIt) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg";
    LoadRig rig;
    const std::string file = encoded(rig, "mp3", "-b:a 128k");
    ASSERT_FALSE(file.empty());
    const int byName = rig.engine().loadFile(file.c_str());
    const std::vector<char> one = loadedPcm(rig, byName, file);
    std::vector<char> twice = wvtest::readFile(file);
    twice.insert(twice.end(), twice.begin(), twice.end());
    PipeFeed feed(twice, false);
    const int id = rig.engine().loadStream(feed.readEnd());
    const std::vector<char> got = loadedPcm(rig, id, "");
    // The first file to its stated end, then the second one's audio.
    ASSERT_GT(got.size(), 2 * one.size() - 4 * 1152);
    EXPECT_TRUE(std::equal(one.begin(), one.end(), got.begin()));
}

TEST(LoadStream, GrowsWhileTheStreamIsOpenAndEndsWithIt) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg";
    LoadRig rig;
    const std::string file = encoded(rig, "flac", "");
    ASSERT_FALSE(file.empty());
    PipeFeed feed(wvtest::readFile(file), true);
    const int id = rig.engine().loadStream(feed.readEnd());
    ASSERT_GT(id, 0);
    // The audio arrives while the writer still holds its end open (but for
    // the last step, which waits for more).
    EXPECT_TRUE(wvtest::waitUntil([&] { return rig.engine().getPcmFrameLength(id) >= 2 * 44100; },
                                  std::chrono::seconds(20)));
    for (const Event& e : rig.eventsOf(id)) EXPECT_NE(e.code, 4);
    feed.endStream();
    ASSERT_TRUE(rig.waitForEnd(id));
    EXPECT_EQ(rig.eventsOf(id).back(), (Event{4, id, -1}));
}

TEST(LoadStream, AFormatThatMustSeekFailsAndABadDescriptorRegistersNothing) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "no ffmpeg";
    LoadRig rig;
    // ffmpeg writes an MP4's index after its samples: past what the parser
    // holds in memory, the samples cannot be reached again.
    const std::string file = encoded(rig, "m4a", "-c:a aac", 60.0);
    ASSERT_FALSE(file.empty());
    PipeFeed feed(wvtest::readFile(file), false);
    const int id = rig.engine().loadStream(feed.readEnd());
    ASSERT_GT(id, 0);
    ASSERT_TRUE(rig.waitForEnd(id));
    const Event end = rig.eventsOf(id).back();
    EXPECT_TRUE(end == (Event{0, id, 1}) || (end.code == 4 && rig.engine().getPcmFrameLength(id) == 0))
        << end.code << " " << end.value << " " << rig.engine().getPcmFrameLength(id);

    EXPECT_EQ(rig.engine().loadStream(-1), -4);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    ::close(ends[1]);
    EXPECT_EQ(rig.engine().loadStream(ends[0]), -4);
}

}  // namespace
