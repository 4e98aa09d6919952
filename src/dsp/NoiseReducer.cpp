#define WV_LOG_TAG "NoiseReducer"
#include "dsp/NoiseReducer.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
#include <libavutil/frame.h>
}

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/Log.h"

namespace wv {
namespace {

// Frames per filter input frame, and per piece of silence after the end.
constexpr uint32_t kChunkFrames = 1024;

}  // namespace

NoiseReducer::NoiseReducer(int32_t rate, int32_t channels, int32_t amountDb)
    : mRate(rate), mChannels(static_cast<uint32_t>(channels)) {
    AVChannelLayout layout;
    av_channel_layout_default(&layout, channels);
    char layoutName[64] = {};
    av_channel_layout_describe(&layout, layoutName, sizeof layoutName);
    av_channel_layout_uninit(&layout);
    char sourceArgs[160];
    std::snprintf(sourceArgs, sizeof sourceArgs,
                  "sample_rate=%d:sample_fmt=flt:channel_layout=%s:time_base=1/%d",
                  static_cast<int>(rate), layoutName, static_cast<int>(rate));
    char filterArgs[96];
    std::snprintf(filterArgs, sizeof filterArgs, "nr=%d:nf=%d:nt=s", static_cast<int>(amountDb),
                  static_cast<int>(kNoiseFloorDb));

    mGraph = avfilter_graph_alloc();
    // On the caller's thread only: the render already runs on a worker of
    // its own, and slice threads of the filter would add threads per list
    // (and synchronise through atomics the race checker cannot see).
    if (mGraph != nullptr) mGraph->nb_threads = 1;
    mFrame = av_frame_alloc();
    AVFilterContext* source = nullptr;
    AVFilterContext* denoise = nullptr;
    AVFilterContext* format = nullptr;
    AVFilterContext* sink = nullptr;
    const bool made =
        mGraph != nullptr && mFrame != nullptr &&
        avfilter_graph_create_filter(&source, avfilter_get_by_name("abuffer"), "in", sourceArgs,
                                     nullptr, mGraph) >= 0 &&
        avfilter_graph_create_filter(&denoise, avfilter_get_by_name("afftdn"), "denoise",
                                     filterArgs, nullptr, mGraph) >= 0 &&
        // Back to the interleaved floats the list mixes in.
        avfilter_graph_create_filter(&format, avfilter_get_by_name("aformat"), "format",
                                     "sample_fmts=flt", nullptr, mGraph) >= 0 &&
        avfilter_graph_create_filter(&sink, avfilter_get_by_name("abuffersink"), "out", nullptr,
                                     nullptr, mGraph) >= 0 &&
        avfilter_link(source, 0, denoise, 0) >= 0 && avfilter_link(denoise, 0, format, 0) >= 0 &&
        avfilter_link(format, 0, sink, 0) >= 0 && avfilter_graph_config(mGraph, nullptr) >= 0;
    if (!made) {
        WV_LOGE("the noise filter cannot be set up (%d Hz, %d channels)", static_cast<int>(rate),
                static_cast<int>(channels));
        return;
    }
    mSource = source;
    mSink = sink;
}

NoiseReducer::~NoiseReducer() {
    av_frame_free(&mFrame);
    avfilter_graph_free(&mGraph);
}

void NoiseReducer::send(const float* in, uint32_t frames) {
    while (frames > 0) {
        const uint32_t n = std::min(frames, kChunkFrames);
        AVFrame* frame = av_frame_alloc();
        if (frame == nullptr) return;
        frame->format = AV_SAMPLE_FMT_FLT;
        av_channel_layout_default(&frame->ch_layout, static_cast<int>(mChannels));
        frame->sample_rate = mRate;
        frame->nb_samples = static_cast<int>(n);
        frame->pts = mSent;
        if (av_frame_get_buffer(frame, 0) < 0) {
            av_frame_free(&frame);
            return;
        }
        float* data = reinterpret_cast<float*>(frame->data[0]);
        if (in != nullptr) {
            std::memcpy(data, in, size_t(n) * mChannels * sizeof(float));
            in += size_t(n) * mChannels;
        } else {
            std::memset(data, 0, size_t(n) * mChannels * sizeof(float));
        }
        const int sent = av_buffersrc_add_frame(mSource, frame);
        av_frame_free(&frame);
        if (sent < 0) return;
        mSent += n;
        frames -= n;
        drain();
    }
}

void NoiseReducer::drain() {
    while (av_buffersink_get_frame(mSink, mFrame) >= 0) {
        const uint32_t n = static_cast<uint32_t>(mFrame->nb_samples);
        // The filter's delay is two of its hops; its first answer is one.
        if (mLatency < 0) mLatency = 2 * int64_t(n);
        const uint32_t skip = static_cast<uint32_t>(std::min<int64_t>(mLatency, n));
        mLatency -= skip;
        const float* data = reinterpret_cast<const float*>(mFrame->data[0]);
        mReady.insert(mReady.end(), data + size_t(skip) * mChannels, data + size_t(n) * mChannels);
        av_frame_unref(mFrame);
    }
}

void NoiseReducer::put(const float* in, uint32_t frames) {
    if (mFinished) return;
    mInput += frames;
    // Without a filter the stream passes unchanged rather than go silent.
    if (!ok()) {
        mReady.insert(mReady.end(), in, in + size_t(frames) * mChannels);
        return;
    }
    send(in, frames);
}

void NoiseReducer::finish() {
    if (mFinished) return;
    mFinished = true;
    if (!ok()) return;
    // Silence pushes the delayed tail out; a filter that stops answering
    // ends the stream within a bounded number of pieces.
    const uint64_t wanted = mInput - std::min<uint64_t>(mInput, mOutput);
    for (int pieces = 0; mReady.size() / mChannels < wanted && pieces < 64; ++pieces) {
        send(nullptr, kChunkFrames);
    }
    if (mReady.size() / mChannels > wanted) mReady.resize(size_t(wanted) * mChannels);
}

uint32_t NoiseReducer::take(float* out, uint32_t maxFrames) {
    const uint32_t n =
        static_cast<uint32_t>(std::min<size_t>(maxFrames, mReady.size() / mChannels));
    const size_t count = size_t(n) * mChannels;
    std::copy(mReady.begin(), mReady.begin() + static_cast<std::ptrdiff_t>(count), out);
    mReady.erase(mReady.begin(), mReady.begin() + static_cast<std::ptrdiff_t>(count));
    mOutput += n;
    return n;
}

}  // namespace wv
