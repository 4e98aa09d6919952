#include "codec/Mp3Frames.h"

#include <algorithm>
#include <cstring>

namespace wv {
namespace {

constexpr int kRatesMpeg1[3] = {44100, 48000, 32000};
constexpr int kKbpsMpeg1[15] = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
constexpr int kKbpsMpeg2[15] = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};

class BitReader {
public:
    BitReader(const uint8_t* data, size_t bytes) : mData(data), mBits(bytes * 8) {}
    uint32_t read(int count) {
        uint32_t value = 0;
        for (int i = 0; i < count; ++i) {
            uint32_t bit = 0;
            if (mAt < mBits) bit = (mData[mAt / 8] >> (7 - mAt % 8)) & 1u;
            value = (value << 1) | bit;
            ++mAt;
        }
        return value;
    }
    void skip(int count) { mAt += static_cast<size_t>(count); }

private:
    const uint8_t* mData;
    size_t mBits;
    size_t mAt = 0;
};

// Reads the side information after the header (and CRC) into `frame`.
void readSideInfo(const uint8_t* side, size_t bytes, bool mpeg1, int channels, Mp3Frame* frame) {
    BitReader bits(side, bytes);
    frame->dataBegin = bits.read(mpeg1 ? 9 : 8);
    bits.skip(mpeg1 ? (channels == 1 ? 5 : 3) : (channels == 1 ? 1 : 2));
    if (mpeg1) bits.skip(4 * channels);
    const int granules = mpeg1 ? 2 : 1;
    frame->dataBits = 0;
    for (int gr = 0; gr < granules; ++gr) {
        for (int ch = 0; ch < channels; ++ch) {
            frame->dataBits += bits.read(12);
            bits.skip(9 + 8 + (mpeg1 ? 4 : 9));
            uint8_t blockType = 0;
            if (bits.read(1) != 0) {
                blockType = static_cast<uint8_t>(bits.read(2));
                bits.skip(1 + 10 + 9);
            } else {
                bits.skip(15 + 4 + 3);
            }
            bits.skip(mpeg1 ? 3 : 2);
            if (gr == 0) frame->firstBlock[ch] = blockType;
            frame->lastBlock[ch] = blockType;
        }
    }
    if (channels == 1) {
        frame->firstBlock[1] = frame->firstBlock[0];
        frame->lastBlock[1] = frame->lastBlock[0];
    }
}

// Walks `count` bytes back from area position `end` of `frames` (up to
// frame `index`, whose area ends at `end`), calling `take(offset, length)`
// for each stretch of the stream, last stretch first.
template <typename Take>
void areaBytesBefore(const std::vector<Mp3Frame>& frames, size_t index, uint64_t end,
                     uint32_t count, Take take) {
    size_t i = index + 1;
    while (count > 0 && i > 0) {
        const Mp3Frame& frame = frames[--i];
        if (frame.areaStart >= end) continue;
        const uint64_t stop = std::min<uint64_t>(end, frame.areaStart + frame.areaBytes());
        const uint32_t length = static_cast<uint32_t>(std::min<uint64_t>(count, stop - frame.areaStart));
        take(frame.offset + frame.areaAt + static_cast<size_t>(stop - frame.areaStart) - length, length);
        count -= length;
        end = stop - length;
    }
}

// What a frame header says, as far as the frame's length goes.
struct Header {
    bool mpeg1 = false;
    int rate = 0;
    int kbpsIndex = 0;
    int channels = 0;
    uint32_t crcBytes = 0;
    uint32_t sideBytes = 0;
    uint32_t length(int index, int padding) const {
        const int kbps = (mpeg1 ? kKbpsMpeg1 : kKbpsMpeg2)[index];
        return static_cast<uint32_t>((mpeg1 ? 144000 : 72000) * kbps / rate + padding);
    }
};

// False when `h` starts no layer III frame of a rate and bit rate in the tables.
bool readHeader(const uint8_t* h, Header* header) {
    if (h[0] != 0xFF || (h[1] & 0xE0) != 0xE0 || ((h[1] >> 1) & 3) != 1) return false;
    const int version = (h[1] >> 3) & 3;  // 3 MPEG-1, 2 MPEG-2, 0 MPEG-2.5
    const int rateIndex = (h[2] >> 2) & 3;
    header->kbpsIndex = h[2] >> 4;
    if (version == 1 || rateIndex == 3 || header->kbpsIndex == 0 || header->kbpsIndex == 15) {
        return false;
    }
    header->mpeg1 = version == 3;
    header->rate = kRatesMpeg1[rateIndex] >> (header->mpeg1 ? 0 : version == 2 ? 1 : 2);
    header->channels = (h[3] >> 6) == 3 ? 1 : 2;
    header->crcBytes = (h[1] & 1) == 0 ? 2 : 0;
    const bool mono = header->channels == 1;
    header->sideBytes = header->mpeg1 ? (mono ? 17 : 32) : (mono ? 9 : 17);
    return true;
}

// The frame check of a protected frame: CRC-16 (polynomial 0x8005, not
// reflected, from 0xFFFF) of the header's last two bytes and the side
// information.
uint16_t frameCrc(const uint8_t* h, uint32_t sideBytes) {
    uint16_t crc = 0xFFFF;
    auto add = [&crc](uint8_t byte) {
        for (int bit = 7; bit >= 0; --bit) {
            const bool top = ((crc >> 15) & 1u) != ((byte >> bit) & 1u);
            crc = static_cast<uint16_t>(crc << 1);
            if (top) crc ^= 0x8005;
        }
    };
    add(h[2]);
    add(h[3]);
    for (uint32_t i = 0; i < sideBytes; ++i) add(h[6 + i]);
    return crc;
}

}  // namespace

