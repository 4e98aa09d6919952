// The libavfilter functions the dsp layer calls (the denoiser's filter
// graph), forwarded like the rest of FFmpeg (see FfmpegForwarders.cpp) to a
// library opened at the first call: a process that never filters never maps
// libavfilter and the many libraries it pulls in.
#include <cstdint>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
}

#include "platform/LazyLibraries.h"

namespace wv {
namespace {

#define WV_FILTER_SONAME(major) "libavfilter.so." WV_FILTER_STRINGIFY(major)
#define WV_FILTER_STRINGIFY(x) WV_FILTER_STRINGIFY2(x)
#define WV_FILTER_STRINGIFY2(x) #x

const char* const kFilterSonames[] = {WV_FILTER_SONAME(LIBAVFILTER_VERSION_MAJOR), nullptr};

LazyLibraries& avfilter() {
    static LazyLibraries libraries(kFilterSonames, nullptr);
    return libraries;
}

}  // namespace
}  // namespace wv

// clang-format off
#define WV_FILTER_FORWARD(ret, name, params, args)                                                      \
    extern "C" ret name params {                                                                        \
        static const auto real = reinterpret_cast<decltype(&::name)>(wv::avfilter().symbolOrDie(#name)); \
        return real args;                                                                               \
    }

WV_FILTER_FORWARD(AVFilterGraph*, avfilter_graph_alloc, (void), ())
WV_FILTER_FORWARD(void, avfilter_graph_free, (AVFilterGraph** graph), (graph))
WV_FILTER_FORWARD(const AVFilter*, avfilter_get_by_name, (const char* name), (name))
WV_FILTER_FORWARD(int, avfilter_graph_create_filter,
                  (AVFilterContext** context, const AVFilter* filter, const char* name, const char* args,
                   void* opaque, AVFilterGraph* graph),
                  (context, filter, name, args, opaque, graph))
WV_FILTER_FORWARD(int, avfilter_link, (AVFilterContext* src, unsigned srcPad, AVFilterContext* dst, unsigned dstPad),
                  (src, srcPad, dst, dstPad))
WV_FILTER_FORWARD(int, avfilter_graph_config, (AVFilterGraph* graph, void* logContext), (graph, logContext))
WV_FILTER_FORWARD(int, av_buffersrc_add_frame, (AVFilterContext* context, AVFrame* frame), (context, frame))
WV_FILTER_FORWARD(int, av_buffersink_get_frame, (AVFilterContext* context, AVFrame* frame), (context, frame))
// clang-format on
