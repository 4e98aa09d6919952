// Converts decoded frames of any sample format, channel layout and rate to
// interleaved signed 16-bit samples at one fixed rate and channel count (1
// or 2). More channels are mixed down to stereo by the standard matrix
// (centre and surrounds folded in, levels kept below clipping). The
// conversion is rebuilt when the input format changes mid-stream, so the
// output format never does.
#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/channel_layout.h>
}

struct AVFrame;
struct SwrContext;

namespace wv {

class SampleConverter {
public:
    SampleConverter(int outRate, int outChannels);
    ~SampleConverter();
    SampleConverter(const SampleConverter&) = delete;
    SampleConverter& operator=(const SampleConverter&) = delete;

    int outChannels() const { return mOutChannels; }
    // Output frames that converting `frame` (or draining, for null) can
    // give at most; -1 when the frame's format cannot be converted.
    int maxOutputFrames(const AVFrame* frame);
    // Converts `frame` into `out` (room for `capacityFrames` frames);
    // returns the frames written or a negative error. A null frame drains
    // what a rate conversion still holds.
    int convert(const AVFrame* frame, int16_t* out, int capacityFrames);
    // Drops held samples, as after a seek.
    void reset();

private:
    bool configureFor(const AVFrame& frame);

    const int mOutRate;
    const int mOutChannels;
    SwrContext* mSwr = nullptr;
    int mInFormat = -1;
    int mInRate = 0;
    AVChannelLayout mInLayout{};
};

}  // namespace wv
