// Finding the first audio track of a file and making its PCM source: which
// failure each kind of bad file gives, which track is taken, and that a
// track read in place never gets a decoder.
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

// A decoder factory that counts its calls and makes nothing.
struct CountingFactory {
    int calls = 0;
    wv::AudioDecoderFactory factory() {
        return [this](const std::shared_ptr<wv::MetaData>&, const std::shared_ptr<wv::MediaSource>&) {
            ++calls;
            return std::shared_ptr<wv::MediaSource>();
        };
    }
};

TEST_F(AudioTrackOpener, EachKindOfBadFileHasItsOwnStatus) {
    EXPECT_EQ(wv::findFirstAudioTrack(dir->file("missing.mp3").c_str()).status, wv::FirstAudioTrack::kNotOpenable);
    EXPECT_EQ(wv::findFirstAudioTrack(dir->path().c_str()).status, wv::FirstAudioTrack::kNotOpenable);
    EXPECT_EQ(wv::findFirstAudioTrack(nullptr).status, wv::FirstAudioTrack::kNotOpenable);

    wvtest::writeFile(dir->file("empty.m4a"), "", 0);
    EXPECT_EQ(wv::findFirstAudioTrack(dir->file("empty.m4a").c_str()).status, wv::FirstAudioTrack::kNoParser);

    const std::string still = dir->file("still.mp4");
    ASSERT_TRUE(
        wvtest::runFfmpeg("-f lavfi -i testsrc=size=64x48:rate=5:duration=1 -c:v mpeg4 " + wvtest::shellQuote(still)));
    const wv::FirstAudioTrack none = wv::findFirstAudioTrack(still.c_str());
    EXPECT_EQ(none.status, wv::FirstAudioTrack::kNoAudioTrack);
    EXPECT_FALSE(none.meta);
    EXPECT_FALSE(none.sawTrackWithoutMime);
}

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

TEST_F(AudioTrackOpener, OnlyCompressedTracksAskForADecoder) {
    const wv::FirstAudioTrack wav = wv::findFirstAudioTrack(dir->file("tone.wav").c_str());
    ASSERT_EQ(wav.status, wv::FirstAudioTrack::kFound);
    EXPECT_TRUE(wv::isRawAudioMime(wav.mime));
    CountingFactory counting;
    std::shared_ptr<wv::MediaSource> track = wav.openTrack();
    EXPECT_EQ(wv::pcmSourceOf(track, counting.factory()), track);
    EXPECT_FALSE(wv::pcmSourceOf(nullptr, counting.factory()));
    EXPECT_EQ(counting.calls, 0);

    const std::string flac = dir->file("tone.flac");
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(dir->file("tone.wav"), flac, "-c:a flac"));
    const wv::FirstAudioTrack compressed = wv::findFirstAudioTrack(flac.c_str());
    ASSERT_EQ(compressed.status, wv::FirstAudioTrack::kFound);
    EXPECT_FALSE(wv::pcmSourceOf(compressed.openTrack(), counting.factory()));
    EXPECT_EQ(counting.calls, 1);
}

}  // namespace
