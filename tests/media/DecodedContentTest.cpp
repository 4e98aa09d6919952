// What comes out of the decoders: exact samples for lossless files, the
// right length and tone for lossy ones, time stamps, seeks, and clean ends
// for damaged files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>

#include "AudioFiles.h"
#include "AudioFixtures.h"
#include "MediaDecode.h"
#include "TestSupport.h"
#include "platform/MediaService.h"
#include "platform/media/MediaSource.h"

namespace {

using wvtest::DecodedAudio;

constexpr int kRate = 44100;
constexpr double kSeconds = 3.0;
constexpr double kFreq = 440.0;
constexpr size_t kFrames = size_t(kRate * kSeconds);

struct LossyCase {
    const char* file;
    int rate;
    size_t toleranceFrames;  // about one codec frame
};

class DecodedContent : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        wv::MediaService::connect();
        dir = new wvtest::TempDir();
        ASSERT_TRUE(wvtest::ffmpegAvailable());
        source = wvtest::makeTone(kRate, 2, kSeconds, kFreq);
        ASSERT_TRUE(wvtest::writeWav(path("src.wav"), source, kRate, 2));
        struct Encoding {
            const char* out;
            const char* args;
        } encodings[] = {
            {"tone.flac", "-c:a flac"},
            {"tone24.wav", "-c:a pcm_s24le"},
            {"tonef32.wav", "-c:a pcm_f32le"},
            {"tone.mp3", "-c:a libmp3lame -b:a 128k"},
            {"tone.m4a", "-c:a aac -b:a 128k"},
            {"tone.ogg", "-c:a libvorbis -q:a 4"},
            {"tone.opus", "-c:a libopus -b:a 96k"},
        };
        for (const auto& e : encodings) {
            ASSERT_TRUE(wvtest::encodeWithFfmpeg(path("src.wav"), path(e.out), e.args)) << e.out;
        }
    }
    static void TearDownTestSuite() {
        delete dir;
        dir = nullptr;
        wv::MediaService::disconnect();
    }
    static std::string path(const std::string& name) { return dir->file(name); }

    static wvtest::TempDir* dir;
    static std::vector<int16_t> source;
};

wvtest::TempDir* DecodedContent::dir = nullptr;
std::vector<int16_t> DecodedContent::source;

size_t absDiff(size_t a, size_t b) { return a > b ? a - b : b - a; }

TEST_F(DecodedContent, LosslessFilesGiveBackTheSourceSamples) {
    for (const char* name : {"tone.flac", "tone24.wav", "tonef32.wav"}) {
        SCOPED_TRACE(name);
        DecodedAudio audio;
        ASSERT_TRUE(wvtest::decodeWithMediaLayer(path(name), &audio));
        EXPECT_NE(audio.mime.find("audio/"), std::string::npos);
        EXPECT_EQ(audio.mime.find("raw"), std::string::npos);
        EXPECT_EQ(audio.rate, kRate);
        ASSERT_EQ(audio.channels, 2);
        ASSERT_EQ(audio.samples.size(), source.size());
        EXPECT_TRUE(audio.samples == source);
    }
}

TEST_F(DecodedContent, LossyFilesKeepLengthToneAndChannelLevels) {
    const LossyCase cases[] = {
        {"tone.mp3", kRate, 1152},
        {"tone.m4a", kRate, 1024},
        {"tone.ogg", kRate, 2048},
        {"tone.opus", 48000, 960},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        DecodedAudio audio;
        ASSERT_TRUE(wvtest::decodeWithMediaLayer(path(c.file), &audio));
        EXPECT_EQ(audio.rate, c.rate);
        ASSERT_EQ(audio.channels, 2);
        const size_t expected = size_t(c.rate * kSeconds);
        EXPECT_LE(absDiff(audio.frames(), expected), c.toleranceFrames) << audio.frames();
        // Skip the edges, where codecs fade in and out.
        const size_t skip = size_t(c.rate / 10);
        ASSERT_GT(audio.frames(), 3 * skip);
        const int16_t* middle = audio.samples.data() + skip * 2;
        const size_t frames = audio.frames() - 2 * skip;
        for (int ch = 0; ch < 2; ++ch) {
            EXPECT_NEAR(wvtest::estimateFrequency(middle, frames, 2, ch, audio.rate), kFreq, 2.0);
        }
        const double left = wvtest::channelRms(middle, frames, 2, 0);
        const double right = wvtest::channelRms(middle, frames, 2, 1);
        EXPECT_NEAR(left, 0.5 / std::sqrt(2.0), 0.02);
        EXPECT_NEAR(right / left, 0.875, 0.02);
    }
}

