#define WV_LOG_TAG "FlacSegments"
#include "codec/FlacSegments.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/bswap.h>
#include <libavutil/channel_layout.h>
#include <libavutil/crc.h>
#include <libavutil/frame.h>
#include <libavutil/md5.h>
}

#include <algorithm>
#include <cstring>

#include "base/Log.h"

namespace wv {
namespace {

constexpr size_t kStreamInfoBytes = 34;

// The frame number's code: UTF-8's, stretched to 31 bits.
void putNumber(uint32_t number, std::vector<uint8_t>* out) {
    if (number < 0x80) {
        out->push_back(static_cast<uint8_t>(number));
        return;
    }
    int bytes = 2;
    while (bytes < 6 && number >= (1u << (5 * bytes + 1))) ++bytes;
    out->push_back(static_cast<uint8_t>((0xFF00 >> bytes) | (number >> (6 * (bytes - 1)))));
    for (int shift = 6 * (bytes - 2); shift >= 0; shift -= 6) {
        out->push_back(static_cast<uint8_t>(0x80 | ((number >> shift) & 0x3F)));
    }
}

// FLAC's CRC-16 of `length` bytes, as the frame stores it.
uint16_t crc16(const uint8_t* bytes, size_t length) {
    return av_bswap16(static_cast<uint16_t>(av_crc(av_crc_get_table(AV_CRC_16_ANSI), 0, bytes, length)));
}

// The CRC-16 state `crc` after `zeros` more zero bytes. The CRC is linear,
// so a frame whose header changed needs only its headers' CRCs carried over
// the body's length, not the body read again: step^n is kept as the powers
// step^(2^i), each as the images of the state's 16 bits.
uint16_t crc16AfterZeros(uint16_t crc, size_t zeros) {
    struct Powers {
        uint16_t of[48][16];
        Powers() {
            for (int bit = 0; bit < 16; ++bit) {
                uint16_t state = static_cast<uint16_t>(1u << bit);
                for (int i = 0; i < 8; ++i) {
                    state = static_cast<uint16_t>((state & 0x8000) != 0 ? (state << 1) ^ 0x8005 : state << 1);
                }
                of[0][bit] = state;
            }
            for (int power = 1; power < 48; ++power) {
                for (int bit = 0; bit < 16; ++bit) of[power][bit] = apply(of[power - 1], of[power - 1][bit]);
            }
        }
        static uint16_t apply(const uint16_t* images, uint16_t state) {
            uint16_t out = 0;
            for (int bit = 0; bit < 16; ++bit) {
                if ((state >> bit) & 1) out ^= images[bit];
            }
            return out;
        }
    };
    static const Powers powers;
    for (int power = 0; zeros != 0 && power < 48; ++power, zeros >>= 1) {
        if ((zeros & 1) != 0) crc = Powers::apply(powers.of[power], crc);
    }
    return crc;
}

// Copies the FLAC frame `data` (fixed block size) into `out` with the frame
// number `number`, and its header's CRC-8 and the frame's CRC-16 made anew.
bool renumberFrame(const uint8_t* data, size_t size, uint32_t number, std::vector<uint8_t>* out) {
    if (size < 8 || data[0] != 0xFF || data[1] != 0xF8) return false;
    // The number's code: as long as its first byte's leading ones.
    size_t codeBytes = 1;
    if ((data[4] & 0x80) != 0) {
        codeBytes = 0;
        while (codeBytes < 8 && (data[4] & (0x80 >> codeBytes)) != 0) ++codeBytes;
        if (codeBytes < 2 || codeBytes > 7) return false;
    }
    const int blockCode = data[2] >> 4, rateCode = data[2] & 0x0F;
    const size_t extra = (blockCode == 6 ? 1 : blockCode == 7 ? 2 : 0) +
                         (rateCode == 12 ? 1 : rateCode == 13 || rateCode == 14 ? 2 : 0);
    const size_t crc8At = 4 + codeBytes + extra;
    if (crc8At + 3 > size) return false;

    out->clear();
    out->reserve(size + 6);
    out->insert(out->end(), data, data + 4);
    putNumber(number, out);
    out->insert(out->end(), data + 4 + codeBytes, data + crc8At);
    out->push_back(static_cast<uint8_t>(av_crc(av_crc_get_table(AV_CRC_8_ATM), 0, out->data(), out->size())));
    const size_t header = out->size();
    out->insert(out->end(), data + crc8At + 1, data + size - 2);
    // crc(header || body) = crc(header) carried over the body ^ crc(body).
    const uint16_t stored = static_cast<uint16_t>((data[size - 2] << 8) | data[size - 1]);
    const uint16_t crc = static_cast<uint16_t>(
        stored ^ crc16AfterZeros(crc16(data, crc8At + 1) ^ crc16(out->data(), header), size - 2 - (crc8At + 1)));
    out->push_back(static_cast<uint8_t>(crc >> 8));
    out->push_back(static_cast<uint8_t>(crc));
    return true;
}

// Bytes of the frame number's code.
int numberBytes(uint32_t number) {
    if (number < 0x80) return 1;
    int bytes = 2;
    while (bytes < 6 && number >= (1u << (5 * bytes + 1))) ++bytes;
    return bytes;
}

// The codec's bound for a frame of `samples` frames, in bytes: a verbatim
// frame's, with room for a side channel's extra bit.
uint32_t verbatimBound(uint32_t samples, uint32_t channels) {
    const uint32_t bits = channels == 2 ? 33 : 16 * channels;
    return 16 + 3 * channels + (bits * samples + 7) / 8 + 2;
}

// Sends `count` frames at `pcm` (silence when null; with `count` 0, the end
// of the stream) to `codec`, and passes each frame it then has ready to
// `take`; the closing packet of stream information alone is left out.
template <typename Take>
bool codeBlock(AVCodecContext* codec, AVFrame* frame, AVPacket* packet, const int16_t* pcm, int count, int64_t pts,
               const Take& take) {
    int sent = 0;
    if (count == 0) {
        sent = avcodec_send_frame(codec, nullptr);
    } else {
        frame->nb_samples = count;
        frame->format = codec->sample_fmt;
        frame->sample_rate = codec->sample_rate;
        const bool made =
            av_channel_layout_copy(&frame->ch_layout, &codec->ch_layout) >= 0 && av_frame_get_buffer(frame, 0) >= 0;
        if (made) {
            const size_t bytes = static_cast<size_t>(count) * static_cast<size_t>(codec->ch_layout.nb_channels) * 2;
            if (pcm != nullptr) {
                std::memcpy(frame->data[0], pcm, bytes);
            } else {
                std::memset(frame->data[0], 0, bytes);
            }
            frame->pts = pts;
            sent = avcodec_send_frame(codec, frame);
        }
        av_frame_unref(frame);
        if (!made) return false;
    }
    if (sent < 0) return false;
    for (;;) {
        const int received = avcodec_receive_packet(codec, packet);
        if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) return true;
        if (received < 0) return false;
        const bool ok = packet->size == 0 || take(packet);
        av_packet_unref(packet);
        if (!ok) return false;
    }
}

uint32_t get24(const uint8_t* at) { return (uint32_t(at[0]) << 16) | (uint32_t(at[1]) << 8) | at[2]; }

void put24(uint8_t* at, uint32_t value) {
    at[0] = uint8_t(value >> 16);
    at[1] = uint8_t(value >> 8);
    at[2] = uint8_t(value);
}

}  // namespace

