// ChannelDecoder: the first audio track of a file decoded at its own
// channel count, with no downmix, into interleaved float samples (full
// scale 1.0), and the place of each channel in the layout.
//
// For work that must see every channel of a multichannel file (its
// loudness), where the loaders' path (AudioCodec) keeps at most two. A
// track whose container states no layout gets FFmpeg's default layout for
// its channel count, as ffmpeg's own filters assume.
//
// A packet the codec refuses as invalid data is skipped, as ffmpeg skips it;
// any other error ends the read with a failure.
//
// One thread at a time; the file is read from its start to its end once.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/media/DecoderCore.h"

struct AVFrame;
struct SwrContext;

namespace wv {

class ChannelDecoder : private DecoderCore::Feed {
public:
    // A channel's place: front (left, right, centre and the rest ahead),
    // surround (side and back, at ear height or above), low-frequency
    // effects.
    enum class Place { kFront, kSurround, kLowFrequency };

    ChannelDecoder() = default;
    ~ChannelDecoder();
    ChannelDecoder(const ChannelDecoder&) = delete;
    ChannelDecoder& operator=(const ChannelDecoder&) = delete;

    // False when the file has no audio track that can be decoded.
    bool open(const std::string& path);
    uint32_t rate() const { return mRate; }
    uint32_t channels() const { return static_cast<uint32_t>(mPlaces.size()); }
    Place place(uint32_t channel) const { return mPlaces[channel]; }

    // Up to `maxFrames` frames into `out` (room for maxFrames x channels()
    // samples): the frames written, 0 at the end of the track, -1 when it
    // cannot be read or decoded.
    int read(float* out, int maxFrames);

private:
    // Decodes more into mPending; false at the end or on failure (mFailed).
    bool decodeMore();
    bool convert(const AVFrame* frame);
    Input nextPacket(AVPacket* packet) override;
    bool skipDamaged(bool refused, int error) override;

    std::unique_ptr<DecoderCore> mCore;
    SwrContext* mConverter = nullptr;
    uint32_t mRate = 0;
    std::vector<Place> mPlaces;
    std::vector<float> mPending;  // decoded samples not yet read
    size_t mPendingAt = 0;        // the first of them, in samples
    bool mEnded = false;
    bool mFailed = false;
};

}  // namespace wv
