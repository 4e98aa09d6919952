// The `file:` output device's WAV: an existing file at its path is replaced
// only by a finished WAV, a device is written as it is.
#include "platform/audio/WavFileSink.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "AudioFixtures.h"
#include "TestSupport.h"

namespace {

using wv::WavFileSink;

TEST(WavFileSink, AnExistingFileIsReplacedOnlyByAFinishedWav) {
    wvtest::TempDir dir;
    const std::string path = dir.file("heard.wav");
    wvtest::writeFile(path, "earlier", 7);
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    const std::vector<int16_t> frames = {1, -1, 2, -2, 3, -3};
    {
        WavFileSink sink;
        ASSERT_EQ(sink.open(path, 8000, 2), 0);
        ASSERT_EQ(sink.write(frames.data(), 3), 0);
        EXPECT_EQ(wvtest::fileSize(path), 7);  // still the old file
        sink.discard();                        // a write failed later on
    }
    EXPECT_EQ(wvtest::fileSize(path), 7);
    {
        WavFileSink sink;
        ASSERT_EQ(sink.open(path, 8000, 2), 0);
        ASSERT_EQ(sink.write(frames.data(), 3), 0);
        sink.close();
    }
    std::vector<int16_t> samples;
    int rate = 0;
    int channels = 0;
    ASSERT_TRUE(wvtest::readWavSamples(path, &samples, &rate, &channels));
    EXPECT_EQ(samples, frames);
    EXPECT_EQ(rate, 8000);
    struct stat st;
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    // A new file follows the umask; one never finished is not left behind.
    const mode_t before = ::umask(027);
    {
        WavFileSink sink;
        ASSERT_EQ(sink.open(dir.file("new.wav"), 8000, 1), 0);
        ASSERT_EQ(::stat(dir.file("new.wav").c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0640u);
        sink.discard();
    }
    ::umask(before);
    EXPECT_FALSE(wvtest::fileExists(dir.file("new.wav")));
}

TEST(WavFileSink, DevNullIsWrittenAndLeftAsItWas) {
    struct stat before;
    ASSERT_EQ(::stat("/dev/null", &before), 0);
    for (bool finish : {true, false}) {
        WavFileSink sink;
        ASSERT_EQ(sink.open("/dev/null", 44100, 2), 0);
        const std::vector<int16_t> frames(64, 7);
        EXPECT_EQ(sink.write(frames.data(), 32), 0);
        if (finish) {
            sink.close();
        } else {
            sink.discard();
        }
    }
    struct stat after;
    ASSERT_EQ(::stat("/dev/null", &after), 0);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_rdev, before.st_rdev);
}

}  // namespace
