// The second stage of an item's reader: the item's frames at the rate its
// user asks for. At the item's own rate the frames pass through untouched;
// otherwise they are pulled from the source (a decoded item's file, or a
// nested clip list read at its own rate) through the resampler of
// the quality set (the process default unless told), made at the first
// converted read, and come out as stereo.
//
// Converted length: the linear kind gives what its one frame of latency
// makes of the range. The high-quality kinds give exactly
// round(N x out / in) frames for a range of N frames that ends (the end of
// the range, or of a finished item): the filter's tail is read out before
// END is reported.
//
// Threads: one thread at a time, like the reader that owns it.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/resample/AudioBufferProvider.h"
#include "platform/resample/AudioResampler.h"

namespace wv {

// What a converter pulls frames from: their rate and channels, read
// straight when no conversion is needed, else lent buffer by buffer.
class ConverterInput : public AudioBufferProvider {
public:
    virtual int32_t rate() const = 0;
    virtual int32_t channels() const = 0;
    // Up to `frames` frames in the input's own format; returns the frames
    // read and sets endState().
    virtual uint32_t read(char* buffer, uint32_t frames) = 0;
    virtual int32_t endState() const = 0;
    // Whether the converter holds a lent buffer not yet given back.
    virtual bool lending() const = 0;
};

class RateConverter {
public:
    // Not owned; outlives the converter.
    explicit RateConverter(ConverterInput* source) : mSource(source) {}
    ~RateConverter();
    RateConverter(const RateConverter&) = delete;
    RateConverter& operator=(const RateConverter&) = delete;

    void setOutRate(int32_t rate) { mOutRate = rate; }
    void setQuality(AudioResampler::src_quality quality) { mQuality = quality; }
    // What the next read does, taken once per read: the item's rate may
    // still change while it loads.
    struct Plan {
        int32_t itemRate;
        int32_t itemChannels;
        bool converting;
        // Of the frames read() gives: the item's, or 2 when converting.
        int32_t channels() const { return converting ? 2 : itemChannels; }
    };
    Plan plan() const;
    // Up to `frames` frames at the output rate; returns the frames made and
    // sets *state (PcmSource::EndState).
    uint32_t read(const Plan& plan, char* buffer, uint32_t frames, int32_t* state);

private:
    ConverterInput* mSource;
    int32_t mOutRate = 0;
    AudioResampler::src_quality mQuality = AudioResampler::SRC_DEFAULT;
    std::unique_ptr<AudioResampler> mResampler;
};

}  // namespace wv
