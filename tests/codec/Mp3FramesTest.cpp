// A frame grown for a join (the last one before it, in VBR): at every MPEG
// version, with and without a CRC, it gets a bit rate and padding that
// leave the asked room after its main data, its header stays valid (the
// CRC too, checked by ffmpeg), and the stream up to it decodes to exactly
// the samples it did before.
#include "codec/Mp3Frames.h"

#include <gtest/gtest.h>
#include <lame/lame.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "AudioFiles.h"
#include "TestSupport.h"

namespace {

using wv::Mp3Frame;

// A VBR stream of LAME's, no info frame: tones and soft noise.
std::vector<uint8_t> encodeVbr(int rate, int channels, bool crc) {
    lame_global_struct* lame = lame_init();
    lame_set_num_channels(lame, channels);
    lame_set_in_samplerate(lame, rate);
    lame_set_mode(lame, channels == 1 ? MONO : JOINT_STEREO);
    lame_set_VBR(lame, vbr_mtrh);
    lame_set_VBR_q(lame, 4);
    lame_set_bWriteVbrTag(lame, 0);
    lame_set_error_protection(lame, crc ? 1 : 0);
    if (lame_init_params(lame) < 0) {
        lame_close(lame);
        return {};
    }
    const int frames = 2 * rate;
    std::vector<int16_t> pcm(size_t(frames) * channels);
    uint32_t state = 5;
    for (int i = 0; i < frames; ++i) {
        const double t = double(i) / rate;
        for (int c = 0; c < channels; ++c) {
            state = state * 1664525u + 1013904223u;
            const double noise = (static_cast<int32_t>(state >> 16) - 32768) / 32768.0;
            const double tone = std::sin(2 * M_PI * (300 + 200 * c) * t) * (0.6 + 0.4 * std::sin(7 * t));
            pcm[size_t(i) * channels + c] = static_cast<int16_t>(7000 * tone + 800 * noise);
        }
    }
    std::vector<uint8_t> out(size_t(frames) * 5 / 4 + 7200);
    int bytes = channels == 2 ? lame_encode_buffer_interleaved(lame, pcm.data(), frames, out.data(), int(out.size()))
                              : lame_encode_buffer(lame, pcm.data(), nullptr, frames, out.data(), int(out.size()));
    int flushed = bytes >= 0 ? lame_encode_flush(lame, out.data() + bytes, int(out.size()) - bytes) : -1;
    lame_close(lame);
    if (bytes < 0 || flushed < 0) return {};
    out.resize(size_t(bytes + flushed));
    return out;
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// ffmpeg's decode with its frame check on: false on a CRC mismatch.
bool decodeChecked(const std::string& path, const std::string& scratch, std::vector<int16_t>* pcm) {
    const std::string raw = scratch + "/checked.s16";
    const std::string command = "ffmpeg -v error -nostdin -y -xerror -err_detect crccheck+explode -f mp3 -i '" + path +
                                "' -f s16le '" + raw + "' 2>/dev/null";
    if (std::system(command.c_str()) != 0) return false;
    std::ifstream in(raw, std::ios::binary);
    const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    pcm->assign(reinterpret_cast<const int16_t*>(bytes.data()),
                reinterpret_cast<const int16_t*>(bytes.data()) + bytes.size() / 2);
    return true;
}

TEST(Mp3Frames, AGrownFrameLeavesTheRoomAskedAndDecodesAsBefore) {
    if (!wvtest::haveFfmpeg()) GTEST_SKIP() << "ffmpeg/ffprobe not installed";
    wvtest::TempDir dir;
    struct Case {
        int rate, channels;
        bool crc;
    };
    // MPEG-1, 2 and 2.5; stereo and mono; with and without a CRC.
    const Case cases[] = {{44100, 2, false}, {44100, 2, true}, {32000, 1, true},
                          {22050, 1, false}, {24000, 2, true}, {8000, 1, true}, {11025, 2, false}};
    for (const Case& c : cases) {
        for (const uint32_t more : {1u, 40u, 300u}) {
            SCOPED_TRACE(std::to_string(c.rate) + " Hz " + std::to_string(c.channels) + " ch crc " +
                         std::to_string(c.crc) + ", " + std::to_string(more) + " bytes more");
            const std::vector<uint8_t> stream = encodeVbr(c.rate, c.channels, c.crc);
            std::vector<Mp3Frame> frames;
            ASSERT_TRUE(wv::scanMp3Frames(stream.data(), stream.size(), &frames));
            ASSERT_GT(frames.size(), 20u);
            // A frame in the middle, below the highest bit rate.
            size_t index = frames.size() / 2;
            while (index > 0 && (stream[frames[index].offset + 2] >> 4) >= 13) --index;
            const Mp3Frame before = frames[index];
            const uint32_t bytes = wv::grownFrameBytes(stream.data(), before, more);
            if (bytes == 0) {
                // Only when even the highest bit rate is too small.
                EXPECT_GT(more, 100u);
                continue;
            }
            EXPECT_GE(bytes, before.bytes + more);

            std::vector<uint8_t> grown = stream;
            std::vector<Mp3Frame> grownFrames = frames;
            wv::growFrame(&grown, &grownFrames, index, bytes);
            ASSERT_EQ(grownFrames.size(), index + 1);
            EXPECT_EQ(grown.size(), before.offset + bytes);
            // The header says so, and nothing but the bit rate and padding changed.
            std::vector<Mp3Frame> rescanned;
            ASSERT_TRUE(wv::scanMp3Frames(grown.data(), grown.size(), &rescanned));
            ASSERT_EQ(rescanned.size(), index + 1);
            EXPECT_EQ(rescanned[index].bytes, bytes);
            EXPECT_EQ(wv::roomAfterData(rescanned[index]), wv::roomAfterData(before) + bytes - before.bytes);
            const uint8_t* was = stream.data() + before.offset;
            const uint8_t* now = grown.data() + before.offset;
            EXPECT_EQ(now[1], was[1]);
            EXPECT_EQ(now[2] & 0x0D, was[2] & 0x0D);
            EXPECT_EQ(now[3], was[3]);
            EXPECT_TRUE(std::equal(was + 4 + (c.crc ? 2 : 0), was + before.bytes, now + 4 + (c.crc ? 2 : 0)));

            // The stream up to the frame decodes to the same samples, the
            // frame check passing.
            const auto end = stream.begin() + static_cast<ptrdiff_t>(before.offset + before.bytes);
            const std::vector<uint8_t> cut(stream.begin(), end);
            writeBytes(dir.file("cut.mp3"), cut);
            writeBytes(dir.file("grown.mp3"), grown);
            std::vector<int16_t> a, b;
            ASSERT_TRUE(decodeChecked(dir.file("cut.mp3"), dir.path(), &a));
            ASSERT_TRUE(decodeChecked(dir.file("grown.mp3"), dir.path(), &b));
            EXPECT_GT(a.size(), 0u);
            EXPECT_TRUE(a == b);
            if (c.crc) {
                // The check would catch a frame whose CRC was left as it was.
                std::vector<uint8_t> stale = grown;
                stale[before.offset + 4] = was[4];
                stale[before.offset + 5] = was[5];
                if (stale[before.offset + 4] != grown[before.offset + 4] ||
                    stale[before.offset + 5] != grown[before.offset + 5]) {
                    writeBytes(dir.file("stale.mp3"), stale);
                    EXPECT_FALSE(decodeChecked(dir.file("stale.mp3"), dir.path(), &b));
                }
            }
        }
    }
}

}  // namespace