struct FlacSegments::Segment {
    size_t index = 0;
    uint32_t firstNumber = 0;  // the stream's number of its first frame
    std::vector<int16_t> input;
    std::vector<Frame> frames;  // the result
};

struct FlacSegments::Worker {
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    // The worker's encoder, kept from segment to segment (opening one
    // clears megabytes), and the frames it has coded.
    AVCodecContext* coder = nullptr;
    uint32_t coded = 0;
    // By the bytes of their count's code: encoders moved on to a count of
    // that many bytes, and the frames each has coded.
    AVCodecContext* coders[8] = {};
    uint32_t counts[8] = {};
    ~Worker() {
        avcodec_free_context(&coder);
        for (AVCodecContext*& each : coders) avcodec_free_context(&each);
        av_packet_free(&packet);
        av_frame_free(&frame);
    }
};

uint32_t FlacSegments::segmentBlocks(uint32_t rate, uint32_t blockFrames) {
    constexpr uint32_t kSeconds = 10;
    return std::max<uint32_t>(1, kSeconds * rate / std::max<uint32_t>(1, blockFrames));
}

FlacSegments::FlacSegments(NewCodec newCodec, int threads, uint32_t rate, uint32_t channels,
                           uint32_t blockFrames)
    : mNewCodec(std::move(newCodec)),
      mChannels(channels),
      mBlockFrames(blockFrames),
      mSegmentBlocks(segmentBlocks(rate, blockFrames)),
      mPool(threads,
            [this](Worker& worker, Segment& segment) { return encodeSegment(worker, segment); }) {
    mInput.reserve(size_t{mSegmentBlocks + 2} * mBlockFrames * mChannels);
    mMd5 = av_md5_alloc();
    if (mMd5 != nullptr) av_md5_init(mMd5);
}

