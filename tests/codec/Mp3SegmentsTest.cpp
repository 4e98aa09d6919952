// An MP3 encoded on several threads: ffmpeg and mpg123 decode exactly the
// frames that went in, at lag 0, whatever the rate, channels, mode and
// length (around one segment too); the audio at every join is as close to
// the input as a one-thread encode's, and a VBR stream is no more than 1 %
// larger (no join falls back to an encode without a reservoir); a stream
// of one segment is the one-thread stream byte for byte.
#include "codec/Mp3Encoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "AudioFiles.h"
#include "TestSupport.h"
#include "codec/Mp3Frames.h"
#include "codec/Mp3Segments.h"

namespace {

using wv::AudioEncoder;
using wv::EncodeFormat;
using wv::EncodeOptions;
using wv::Mp3Encoder;
using wv::Mp3Segments;

struct Encoded {
    bool ok = false;
    bool threaded = false;
    size_t encodedAgain = 0;
};

Encoded encodeFile(const std::string& path, uint32_t rate, uint32_t channels, uint32_t kbps,
                   const std::vector<int16_t>& pcm, const EncodeOptions& options) {
    Encoded result;
    std::unique_ptr<AudioEncoder> encoder(AudioEncoder::createAudioEncoder(EncodeFormat::Mp3, path.c_str()));
    if (!encoder) return result;
    encoder->setOptions(options);
    if (encoder->initEncoder(rate, channels, kbps, AudioEncoder::FORMAT_PCM_16) != 0) return result;
    const auto* bytes = reinterpret_cast<const char*>(pcm.data());
    const int total = static_cast<int>(pcm.size() * 2);
    const int block = 16384;
    for (int at = 0; at < total; at += block) {
        if (encoder->checkStatus() != 0) return result;
        const int n = std::min(block, total - at);
        if (encoder->encoding(reinterpret_cast<const int16_t*>(bytes + at), n) != 0) return result;
    }
    result.ok = encoder->finishEncoding() == 0;
    result.threaded = static_cast<Mp3Encoder*>(encoder.get())->threaded();
    result.encodedAgain = static_cast<Mp3Encoder*>(encoder.get())->segmentsEncodedAgain();
    return result;
}

// Tones over noise, different in each channel: block switching, stereo
// coding and the reservoir all have work to do.
std::vector<int16_t> programme(uint32_t frames, uint32_t rate, uint32_t channels) {
    std::vector<int16_t> pcm(size_t(frames) * channels);
    uint32_t state = 7;
    for (uint32_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rate;
        // A burst every 0.7 s brings short blocks.
        const double burst = std::fmod(t, 0.7) < 0.02 ? 6000.0 : 0.0;
        for (uint32_t c = 0; c < channels; ++c) {
            state = state * 1664525u + 1013904223u;
            const double noise = (static_cast<int32_t>(state >> 16) - 32768) / 32768.0;
            const double tone = std::sin(2 * M_PI * (c == 0 ? 440.0 : 660.0) * t);
            pcm[size_t(i) * channels + c] =
                static_cast<int16_t>(6000 * tone + (1500 + burst) * noise);
        }
    }
    return pcm;
}

// Music-like: two tones under a tremolo, a chirp sweeping up every 2 s and
// soft noise. LAME's VBR picks frames that leave little room at their end
// here, so most joins need a frame grown.
std::vector<int16_t> music(uint32_t frames, uint32_t rate, uint32_t channels) {
    std::vector<int16_t> pcm(size_t(frames) * channels);
    uint32_t state = 11;
    double low = 0;
    for (uint32_t i = 0; i < frames; ++i) {
        const double t = static_cast<double>(i) / rate;
        const double tremolo = 0.6 + 0.4 * std::sin(2 * M_PI * 5 * t);
        const double sweep = std::fmod(t, 2.0);
        const double chirp = std::sin(2 * M_PI * (300 * sweep + 675 * sweep * sweep));
        for (uint32_t c = 0; c < channels; ++c) {
            state = state * 1664525u + 1013904223u;
            const double noise = (static_cast<int32_t>(state >> 16) - 32768) / 32768.0;
            low = 0.9 * low + 0.1 * noise;
            const double tones = std::sin(2 * M_PI * 220 * t) + std::sin(2 * M_PI * (c == 0 ? 330.0 : 331.0) * t);
            pcm[size_t(i) * channels + c] = static_cast<int16_t>(5000 * tremolo * tones + 4000 * chirp + 6000 * low);
        }
    }
    return pcm;
}

std::vector<char> fileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

uint32_t bigEndian(const std::vector<char>& file, size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<uint8_t>(file[at + i]);
    return value;
}

// One info frame at the front, "Xing" for VBR and "Info" for a constant
// rate, stating the frames that follow it, the stream's bytes, and where
// every hundredth of the frames starts (to within a frame and 1/256 of the
// stream: LAME alone counts from the info frame).
void expectInfoFrameStatesTheStream(const std::vector<char>& file, bool vbr) {
    std::vector<wv::Mp3Frame> frames;
    ASSERT_TRUE(wv::scanMp3Frames(reinterpret_cast<const uint8_t*>(file.data()), file.size(), &frames));
    ASSERT_GT(frames.size(), 1u);
    const std::string first(file.data(), frames[0].bytes);
    const size_t tag = first.find(vbr ? "Xing" : "Info");
    ASSERT_NE(tag, std::string::npos);
    EXPECT_EQ(first.find(vbr ? "Info" : "Xing"), std::string::npos);
    EXPECT_EQ(bigEndian(file, tag + 8), frames.size() - 1);
    EXPECT_EQ(bigEndian(file, tag + 12), file.size());
    const size_t audio = frames.size() - 1;
    for (size_t i = 0; i < 100; ++i) {
        const wv::Mp3Frame& frame = frames[1 + i * audio / 100];
        const double stated = static_cast<uint8_t>(file[tag + 16 + i]) * double(file.size()) / 256;
        EXPECT_NEAR(stated, double(frame.offset), frame.bytes + file.size() / 256.0) << "entry " << i;
    }
}

double snrDb(const std::vector<int16_t>& source, const std::vector<int16_t>& decoded, size_t from, size_t to) {
    double signal = 0, error = 0;
    for (size_t i = from; i < to && i < source.size() && i < decoded.size(); ++i) {
        signal += double(source[i]) * source[i];
        const double e = double(source[i]) - decoded[i];
        error += e * e;
    }
    return 10 * std::log10(signal / std::max(error, 1e-9));
}

class Mp3Segmented : public ::testing::Test {
protected:
    void SetUp() override {
        if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
    }
    static EncodeOptions threads(int n, int vbr = 0, int joint = 0) {
        EncodeOptions options;
        options.threads = n;
        options.vbr = vbr;
        options.jointStereo = joint;
        return options;
    }
    wvtest::TempDir mDir;
};

TEST_F(Mp3Segmented, DecodersGetEveryFrameAtLagZeroAtEveryRateModeAndLength) {
    struct Case {
        uint32_t rate, channels, kbps;
        int vbr;
    };
    const std::vector<Case> cases = {{44100, 2, 320, 0}, {48000, 2, 192, 0}, {44100, 1, 128, 0},
                                     {32000, 2, 160, 0}, {22050, 1, 64, 0},  {16000, 2, 48, 0},
                                     {8000, 1, 32, 0},   {44100, 2, 128, 2}, {48000, 1, 128, 4},
                                     {32000, 2, 128, 1}, {22050, 2, 64, 2},  {16000, 1, 64, 5},
                                     {11025, 2, 64, 3},  {8000, 1, 32, 6}};
    for (const Case& c : wvtest::sampled(cases, 4)) {
        const uint32_t frameSamples = c.rate >= 32000 ? 1152 : 576;
        const auto sole = static_cast<uint32_t>(Mp3Segments::soleSegmentSamples(c.rate, frameSamples));
        const uint32_t segment = Mp3Segments::segmentFrames(c.rate, frameSamples) * frameSamples;
        // Shorter than one segment, exactly the most one segment holds, one
        // frame and one MP3 frame longer, and several segments.
        for (const uint32_t frames : {c.rate * 3, sole, sole + 1, sole + frameSamples, 2 * segment + 777}) {
            SCOPED_TRACE(std::to_string(c.rate) + " Hz " + std::to_string(c.channels) + " ch vbr " +
                         std::to_string(c.vbr) + ", " + std::to_string(frames) + " frames");
            const std::string path = mDir.file("out.mp3");
            const auto pcm = c.vbr > 0 ? music(frames, c.rate, c.channels) : programme(frames, c.rate, c.channels);
            const Encoded encoded = encodeFile(path, c.rate, c.channels, c.kbps, pcm, threads(3, c.vbr, c.vbr > 0 ? 1 : 0));
            ASSERT_TRUE(encoded.ok);
            EXPECT_EQ(encoded.threaded, frames > sole);
            EXPECT_EQ(encoded.encodedAgain, 0u);

            const wvtest::Mp3Frames walked = wvtest::walkMp3Frames(fileBytes(path));
            EXPECT_GT(walked.frames, 0) << "bytes that are no frames";
            EXPECT_TRUE(walked.infoFrame);
            expectInfoFrameStatesTheStream(fileBytes(path), c.vbr > 0);
            std::vector<int16_t> decoded;
            ASSERT_TRUE(wvtest::decodeToPcm16(path, mDir.path(), &decoded));
            EXPECT_EQ(decoded.size(), pcm.size());
            EXPECT_EQ(wvtest::bestLag(pcm, decoded, c.channels, 1500), 0);
            if (wvtest::haveMpg123()) {
                std::vector<int16_t> byMpg123;
                ASSERT_TRUE(wvtest::decodeWithMpg123(path, mDir.path(), &byMpg123));
                EXPECT_EQ(byMpg123.size(), pcm.size());
            }
        }
    }
}

TEST_F(Mp3Segmented, EveryJoinIsAsCloseToTheInputAsOneEncoderAndNoLarger) {
    const uint32_t rate = 44100, channels = 2, frameSamples = 1152;
    const uint32_t segment = Mp3Segments::segmentFrames(rate, frameSamples) * frameSamples;
    const uint32_t frames = 4 * segment + 5000;
    const auto noisy = programme(frames, rate, channels);
    const auto tuneful = music(frames, rate, channels);
    // Constant rate; VBR in joint stereo and dual channel, and at another
    // level. (A constant rate's joins on the music-like signal differ from
    // one encoder's by up to 0.3 dB either way: the reservoir a segment's
    // encoder starts with is not the one encoder's.)
    const struct {
        int vbr, joint;
        const std::vector<int16_t>& pcm;
    } modes[] = {{0, 1, noisy}, {2, 1, noisy}, {2, 1, tuneful}, {2, 0, tuneful}, {5, 1, tuneful}};
    for (const auto& mode : modes) {
        if (wvtest::kSanitized && (&mode - modes) % 2 == 1) continue;  // a sample: see sampled()
        const int vbr = mode.vbr;
        const std::vector<int16_t>& pcm = mode.pcm;
        SCOPED_TRACE("vbr " + std::to_string(vbr) + " joint " + std::to_string(mode.joint) +
                     (&pcm == &noisy ? ", noisy" : ", music"));
        const std::string one = mDir.file("one.mp3"), many = mDir.file("many.mp3");
        ASSERT_TRUE(encodeFile(one, rate, channels, 320, pcm, threads(1, vbr, mode.joint)).ok);
        const Encoded split = encodeFile(many, rate, channels, 320, pcm, threads(2, vbr, mode.joint));
        ASSERT_TRUE(split.ok);
        EXPECT_TRUE(split.threaded);
        EXPECT_EQ(split.encodedAgain, 0u);
        std::vector<int16_t> a, b;
        ASSERT_TRUE(wvtest::decodeToPcm16(one, mDir.path(), &a));
        ASSERT_TRUE(wvtest::decodeToPcm16(many, mDir.path(), &b));
        ASSERT_EQ(a.size(), pcm.size());
        ASSERT_EQ(b.size(), pcm.size());
        // Around each join (the encoder and decoder delays included), 16
        // MP3 frames: the audio is within 0.1 dB of one encoder's.
        for (uint32_t join = 1; join * segment < frames; ++join) {
            const size_t centre = size_t(join) * segment;
            const size_t from = (centre - 8 * frameSamples) * channels;
            const size_t to = std::min<size_t>(centre + 8 * frameSamples, frames) * channels;
            EXPECT_NEAR(snrDb(pcm, b, from, to), snrDb(pcm, a, from, to), 0.1) << "join " << join;
        }
        EXPECT_NEAR(snrDb(pcm, b, 0, pcm.size()), snrDb(pcm, a, 0, pcm.size()), 0.1);
        const double sizeRatio = double(fileBytes(many).size()) / double(fileBytes(one).size());
        EXPECT_LE(sizeRatio, 1.01);
    }
}

TEST_F(Mp3Segmented, OneSegmentAndOneThreadWriteTheBytesOfOneEncoder) {
    const uint32_t rate = 44100, channels = 2;
    const auto sole = static_cast<uint32_t>(Mp3Segments::soleSegmentSamples(rate, 1152));
    const auto pcm = programme(sole, rate, channels);
    const std::string one = mDir.file("one.mp3"), many = mDir.file("many.mp3");
    ASSERT_TRUE(encodeFile(one, rate, channels, 320, pcm, threads(1)).ok);
    ASSERT_TRUE(encodeFile(many, rate, channels, 320, pcm, threads(4)).ok);
    EXPECT_TRUE(fileBytes(one) == fileBytes(many));
    for (const int joint : {0, 1}) {
        SCOPED_TRACE("vbr, joint " + std::to_string(joint));
        ASSERT_TRUE(encodeFile(one, rate, channels, 320, pcm, threads(1, 2, joint)).ok);
        const Encoded vbr = encodeFile(many, rate, channels, 320, pcm, threads(4, 2, joint));
        ASSERT_TRUE(vbr.ok);
        EXPECT_FALSE(vbr.threaded);
        EXPECT_TRUE(fileBytes(one) == fileBytes(many));
    }
}

}  // namespace