TEST_F(DecodedContent, AnM4aEndsWhereItsEditListSaysAndStartsAfterThePriming) {
    // A length that no AAC frame boundary meets: the last frame's padding
    // is left out, as far as the container's edit list says: to the frame
    // with a time scale of the sample rate, to the millisecond with
    // ffmpeg's default one.
    const uint32_t frames = 3 * 44100 / 2 + 123;
    const std::vector<int16_t> tone = wvtest::makeTone(44100, 2, double(frames) / 44100, 440.0);
    ASSERT_EQ(tone.size(), size_t(frames) * 2);
    ASSERT_TRUE(wvtest::writeWav(path("odd.wav"), tone, 44100, 2));
    const struct {
        const char* name;
        const char* args;
        uint32_t stated;
    } files[] = {{"exact.m4a", "-c:a aac -b:a 128k -movie_timescale 44100", frames},
                 {"ms.m4a", "-c:a aac -b:a 128k", (frames * 1000 + 44099) / 44100 * 441 / 10}};
    for (const auto& f : files) {
        SCOPED_TRACE(f.name);
        ASSERT_TRUE(wvtest::encodeWithFfmpeg(path("odd.wav"), path(f.name), f.args));
        ASSERT_EQ(wvtest::probeStreamFrames(path(f.name)), long(f.stated));
        std::vector<int16_t> ffmpeg;  // every frame ffmpeg's decoder makes, padding included
        ASSERT_TRUE(wvtest::decodeToPcm16(path(f.name), dir->path(), &ffmpeg));
        ASSERT_GT(ffmpeg.size(), size_t(f.stated) * 2);
        DecodedAudio audio;
        ASSERT_TRUE(wvtest::decodeWithMediaLayer(path(f.name), &audio));
        EXPECT_EQ(audio.frames(), size_t(f.stated));
        ASSERT_LE(audio.samples.size(), ffmpeg.size());
        EXPECT_TRUE(std::equal(audio.samples.begin(), audio.samples.end(), ffmpeg.begin()))
            << "the same frames as ffmpeg's from the first";
    }
}

TEST_F(DecodedContent, OtherRatesAndChannelCounts) {
    // Mono at 22050 Hz stays mono at 22050 Hz; six channels come out as two.
    ASSERT_TRUE(wvtest::writeToneWav(path("mono.wav"), 22050, 1, 2.0, 1000.0));
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(path("mono.wav"), path("mono.mp3"), "-c:a libmp3lame"));
    DecodedAudio mono;
    ASSERT_TRUE(wvtest::decodeWithMediaLayer(path("mono.mp3"), &mono));
    EXPECT_EQ(mono.rate, 22050);
    ASSERT_EQ(mono.channels, 1);
    EXPECT_LE(absDiff(mono.frames(), 44100), 1152u);
    EXPECT_NEAR(wvtest::estimateFrequency(mono.samples.data() + 4410, mono.frames() - 8820, 1, 0, 22050), 1000.0, 3.0);

    ASSERT_TRUE(wvtest::writeToneWav(path("six.wav"), 48000, 6, 2.0, 300.0));
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(path("six.wav"), path("six.flac"), "-c:a flac"));
    DecodedAudio six;
    ASSERT_TRUE(wvtest::decodeWithMediaLayer(path("six.flac"), &six));
    EXPECT_EQ(six.rate, 48000);
    ASSERT_EQ(six.channels, 2);
    EXPECT_EQ(six.frames(), 96000u);
    for (int ch = 0; ch < 2; ++ch) {
        EXPECT_NEAR(wvtest::estimateFrequency(six.samples.data(), six.frames(), 2, ch, 48000), 300.0, 1.0);
        EXPECT_GT(wvtest::channelRms(six.samples.data(), six.frames(), 2, ch), 0.1);
    }
}

TEST_F(DecodedContent, TimeStampsFollowTheDeliveredFrames) {
    for (const char* name : {"tone.flac", "tone.mp3", "tone.m4a", "tone.ogg", "tone.opus"}) {
        SCOPED_TRACE(name);
        DecodedAudio audio;
        ASSERT_TRUE(wvtest::decodeWithMediaLayer(path(name), &audio));
        ASSERT_GT(audio.bufferTimesUs.size(), 10u);
        EXPECT_LT(std::llabs(audio.bufferTimesUs[0]), 30000);
        int64_t framesBefore = 0;
        for (size_t i = 0; i < audio.bufferTimesUs.size(); ++i) {
            const int64_t expectedUs = framesBefore * 1000000 / audio.rate;
            ASSERT_LT(std::llabs(audio.bufferTimesUs[i] - expectedUs - audio.bufferTimesUs[0]), 2000) << "buffer " << i;
            framesBefore += int64_t(audio.bufferFrames[i]);
        }
    }
}