bool scanMp3Frames(const uint8_t* stream, size_t bytes, std::vector<Mp3Frame>* frames) {
    frames->clear();
    size_t at = 0;
    uint64_t areaStart = 0;
    while (at + 4 <= bytes) {
        const uint8_t* h = stream + at;
        Header header;
        if (!readHeader(h, &header)) return false;
        const uint32_t length = header.length(header.kbpsIndex, (h[2] >> 1) & 1);
        if (at + length > bytes || length < 4 + header.crcBytes + header.sideBytes) return false;
        Mp3Frame frame;
        frame.offset = at;
        frame.bytes = length;
        frame.areaAt = 4 + header.crcBytes + header.sideBytes;
        frame.areaStart = areaStart;
        readSideInfo(h + 4 + header.crcBytes, header.sideBytes, header.mpeg1, header.channels,
                     &frame);
        frames->push_back(frame);
        areaStart += frame.areaBytes();
        at += length;
    }
    return at == bytes;
}

uint32_t roomAfterData(const Mp3Frame& last) {
    const uint64_t areaEnd = last.areaStart + last.areaBytes();
    const uint64_t dataEnd = last.areaStart - last.dataBegin + (last.dataBits + 7) / 8;
    return dataEnd > areaEnd ? 0 : static_cast<uint32_t>(areaEnd - dataEnd);
}

bool shapesMeet(const Mp3Frame& last, const Mp3Frame& next) {
    for (int ch = 0; ch < 2; ++ch) {
        const bool longEnds = last.lastBlock[ch] == 0 || last.lastBlock[ch] == 3;
        const bool longStarts = next.firstBlock[ch] == 0 || next.firstBlock[ch] == 1;
        if (longEnds != longStarts) return false;
    }
    return true;
}

bool joinFits(const Mp3Frame& last, const Mp3Frame& next) {
    const uint64_t areaEnd = last.areaStart + last.areaBytes();
    const uint64_t dataEnd = last.areaStart - last.dataBegin + (last.dataBits + 7) / 8;
    if (dataEnd > areaEnd || areaEnd - dataEnd < next.dataBegin) return false;
    return shapesMeet(last, next);
}

uint32_t grownFrameBytes(const uint8_t* stream, const Mp3Frame& frame, uint32_t more) {
    Header header;
    if (!readHeader(stream + frame.offset, &header)) return 0;
    uint32_t best = 0;
    for (int index = header.kbpsIndex; index < 15; ++index) {
        for (int padding = 0; padding < 2; ++padding) {
            const uint32_t length = header.length(index, padding);
            if (length >= frame.bytes + more && (best == 0 || length < best)) best = length;
        }
    }
    return best;
}

void growFrame(std::vector<uint8_t>* stream, std::vector<Mp3Frame>* frames, size_t index,
               uint32_t bytes) {
    Mp3Frame& frame = (*frames)[index];
    uint8_t* h = stream->data() + frame.offset;
    Header header;
    readHeader(h, &header);
    for (int kbps = header.kbpsIndex; kbps < 15; ++kbps) {
        for (int padding = 0; padding < 2; ++padding) {
            if (header.length(kbps, padding) != bytes) continue;
            h[2] = static_cast<uint8_t>((kbps << 4) | (h[2] & 0x0D) | (padding << 1));
            if (header.crcBytes != 0) {
                const uint16_t crc = frameCrc(h, header.sideBytes);
                h[4] = static_cast<uint8_t>(crc >> 8);
                h[5] = static_cast<uint8_t>(crc & 0xFF);
            }
            stream->resize(frame.offset + frame.bytes);
            stream->resize(frame.offset + bytes, 0);
            frame.bytes = bytes;
            frames->resize(index + 1);
            return;
        }
    }
}

