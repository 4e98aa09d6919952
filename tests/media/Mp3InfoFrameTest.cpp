// The length an MP3's info frame states: frames x samples per frame less
// the encoder delay and padding, read only from tags the decoder trusts.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/media/Mp3InfoFrame.h"

namespace {

// A first frame: header, zeroed side information, the tag with a frame
// count (and the optional fields `flags` asks for), then an encoder tag.
std::vector<uint8_t> infoFrame(uint8_t second, uint8_t fourth, size_t side, uint32_t flags, uint32_t count,
                               const char* encoder, int delay, int padding) {
    std::vector<uint8_t> f = {0xFF, second, 0x90, fourth};
    if ((second & 1) == 0) f.insert(f.end(), 2, 0);  // CRC
    f.insert(f.end(), side, 0);
    for (char c : std::string("Info")) f.push_back(uint8_t(c));
    for (int shift = 24; shift >= 0; shift -= 8) f.push_back(uint8_t(flags >> shift));
    for (int shift = 24; shift >= 0; shift -= 8) f.push_back(uint8_t(count >> shift));
    if (flags & 2) f.insert(f.end(), 4, 0);
    if (flags & 4) f.insert(f.end(), 100, 0);
    if (flags & 8) f.insert(f.end(), 4, 0);
    f.insert(f.end(), encoder, encoder + 9);
    f.insert(f.end(), 12, 0);
    f.push_back(uint8_t(delay >> 4));
    f.push_back(uint8_t(((delay & 0xF) << 4) | (padding >> 8)));
    f.push_back(uint8_t(padding & 0xFF));
    f.insert(f.end(), 12, 0);
    return f;
}

int64_t stated(const std::vector<uint8_t>& frame) {
    int64_t frames = -1;
    return wv::mp3StatedFramesOfFrame(frame.data(), frame.size(), &frames) ? frames : -1;
}

TEST(Mp3InfoFrame, StatesFramesLessDelayAndPaddingForEachLayout) {
    // MPEG-1 stereo (1152 per frame), every optional field.
    EXPECT_EQ(stated(infoFrame(0xFB, 0x40, 32, 0xF, 116, "LAME3.100", 576, 756)), 116 * 1152 - 576 - 756);
    // MPEG-1 mono with CRC, frames only.
    EXPECT_EQ(stated(infoFrame(0xFA, 0xC0, 17, 0x1, 10, "Lavc59.37", 1105, 0)), 10 * 1152 - 1105);
    // MPEG-2 stereo and mono (576 per frame).
    EXPECT_EQ(stated(infoFrame(0xF3, 0x40, 17, 0x7, 40, "LAME3.100", 576, 100)), 40 * 576 - 676);
    EXPECT_EQ(stated(infoFrame(0xF3, 0xC0, 9, 0x1, 40, "Lavf59.27", 0, 4095)), 40 * 576 - 4095);
}

TEST(Mp3InfoFrame, StatesNothingWithoutACountOrATrustedEncoderTag) {
    EXPECT_EQ(stated(infoFrame(0xFB, 0x40, 32, 0xE, 116, "LAME3.100", 576, 756)), -1);  // no count
    EXPECT_EQ(stated(infoFrame(0xFB, 0x40, 32, 0xF, 116, "Other 1.0", 576, 756)), -1);  // unknown encoder
    std::vector<uint8_t> moved = infoFrame(0xFB, 0x40, 32, 0xF, 116, "LAME3.100", 576, 756);
    std::memcpy(moved.data() + 36, "Info", 4);
    std::memcpy(moved.data() + 36, "Nope", 4);
    EXPECT_EQ(stated(moved), -1);                                                        // no tag
    std::vector<uint8_t> layer2 = infoFrame(0xFD, 0x40, 32, 0xF, 116, "LAME3.100", 576, 756);
    EXPECT_EQ(stated(layer2), -1);                                                       // not layer III
    std::vector<uint8_t> cut = infoFrame(0xFB, 0x40, 32, 0xF, 116, "LAME3.100", 576, 756);
    cut.resize(60);
    EXPECT_EQ(stated(cut), -1);                                                          // cut short
}

}  // namespace