FlacSegments::~FlacSegments() { av_free(mMd5); }

bool FlacSegments::push(const int16_t* pcm, size_t frames, std::vector<Frame>* ready) {
    if (mMd5 == nullptr || mFinished) return false;
    // FLAC's MD5 is of the samples as little-endian bytes, interleaved: as
    // they come here on little-endian machines.
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the MD5 takes the input's bytes as they are");
    av_md5_update(mMd5, reinterpret_cast<const uint8_t*>(pcm), frames * mChannels * 2);
    mInput.insert(mInput.end(), pcm, pcm + frames * mChannels);
    mInputFrames += frames;
    // A segment goes once a whole block follows it: the last one then
    // never starts with the stream's short block.
    const size_t segmentSamples = size_t{mSegmentBlocks} * mBlockFrames * mChannels;
    while (mInput.size() >= segmentSamples + size_t{mBlockFrames} * mChannels) {
        dispatch(false);
        if (!collect(WaitFor::kRoom, ready)) return false;
    }
    return collect(WaitFor::kNothing, ready);
}

bool FlacSegments::finish(std::vector<Frame>* ready) {
    if (mMd5 == nullptr || mFinished) return false;
    mFinished = true;
    if (!mInput.empty()) dispatch(true);
    if (!collect(WaitFor::kAll, ready)) return false;
    av_md5_final(mMd5, mMd5Sum);
    return true;
}

bool FlacSegments::restateStreamInfo(std::vector<uint8_t>* info) const {
    if (!mFinished || info->size() != kStreamInfoBytes) return false;
    uint8_t* at = info->data();
    // One encoder starts its smallest frame at the bound for a verbatim
    // block (its header's largest frame when opened) and ends with its
    // largest frame as encoded.
    put24(at + 4, std::min(get24(at + 7), mSmallestFrame));
    put24(at + 7, mLargestFrame);
    // 36 bits of length after rate, channels and sample size.
    at[13] = static_cast<uint8_t>((at[13] & 0xF0) | ((mInputFrames >> 32) & 0x0F));
    for (int i = 0; i < 4; ++i) at[14 + i] = static_cast<uint8_t>(mInputFrames >> (24 - 8 * i));
    std::memcpy(at + 18, mMd5Sum, sizeof mMd5Sum);
    return true;
}

void FlacSegments::dispatch(bool last) {
    std::unique_ptr<Segment> segment(new Segment);
    segment->index = mPool.dispatched();
    segment->firstNumber = static_cast<uint32_t>(segment->index * mSegmentBlocks);
    const size_t samples = last ? mInput.size() : size_t{mSegmentBlocks} * mBlockFrames * mChannels;
    // The segment takes the buffer; what follows it starts the next one.
    std::vector<int16_t> next;
    if (!mSpare.empty()) {
        next = std::move(mSpare.back());
        mSpare.pop_back();
    }
    next.assign(mInput.begin() + static_cast<ptrdiff_t>(samples), mInput.end());
    mInput.resize(samples);
    segment->input = std::move(mInput);
    mInput = std::move(next);
    mInput.reserve(size_t{mSegmentBlocks + 2} * mBlockFrames * mChannels);
    mPool.dispatch(std::move(segment));
}