void spliceJoin(std::vector<uint8_t>* first, const std::vector<Mp3Frame>& firstFrames,
                size_t lastIndex, const std::vector<uint8_t>& second,
                const std::vector<Mp3Frame>& secondFrames, size_t nextIndex) {
    const uint32_t count = secondFrames[nextIndex].dataBegin;
    if (count == 0 || nextIndex == 0) return;
    std::vector<uint8_t> reservoir(count);
    uint32_t filled = count;
    areaBytesBefore(secondFrames, nextIndex - 1, secondFrames[nextIndex].areaStart, count,
                    [&](size_t offset, uint32_t length) {
                        filled -= length;
                        std::memcpy(reservoir.data() + filled, second.data() + offset, length);
                    });
    const Mp3Frame& last = firstFrames[lastIndex];
    uint32_t placed = count;
    areaBytesBefore(firstFrames, lastIndex, last.areaStart + last.areaBytes(), count,
                    [&](size_t offset, uint32_t length) {
                        placed -= length;
                        std::memcpy(first->data() + offset, reservoir.data() + placed, length);
                    });
}

uint16_t mp3Crc16(uint16_t crc, const uint8_t* data, size_t bytes) {
    for (size_t i = 0; i < bytes; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1u) != 0 ? static_cast<uint16_t>((crc >> 1) ^ 0xA001u)
                                  : static_cast<uint16_t>(crc >> 1);
        }
    }
    return crc;
}

namespace {

void putBigEndian(uint8_t* at, uint64_t value, int bytes) {
    for (int i = bytes - 1; i >= 0; --i) {
        at[i] = static_cast<uint8_t>(value & 0xFF);
        value >>= 8;
    }
}

}  // namespace

bool restateInfoFrame(uint8_t* frame, size_t bytes, const Mp3Totals& totals) {
    // The tag: "Xing" or "Info", flags, frames, bytes, 100 table entries,
    // quality; then LAME's 36 bytes, the last 190 bytes of the frame's
    // start covered by its own CRC.
    size_t tag = 0;
    for (; tag + 4 <= bytes; ++tag) {
        if (std::memcmp(frame + tag, "Xing", 4) == 0 || std::memcmp(frame + tag, "Info", 4) == 0) {
            break;
        }
    }
    const size_t lame = tag + 120;
    if (lame + 36 > bytes || frame[tag + 7] != 0x0F) return false;
    const uint64_t streamBytes = bytes + totals.audioBytes;
    putBigEndian(frame + tag + 8, totals.frames, 4);
    putBigEndian(frame + tag + 12, std::min<uint64_t>(streamBytes, 0xFFFFFFFFu), 4);
    for (size_t i = 0; i < 100; ++i) {
        const uint64_t at = i < totals.percentOffsets.size() ? totals.percentOffsets[i] : 0;
        const uint64_t entry = (bytes + at) * 256 / std::max<uint64_t>(streamBytes, 1);
        frame[tag + 16 + i] = static_cast<uint8_t>(std::min<uint64_t>(entry, 255));
    }
    uint8_t* delayPadding = frame + lame + 21;
    const uint32_t delay = (static_cast<uint32_t>(delayPadding[0]) << 4) | (delayPadding[1] >> 4);
    const uint64_t coded = static_cast<uint64_t>(totals.frames) * totals.frameSamples;
    const uint64_t padding = coded > delay + totals.samples ? coded - delay - totals.samples : 0;
    if (padding > 0xFFF) return false;
    delayPadding[1] = static_cast<uint8_t>((delayPadding[1] & 0xF0) | (padding >> 8));
    delayPadding[2] = static_cast<uint8_t>(padding & 0xFF);
    putBigEndian(frame + lame + 28, std::min<uint64_t>(streamBytes, 0xFFFFFFFFu), 4);
    putBigEndian(frame + lame + 32, totals.musicCrc, 2);
    putBigEndian(frame + lame + 34, mp3Crc16(0, frame, lame + 34), 2);
    return true;
}

}  // namespace wv
