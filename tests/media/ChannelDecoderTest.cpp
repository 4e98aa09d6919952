// The multichannel decode the loudness measure reads: every channel, no
// downmix, the same float samples as ffmpeg gives for the file, also where
// the file is damaged; and the place of each channel in a 5.1 layout.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "AudioFixtures.h"
#include "TestSupport.h"
#include "platform/MediaService.h"
#include "platform/media/ChannelDecoder.h"

namespace {

using Place = wv::ChannelDecoder::Place;

constexpr int kRate = 48000;
constexpr int kChannels = 6;

// A different tone on each channel, so that a swapped or mixed channel shows.
std::vector<int16_t> sixTones(double seconds) {
    const size_t frames = size_t(kRate * seconds);
    std::vector<int16_t> samples(frames * kChannels);
    for (int c = 0; c < kChannels; ++c) {
        const std::vector<int16_t> tone = wvtest::makeTone(kRate, 1, seconds, 200.0 + 150.0 * c, 0.3);
        for (size_t f = 0; f < frames; ++f) samples[f * kChannels + c] = tone[f];
    }
    return samples;
}

std::vector<float> decodeAll(const std::string& path, wv::ChannelDecoder* decoder) {
    std::vector<float> all;
    std::vector<float> block(1000 * decoder->channels());
    int got;
    while ((got = decoder->read(block.data(), 1000)) > 0) {
        all.insert(all.end(), block.begin(), block.begin() + got * int(decoder->channels()));
    }
    EXPECT_EQ(got, 0) << path;
    return all;
}

std::vector<float> decodeWithFfmpeg(const std::string& path, const std::string& rawPath) {
    std::vector<float> samples;
    if (!wvtest::runFfmpeg("-i " + wvtest::shellQuote(path) + " -f f32le -c:a pcm_f32le " +
                           wvtest::shellQuote(rawPath))) {
        ADD_FAILURE() << "ffmpeg cannot decode " << path;
        return samples;
    }
    const std::vector<char> bytes = wvtest::readFile(rawPath);
    samples.resize(bytes.size() / sizeof(float));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(float));
    return samples;
}

TEST(ChannelDecoder, EveryChannelAsFfmpegDecodesItWholeOrDamaged) {
    if (!wvtest::ffmpegAvailable()) GTEST_SKIP() << "ffmpeg not installed";
    wv::MediaService::connect();
    wvtest::TempDir dir;
    const std::string wav = dir.file("six.wav");
    ASSERT_TRUE(wvtest::writeWav(wav, sixTones(3.0), kRate, kChannels));
    const std::string flac = dir.file("six.flac");
    const std::string m4a = dir.file("six.m4a");
    const std::string in = "-i " + wvtest::shellQuote(wav) + " -ch_layout 5.1 ";
    ASSERT_TRUE(wvtest::runFfmpeg(in + wvtest::shellQuote(flac)));
    ASSERT_TRUE(wvtest::runFfmpeg(in + "-c:a aac " + wvtest::shellQuote(m4a)));
    // The same files with bytes overwritten a third of the way in: packets the codec refuses.
    std::vector<std::string> files = {wav, flac, m4a};
    for (const std::string& whole : {flac, m4a}) {
        std::vector<char> bytes = wvtest::readFile(whole);
        for (size_t i = bytes.size() / 3; i < bytes.size() / 3 + 600; ++i) bytes[i] = char(i * 37);
        const std::string damaged = whole + ".damaged" + whole.substr(whole.rfind('.'));
        wvtest::writeFile(damaged, bytes.data(), bytes.size());
        files.push_back(damaged);
    }
    for (const std::string& path : files) {
        SCOPED_TRACE(path);
        wv::ChannelDecoder decoder;
        ASSERT_TRUE(decoder.open(path));
        EXPECT_EQ(decoder.rate(), uint32_t(kRate));
        ASSERT_EQ(decoder.channels(), uint32_t(kChannels));
        if (path != wav) {  // a WAV states no layout: FFmpeg's default for six channels is 5.1 too
            const Place places[kChannels] = {Place::kFront,        Place::kFront,    Place::kFront,
                                             Place::kLowFrequency, Place::kSurround, Place::kSurround};
            for (int c = 0; c < kChannels; ++c) EXPECT_EQ(decoder.place(uint32_t(c)), places[c]) << c;
        }
        const std::vector<float> ours = decodeAll(path, &decoder);
        const std::vector<float> theirs = decodeWithFfmpeg(path, dir.file("out.f32"));
        ASSERT_EQ(ours.size(), theirs.size());
        EXPECT_EQ(std::memcmp(ours.data(), theirs.data(), ours.size() * sizeof(float)), 0);
    }
}

TEST(ChannelDecoder, RefusesWhatHasNoAudio) {
    wv::MediaService::connect();
    wvtest::TempDir dir;
    const std::string text = dir.file("notes.txt");
    const char kText[] = "no audio in here\n";
    wvtest::writeFile(text, kText, sizeof kText - 1);
    wv::ChannelDecoder decoder;
    EXPECT_FALSE(decoder.open(text));
    wv::ChannelDecoder missing;
    EXPECT_FALSE(missing.open(dir.file("missing.flac")));
}

}  // namespace