bool FlacSegments::encodeSegment(Worker& worker, Segment& segment) {
    if (worker.coder == nullptr) {
        worker.coder = mNewCodec();
        worker.coded = 0;
    }
    AVCodecContext* const codec = worker.coder;
    bool ok = codec != nullptr && worker.frame != nullptr && worker.packet != nullptr;
    const size_t frames = segment.input.size() / mChannels;
    // The stream's frames before the segment's; the encoder has coded no
    // more than those, so its numbers are never longer than the stream's.
    const int64_t base = int64_t{segment.firstNumber} * mBlockFrames;
    uint32_t taken = 0;
    const auto take = [&](AVPacket* packet) {
        const uint32_t number = segment.firstNumber + taken;
        const auto at = static_cast<size_t>(packet->pts - base);
        const auto samples = static_cast<uint32_t>(packet->duration);
        const int longer = numberBytes(number) - numberBytes(worker.coded);
        ++worker.coded;
        ++taken;
        Frame out;
        out.samples = samples;
        const uint32_t bound = verbatimBound(samples, mChannels);
        // The codec's estimate, which decided, is within half a bit a
        // sample of the frame's size.
        if (longer > 0 && static_cast<uint32_t>(packet->size + longer) + bound / 8 > bound) {
            return recode(worker, segment.input.data() + at * mChannels, static_cast<int>(samples), number, &out) &&
                   (segment.frames.push_back(std::move(out)), true);
        }
        if (!renumberFrame(packet->data, static_cast<size_t>(packet->size), number, &out.bytes)) {
            WV_LOGE("segment %zu: frame %u is not one of fixed block size", segment.index, number);
            return false;
        }
        segment.frames.push_back(std::move(out));
        return true;
    };
    for (size_t at = 0; ok && at < frames; at += mBlockFrames) {
        if (mPool.stopped()) ok = false;
        const int count = static_cast<int>(std::min<size_t>(mBlockFrames, frames - at));
        ok = ok && codeBlock(codec, worker.frame, worker.packet, segment.input.data() + at * mChannels, count,
                             base + static_cast<int64_t>(at), take);
    }
    // The codec hands out each frame as it takes it: it is drained only
    // after a short block, the stream's last, after which it takes none.
    const size_t blocks = (frames + mBlockFrames - 1) / mBlockFrames;
    if (!ok || taken != blocks || frames % mBlockFrames != 0) {
        ok = ok && codeBlock(codec, worker.frame, worker.packet, nullptr, 0, 0, take) && taken == blocks;
        avcodec_free_context(&worker.coder);
    }
    segment.input.clear();
    return ok;
}

bool FlacSegments::recode(Worker& worker, const int16_t* pcm, int count, uint32_t number, Frame* out) {
    const int bytes = numberBytes(number);
    AVCodecContext*& coder = worker.coders[bytes];
    uint32_t& coded = worker.counts[bytes];
    if (coder != nullptr && numberBytes(coded) != bytes) avcodec_free_context(&coder);
    const auto drop = [](AVPacket*) { return true; };
    if (coder == nullptr) {
        coder = mNewCodec();
        if (coder == nullptr) return false;
        // The first count coded in `bytes` bytes.
        const uint32_t first = bytes == 2 ? 0x80u : 1u << (5 * (bytes - 1) + 1);
        WV_LOGD("a frame near the verbatim bound: an encoder moved on to frame %u", first);
        for (coded = 0; coded < first; ++coded) {
            if (coded % 256 == 0 && mPool.stopped()) return false;
            if (!codeBlock(coder, worker.frame, worker.packet, nullptr, static_cast<int>(mBlockFrames), coded, drop)) {
                return false;
            }
        }
    }
    bool renumbered = false;
    const auto take = [&](AVPacket* packet) {
        renumbered = renumberFrame(packet->data, static_cast<size_t>(packet->size), number, &out->bytes);
        return renumbered;
    };
    ++coded;
    return codeBlock(coder, worker.frame, worker.packet, pcm, count, coded, take) && renumbered;
}

bool FlacSegments::collect(WaitFor wait, std::vector<Frame>* ready) {
    return mPool.collect(wait, [&](std::unique_ptr<Segment> segment) {
        if (mSpare.size() < mPool.mostInFlight()) mSpare.push_back(std::move(segment->input));
        for (Frame& frame : segment->frames) {
            const auto bytes = static_cast<uint32_t>(frame.bytes.size());
            mSmallestFrame = std::min(mSmallestFrame, bytes);
            mLargestFrame = std::max(mLargestFrame, bytes);
            ready->push_back(std::move(frame));
        }
        return true;
    });
}

}  // namespace wv
