// Finding the first audio track of a file and making its PCM source, past a
// video track. Bad files and files read in place are tested through the load
// (tests/load, tests/lazyload).
#include <gtest/gtest.h>

#include "AudioFixtures.h"
#include "TestSupport.h"
#include "platform/MediaService.h"
#include "platform/media/AudioTrackOpener.h"

namespace {

class AudioTrackOpener : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        wv::MediaService::connect();
        dir = new wvtest::TempDir();
        ASSERT_TRUE(wvtest::writeToneWav(dir->file("tone.wav"), 22050, 1, 1.0, 440.0));
    }
    static void TearDownTestSuite() {
        delete dir;
        wv::MediaService::disconnect();
    }
    static wvtest::TempDir* dir;
};
wvtest::TempDir* AudioTrackOpener::dir = nullptr;

TEST_F(AudioTrackOpener, TheFirstAudioTrackIsTakenPastOtherTracks) {
    const std::string movie = dir->file("movie.mp4");
    ASSERT_TRUE(wvtest::runFfmpeg("-f lavfi -i testsrc=size=64x48:rate=5:duration=1 -i " +
                                  wvtest::shellQuote(dir->file("tone.wav")) +
                                  " -map 0:v -map 1:a -c:v mpeg4 -c:a aac " + wvtest::shellQuote(movie)));
    const wv::FirstAudioTrack found = wv::findFirstAudioTrack(movie.c_str());
    ASSERT_EQ(found.status, wv::FirstAudioTrack::kFound);
    EXPECT_EQ(found.index, 1u);
    EXPECT_STREQ(found.mime, "audio/mp4a-latm");
    int32_t rate = 0;
    EXPECT_TRUE(found.meta->findInt32(wv::kKeySampleRate, &rate));
    EXPECT_EQ(rate, 22050);

    std::shared_ptr<wv::MediaSource> source = wv::pcmSourceOf(found.openTrack());
    ASSERT_TRUE(source);
    ASSERT_EQ(source->start(), wv::OK);
    const char* mime = nullptr;
    EXPECT_TRUE(source->getFormat()->findCString(wv::kKeyMIMEType, &mime));
    EXPECT_TRUE(wv::isRawAudioMime(mime));
    source->stop();
}

}  // namespace