TEST_F(DecodedContent, SeeksLandNearTheTargetAndStampTheLanding) {
    for (const char* name : {"tone.flac", "tone.mp3", "tone.m4a", "tone.ogg", "tone.opus", "tone24.wav"}) {
        SCOPED_TRACE(name);
        std::shared_ptr<wv::MediaSource> pcm = wvtest::openPcmSource(path(name));
        ASSERT_TRUE(pcm);
        DecodedAudio whole;
        wvtest::readAll(*pcm, &whole);
        DecodedAudio tail;
        EXPECT_EQ(wvtest::readAll(*pcm, &tail, 1500000), wv::ERROR_END_OF_STREAM);
        ASSERT_FALSE(tail.bufferTimesUs.empty());
        const int64_t landedUs = tail.bufferTimesUs[0];
        EXPECT_LT(std::llabs(landedUs - 1500000), 1000) << landedUs;
        // The stamp tells the truth: the rest of the stream fits behind it.
        const int64_t landedFrame = landedUs * tail.rate / 1000000;
        EXPECT_LT(std::llabs(landedFrame + int64_t(tail.frames()) - int64_t(whole.frames())), 2048);
        if (std::string(name) == "tone.flac" || std::string(name) == "tone24.wav") {
            // Lossless: the tail is the source from the asked frame on.
            const size_t asked = 66150;
            ASSERT_EQ(tail.frames(), kFrames - asked);
            EXPECT_TRUE(std::equal(tail.samples.begin(), tail.samples.end(), source.begin() + 2 * asked));
        }
        // Past the end the stream ends at once; a seek back makes it readable.
        DecodedAudio none;
        wvtest::readAll(*pcm, &none, 60000000);
        EXPECT_LT(none.frames(), 4096u);
        DecodedAudio again;
        wvtest::readAll(*pcm, &again, 0, 4);
        ASSERT_FALSE(again.bufferTimesUs.empty());
        EXPECT_LT(std::llabs(again.bufferTimesUs[0]), 30000);
        pcm->stop();
    }
}

TEST_F(DecodedContent, DamagedFilesEndCleanlyWithWhatCouldBeDecoded) {
    const std::vector<char> mp3 = wvtest::readFile(path("tone.mp3"));
    ASSERT_GT(mp3.size(), 10000u);
    wvtest::writeFile(path("half.mp3"), mp3.data(), mp3.size() / 2);
    DecodedAudio half;
    ASSERT_TRUE(wvtest::decodeWithMediaLayer(path("half.mp3"), &half));
    EXPECT_GT(half.frames(), kFrames / 2 - 4 * 1152);
    EXPECT_LT(half.frames(), kFrames / 2 + 4 * 1152);

    std::vector<char> broken = mp3;
    for (size_t i = broken.size() / 2; i < broken.size() / 2 + 3000; ++i) broken[i] = char(i * 7);
    wvtest::writeFile(path("broken.mp3"), broken.data(), broken.size());
    DecodedAudio damaged;
    ASSERT_TRUE(wvtest::decodeWithMediaLayer(path("broken.mp3"), &damaged));
    EXPECT_GT(damaged.frames(), kFrames / 3);
    EXPECT_LE(damaged.frames(), kFrames + 1152);

    const std::vector<char> m4a = wvtest::readFile(path("tone.m4a"));
    wvtest::writeFile(path("cut.m4a"), m4a.data(), m4a.size() * 2 / 3);
    DecodedAudio cut;
    // A cut MP4 may lose its index, and with it the whole file; it must
    // not hang or crash either way.
    if (wvtest::decodeWithMediaLayer(path("cut.m4a"), &cut)) {
        EXPECT_LE(cut.frames(), kFrames + 1024);
    }
}

TEST_F(DecodedContent, AmrNarrowbandDecodesAlone_AndIn3gp) {
    ASSERT_TRUE(wvtest::writeAmrNb(path("voice.amr"), 2.0));
    ASSERT_TRUE(wvtest::encodeWithFfmpeg(path("voice.amr"), path("voice.3gp"), "-c:a copy"));
    for (const char* name : {"voice.amr", "voice.3gp"}) {
        SCOPED_TRACE(name);
        DecodedAudio audio;
        ASSERT_TRUE(wvtest::decodeWithMediaLayer(path(name), &audio));
        EXPECT_EQ(audio.mime, "audio/3gpp");
        EXPECT_EQ(audio.rate, 8000);
        EXPECT_EQ(audio.channels, 1);
        EXPECT_LE(absDiff(audio.frames(), 16000), 160u);
    }
}

}  // namespace
