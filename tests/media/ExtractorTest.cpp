// Container detection: MIME types and formats of tracks, track order,
// files that are not media, and ownership between extractor and tracks.
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "AudioFixtures.h"
#include "MediaDecode.h"
#include "TestSupport.h"
#include "platform/MediaService.h"
#include "platform/media/DataSource.h"
#include "platform/media/MediaExtractor.h"

namespace {

std::shared_ptr<wv::MediaExtractor> open(const std::string& path) {
    auto data = wv::DataSource::CreateFromURI(path.c_str());
    return data ? wv::MediaExtractor::Create(data) : nullptr;
}

std::string mimeOf(const std::shared_ptr<wv::MetaData>& meta) {
    const char* mime = "";
    return meta && meta->findCString(wv::kKeyMIMEType, &mime) ? mime : "";
}

class Extractor : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        wv::MediaService::connect();
        dir = new wvtest::TempDir();
        ASSERT_TRUE(wvtest::writeToneWav(dir->file("src.wav"), 32000, 2, 2.0, 440.0));
    }
    static void TearDownTestSuite() {
        delete dir;
        wv::MediaService::disconnect();
    }
    static std::string encode(const char* name, const char* args) {
        const std::string out = dir->file(name);
        EXPECT_TRUE(wvtest::encodeWithFfmpeg(dir->file("src.wav"), out, args)) << name;
        return out;
    }
    static wvtest::TempDir* dir;
};
wvtest::TempDir* Extractor::dir = nullptr;

TEST_F(Extractor, EachFormatReportsItsMimeTypeRateChannelsAndDuration) {
    const struct {
        const char* file;
        const char* args;
        const char* mime;
        int rate;
    } cases[] = {
        {"a.mp3", "-c:a libmp3lame", "audio/mpeg", 32000},       {"a.m4a", "-c:a aac", "audio/mp4a-latm", 32000},
        {"a.aac", "-c:a aac -f adts", "audio/mp4a-latm", 32000}, {"a.ogg", "-c:a libvorbis", "audio/vorbis", 32000},
        {"a.opus", "-c:a libopus", "audio/opus", 48000},         {"a.flac", "-c:a flac", "audio/flac", 32000},
        {"a16.wav", "-c:a pcm_s16le", "audio/x-wav", 32000},  // ffmpeg adds a LIST chunk
        {"a32.wav", "-c:a pcm_s32le", "audio/x-wav", 32000},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        auto extractor = open(encode(c.file, c.args));
        ASSERT_TRUE(extractor);
        ASSERT_EQ(extractor->countTracks(), 1u);
        auto meta = extractor->getTrackMetaData(0, wv::MediaExtractor::kIncludeExtensiveMetaData);
        EXPECT_EQ(mimeOf(meta), c.mime);
        int32_t rate = 0, channels = 0, mask = 0;
        int64_t durationUs = 0;
        EXPECT_TRUE(meta->findInt32(wv::kKeySampleRate, &rate));
        EXPECT_TRUE(meta->findInt32(wv::kKeyChannelCount, &channels));
        EXPECT_TRUE(meta->findInt32(wv::kKeyChannelMask, &mask));
        EXPECT_TRUE(meta->findInt64(wv::kKeyDuration, &durationUs));
        EXPECT_EQ(rate, c.rate);
        EXPECT_EQ(channels, 2);
        EXPECT_EQ(mask, 0x3);
        EXPECT_NEAR(double(durationUs), 2e6, 1e5);
    }
}

TEST_F(Extractor, TracksKeepTheirContainerOrder) {
    const std::string movie = dir->file("movie.mp4");
    ASSERT_TRUE(wvtest::runFfmpeg("-f lavfi -i testsrc=size=64x48:rate=5:duration=2 -i " +
                                  wvtest::shellQuote(dir->file("src.wav")) + " -map 0:v -map 1:a -c:v mpeg4 -c:a aac " +
                                  wvtest::shellQuote(movie)));
    auto extractor = open(movie);
    ASSERT_TRUE(extractor);
    ASSERT_EQ(extractor->countTracks(), 2u);
    EXPECT_EQ(mimeOf(extractor->getTrackMetaData(0)), "video/mp4v-es");
    EXPECT_EQ(mimeOf(extractor->getTrackMetaData(1)), "audio/mp4a-latm");
    EXPECT_FALSE(extractor->getTrackMetaData(2));
    EXPECT_FALSE(extractor->getTrack(2));
    // The audio track decodes although the video packets come interleaved.
    wvtest::DecodedAudio audio;
    ASSERT_TRUE(wvtest::decodeWithMediaLayer(movie, &audio));
    EXPECT_NEAR(double(audio.frames()), 64000.0, 1024.0);
}

TEST_F(Extractor, FilesThatAreNotMediaAreRefused) {
    const std::string text = dir->file("notes.txt");
    const std::string words = "Shopping list:\n- bread\n- milk\n- three apples\n";
    wvtest::writeFile(text, words.data(), words.size());
    const std::string empty = dir->file("empty.mp3");
    wvtest::writeFile(empty, "", 0);
    const std::string noise = dir->file("noise.mp3");
    std::vector<char> bytes(4096);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = char((i * 2654435761u) >> 13);
    wvtest::writeFile(noise, bytes.data(), bytes.size());

    EXPECT_FALSE(wv::DataSource::CreateFromURI(dir->file("missing.mp3").c_str()));
    EXPECT_FALSE(wv::DataSource::CreateFromURI(dir->path().c_str()));  // a directory
    EXPECT_FALSE(wv::DataSource::CreateFromURI(""));
    for (const std::string& path : {text, empty, noise}) {
        SCOPED_TRACE(path);
        ASSERT_TRUE(wv::DataSource::CreateFromURI(path.c_str()));
        auto extractor = open(path);
        // Either nothing accepts it or what does finds no audio.
        if (extractor) {
            for (size_t i = 0; i < extractor->countTracks(); ++i) {
                EXPECT_NE(mimeOf(extractor->getTrackMetaData(i)).rfind("audio/", 0), 0u);
            }
        }
    }
}

TEST_F(Extractor, PathsAreFilesNotUrls) {
    // A colon would make a URL parser see a protocol.
    const std::string odd = dir->file("take 1:mix?.flac");
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(dir->file("src.wav"), dir->file("plain.flac"), "-c:a flac"));
    ASSERT_EQ(std::rename(dir->file("plain.flac").c_str(), odd.c_str()), 0);
    EXPECT_TRUE(open(odd));
    EXPECT_TRUE(open("file://" + odd));
}

TEST_F(Extractor, ATrackOutlivesItsExtractorAndDataSource) {
    std::shared_ptr<wv::MediaSource> track;
    {
        auto extractor = open(encode("keep.flac", "-c:a flac"));
        ASSERT_TRUE(extractor);
        track = extractor->getTrack(0);
    }
    ASSERT_EQ(track->start(), wv::OK);
    size_t packets = 0;
    wv::MediaBuffer* buffer = nullptr;
    while (track->read(&buffer) == wv::OK) {
        EXPECT_GT(buffer->range_length(), 0u);
        buffer->release();
        ++packets;
    }
    EXPECT_GT(packets, 5u);
    EXPECT_EQ(track->stop(), wv::OK);
    EXPECT_NE(track->stop(), wv::OK);  // not started any more
}

}  // namespace
