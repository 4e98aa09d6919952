#include "platform/media/Mp3InfoFrame.h"

#include <cstring>

#include "platform/media/DataSource.h"

namespace wv {
namespace {

uint32_t be32(const uint8_t* p) {
    return (uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16) | (uint32_t(p[2]) << 8) | uint32_t(p[3]);
}

// Enough for the header, the side information, the tag and the encoder tag.
constexpr size_t kFrameBytes = 4 + 2 + 32 + 120 + 36;

}  // namespace

bool mp3StatedFramesOfFrame(const uint8_t* f, size_t size, int64_t* frames) {
    Mp3InfoTag tag;
    if (!mp3InfoTagOfFrame(f, size, &tag)) return false;
    *frames = tag.length;
    return true;
}

bool mp3InfoTagOfFrame(const uint8_t* f, size_t size, Mp3InfoTag* tag) {
    if (size < 4 || f[0] != 0xFF || (f[1] & 0xE0) != 0xE0) return false;
    const int version = (f[1] >> 3) & 3;  // 3: MPEG-1, 2: MPEG-2, 0: MPEG-2.5
    const int layer = (f[1] >> 1) & 3;    // 1: layer III
    if (version == 1 || layer != 1) return false;
    const bool crc = (f[1] & 1) == 0;
    const bool mono = (f[3] >> 6) == 3;
    const size_t side = version == 3 ? (mono ? 17 : 32) : (mono ? 9 : 17);
    size_t at = 4 + (crc ? 2 : 0) + side;
    if (at + 8 > size) return false;
    if (std::memcmp(f + at, "Xing", 4) != 0 && std::memcmp(f + at, "Info", 4) != 0) return false;
    const uint32_t flags = be32(f + at + 4);
    at += 8;
    if ((flags & 1) == 0 || at + 4 > size) return false;
    const uint32_t count = be32(f + at);
    at += 4;
    if (flags & 2) at += 4;    // bytes
    if (flags & 4) at += 100;  // seek table
    if (flags & 8) at += 4;    // quality
    // Encoder string (9), revision, low-pass, peak (4), two gains (2 + 2),
    // flags, bit rate, then delay and padding in 12 bits each.
    if (at + 24 > size) return false;
    const uint8_t* encoder = f + at;
    if (std::memcmp(encoder, "LAME", 4) != 0 && std::memcmp(encoder, "Lavf", 4) != 0 &&
        std::memcmp(encoder, "Lavc", 4) != 0) {
        return false;
    }
    const uint8_t* pads = f + at + 21;
    const int64_t delay = (int64_t(pads[0]) << 4) | (pads[1] >> 4);
    const int64_t padding = (int64_t(pads[1] & 0x0F) << 8) | pads[2];
    const int64_t perFrame = version == 3 ? 1152 : 576;
    const int64_t length = int64_t(count) * perFrame - delay - padding;
    if (count == 0 || length < 0) return false;
    tag->length = length;
    tag->coded = int64_t(count) * perFrame;
    tag->delay = delay;
    return true;
}

bool mp3StatedFrames(DataSource& source, int64_t* frames) {
    Mp3InfoTag tag;
    if (!mp3InfoTag(source, &tag)) return false;
    *frames = tag.length;
    return true;
}

bool mp3InfoTag(DataSource& source, Mp3InfoTag* tag) {
    uint8_t head[10];
    if (source.readAt(0, head, sizeof head) != static_cast<ssize_t>(sizeof head)) return false;
    int64_t offset = 0;
    if (std::memcmp(head, "ID3", 3) == 0) {
        offset = 10 + ((int64_t(head[6] & 0x7F) << 21) | (int64_t(head[7] & 0x7F) << 14) |
                       (int64_t(head[8] & 0x7F) << 7) | int64_t(head[9] & 0x7F));
        if (head[5] & 0x10) offset += 10;  // footer
    }
    uint8_t frame[kFrameBytes];
    const ssize_t got = source.readAt(offset, frame, sizeof frame);
    return got > 0 && mp3InfoTagOfFrame(frame, size_t(got), tag);
}

}  // namespace wv
