// The FFmpeg functions the media layer calls, forwarded to the real ones in
// libraries opened at the first call (see platform/LazyLibraries.h). Each
// forwarder looks its target up once and then only jumps; the definitions
// carry the exact prototypes of the FFmpeg headers, so a mismatch does not
// compile.
//
// The log settings are the exception: the engine sets them when it starts,
// long before anything is decoded. They are kept and handed over when the
// libraries open, or at once when the libraries are already loaded or
// linked into the program.
#define WV_LOG_TAG "MediaLayer"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/base64.h>
#include <libavutil/channel_layout.h>
#include <libavutil/crc.h>
#include <libavutil/dict.h>
#include <libavutil/error.h>
#include <libavutil/frame.h>
#include <libavutil/log.h>
#include <libavutil/mathematics.h>
#include <libavutil/md5.h>
#include <libavutil/mem.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <mutex>

#include "platform/LazyLibraries.h"

namespace wv {
namespace {

#define WV_SONAME(lib, major) "lib" #lib ".so." WV_STRINGIFY(major)
#define WV_STRINGIFY(x) WV_STRINGIFY2(x)
#define WV_STRINGIFY2(x) #x

const char* const kSonames[] = {WV_SONAME(avformat, LIBAVFORMAT_VERSION_MAJOR),
                                WV_SONAME(avcodec, LIBAVCODEC_VERSION_MAJOR),
                                WV_SONAME(swresample, LIBSWRESAMPLE_VERSION_MAJOR),
                                WV_SONAME(avutil, LIBAVUTIL_VERSION_MAJOR), nullptr};

using LogCallback = void (*)(void*, int, const char*, va_list);

std::mutex gLogLock;
bool gHasLevel = false;
int gLevel = 0;
bool gHasCallback = false;
LogCallback gCallback = nullptr;

LazyLibraries& ffmpeg();

// Runs when the libraries have opened (inside their loading, hence
// lookUp) and whenever a setting changes after that.
void applyLogSettings() {
    std::lock_guard<std::mutex> guard(gLogLock);
    auto setLevel =
        reinterpret_cast<decltype(&::av_log_set_level)>(ffmpeg().lookUp("av_log_set_level"));
    auto setCallback =
        reinterpret_cast<decltype(&::av_log_set_callback)>(ffmpeg().lookUp("av_log_set_callback"));
    if (gHasLevel && setLevel != nullptr) setLevel(gLevel);
    if (gHasCallback && setCallback != nullptr) setCallback(gCallback);
}

LazyLibraries& ffmpeg() {
    static LazyLibraries libraries(kSonames, applyLogSettings);
    return libraries;
}

// Hands the kept settings over when the libraries are, or can cheaply be,
// open; otherwise applyLogSettings does it when they open.
void logSettingsChanged() {
    if (ffmpeg().loaded() || ffmpeg().presentInProcess()) {
        ffmpeg().load();
        applyLogSettings();
    }
}

}  // namespace
}  // namespace wv

// The forwarders below read as a table of signatures, one a line; the
// formatter would split them and space the pointers of macro arguments.
// clang-format off
#define WV_FORWARD(ret, name, params, args)                                                          \
    extern "C" ret name params {                                                                     \
        static const auto real = reinterpret_cast<decltype(&::name)>(wv::ffmpeg().symbolOrDie(#name)); \
        return real args;                                                                            \
    }

extern "C" void av_log_set_level(int level) {
    {
        std::lock_guard<std::mutex> guard(wv::gLogLock);
        wv::gLevel = level;
        wv::gHasLevel = true;
    }
    wv::logSettingsChanged();
}

extern "C" void av_log_set_callback(void (*callback)(void*, int, const char*, va_list)) {
    {
        std::lock_guard<std::mutex> guard(wv::gLogLock);
        wv::gCallback = callback;
        wv::gHasCallback = true;
    }
    wv::logSettingsChanged();
}

// libavutil
WV_FORWARD(AVAudioFifo*, av_audio_fifo_alloc, (enum AVSampleFormat format, int channels, int frames),
           (format, channels, frames))
WV_FORWARD(void, av_audio_fifo_free, (AVAudioFifo* fifo), (fifo))
WV_FORWARD(int, av_audio_fifo_read, (AVAudioFifo* fifo, void** data, int frames), (fifo, data, frames))
WV_FORWARD(int, av_audio_fifo_size, (AVAudioFifo* fifo), (fifo))
WV_FORWARD(int, av_audio_fifo_write, (AVAudioFifo* fifo, void** data, int frames), (fifo, data, frames))
WV_FORWARD(int, av_channel_layout_compare, (const AVChannelLayout* a, const AVChannelLayout* b), (a, b))
WV_FORWARD(int, av_channel_layout_copy, (AVChannelLayout* dst, const AVChannelLayout* src), (dst, src))
WV_FORWARD(void, av_channel_layout_default, (AVChannelLayout* layout, int channels), (layout, channels))
WV_FORWARD(int, av_channel_layout_describe, (const AVChannelLayout* layout, char* buffer, size_t size),
           (layout, buffer, size))
WV_FORWARD(void, av_channel_layout_uninit, (AVChannelLayout* layout), (layout))
WV_FORWARD(uint32_t, av_crc, (const AVCRC* ctx, uint32_t crc, const uint8_t* buffer, size_t length),
           (ctx, crc, buffer, length))
WV_FORWARD(const AVCRC*, av_crc_get_table, (AVCRCId id), (id))
WV_FORWARD(void, av_dict_free, (AVDictionary** dict), (dict))
WV_FORWARD(AVDictionaryEntry*, av_dict_get,
           (const AVDictionary* dict, const char* key, const AVDictionaryEntry* prev, int flags),
           (dict, key, prev, flags))
WV_FORWARD(int, av_dict_set, (AVDictionary** dict, const char* key, const char* value, int flags),
           (dict, key, value, flags))
WV_FORWARD(AVFrame*, av_frame_alloc, (void), ())
WV_FORWARD(void, av_frame_free, (AVFrame** frame), (frame))
WV_FORWARD(int, av_frame_get_buffer, (AVFrame* frame, int align), (frame, align))
WV_FORWARD(void, av_frame_unref, (AVFrame* frame), (frame))
WV_FORWARD(void, av_free, (void* ptr), (ptr))
WV_FORWARD(void, av_freep, (void* ptr), (ptr))
WV_FORWARD(int, av_get_bytes_per_sample, (enum AVSampleFormat format), (format))
WV_FORWARD(struct AVMD5*, av_md5_alloc, (void), ())
WV_FORWARD(void, av_md5_final, (struct AVMD5* ctx, uint8_t* dst), (ctx, dst))
WV_FORWARD(void, av_md5_init, (struct AVMD5* ctx), (ctx))
WV_FORWARD(void, av_md5_update, (struct AVMD5* ctx, const uint8_t* src, size_t length), (ctx, src, length))
WV_FORWARD(void*, av_malloc, (size_t size), (size))
WV_FORWARD(void*, av_mallocz, (size_t size), (size))
WV_FORWARD(void*, av_calloc, (size_t count, size_t size), (count, size))
WV_FORWARD(char*, av_base64_encode, (char* out, int outSize, const uint8_t* in, int inSize),
           (out, outSize, in, inSize))
WV_FORWARD(int, av_log_format_line2,
           (void* avcl, int level, const char* fmt, va_list args, char* line, int size, int* prefix),
           (avcl, level, fmt, args, line, size, prefix))
WV_FORWARD(int64_t, av_rescale_q, (int64_t a, AVRational bq, AVRational cq), (a, bq, cq))
WV_FORWARD(int, av_sample_fmt_is_planar, (enum AVSampleFormat format), (format))
WV_FORWARD(int, av_strerror, (int errnum, char* buffer, size_t size), (errnum, buffer, size))

// libavcodec
WV_FORWARD(AVPacket*, av_packet_alloc, (void), ())
WV_FORWARD(void, av_packet_free, (AVPacket** packet), (packet))
WV_FORWARD(int, av_new_packet, (AVPacket* packet, int size), (packet, size))
WV_FORWARD(uint8_t*, av_packet_new_side_data, (AVPacket* packet, enum AVPacketSideDataType type, size_t size),
           (packet, type, size))
WV_FORWARD(void, av_packet_move_ref, (AVPacket* dst, AVPacket* src), (dst, src))
WV_FORWARD(int, av_packet_ref, (AVPacket* dst, const AVPacket* src), (dst, src))
WV_FORWARD(void, av_packet_rescale_ts, (AVPacket* packet, AVRational from, AVRational to), (packet, from, to))
WV_FORWARD(void, av_packet_unref, (AVPacket* packet), (packet))
WV_FORWARD(int, av_get_bits_per_sample, (enum AVCodecID id), (id))
WV_FORWARD(AVCodecContext*, avcodec_alloc_context3, (const AVCodec* codec), (codec))
WV_FORWARD(const AVCodecDescriptor*, avcodec_descriptor_get, (enum AVCodecID id), (id))
WV_FORWARD(const AVCodec*, avcodec_find_decoder, (enum AVCodecID id), (id))
WV_FORWARD(const AVCodec*, avcodec_find_encoder_by_name, (const char* name), (name))
WV_FORWARD(void, avcodec_flush_buffers, (AVCodecContext* context), (context))
WV_FORWARD(void, avcodec_free_context, (AVCodecContext** context), (context))
WV_FORWARD(const char*, avcodec_get_name, (enum AVCodecID id), (id))
WV_FORWARD(int, avcodec_open2, (AVCodecContext* context, const AVCodec* codec, AVDictionary** options),
           (context, codec, options))
WV_FORWARD(int, avcodec_parameters_from_context, (AVCodecParameters* par, const AVCodecContext* context),
           (par, context))
WV_FORWARD(int, avcodec_parameters_to_context, (AVCodecContext* context, const AVCodecParameters* par),
           (context, par))
WV_FORWARD(int, avcodec_receive_frame, (AVCodecContext* context, AVFrame* frame), (context, frame))
WV_FORWARD(int, avcodec_receive_packet, (AVCodecContext* context, AVPacket* packet), (context, packet))
WV_FORWARD(int, avcodec_send_frame, (AVCodecContext* context, const AVFrame* frame), (context, frame))
WV_FORWARD(int, avcodec_send_packet, (AVCodecContext* context, const AVPacket* packet), (context, packet))

// libavformat
WV_FORWARD(int, av_interleaved_write_frame, (AVFormatContext* s, AVPacket* packet), (s, packet))
WV_FORWARD(int, av_read_frame, (AVFormatContext* s, AVPacket* packet), (s, packet))
WV_FORWARD(int, av_seek_frame, (AVFormatContext* s, int stream, int64_t timestamp, int flags),
           (s, stream, timestamp, flags))
WV_FORWARD(int, av_write_trailer, (AVFormatContext* s), (s))
WV_FORWARD(AVFormatContext*, avformat_alloc_context, (void), ())
WV_FORWARD(int, avformat_alloc_output_context2,
           (AVFormatContext** s, const AVOutputFormat* format, const char* formatName, const char* filename),
           (s, format, formatName, filename))
WV_FORWARD(void, avformat_close_input, (AVFormatContext** s), (s))
WV_FORWARD(int, avformat_find_stream_info, (AVFormatContext* s, AVDictionary** options), (s, options))
WV_FORWARD(void, avformat_free_context, (AVFormatContext* s), (s))
WV_FORWARD(AVStream*, avformat_new_stream, (AVFormatContext* s, const AVCodec* codec), (s, codec))
WV_FORWARD(int, avformat_open_input,
           (AVFormatContext** s, const char* url, const AVInputFormat* format, AVDictionary** options),
           (s, url, format, options))
WV_FORWARD(int, avformat_seek_file,
           (AVFormatContext* s, int stream, int64_t minTs, int64_t ts, int64_t maxTs, int flags),
           (s, stream, minTs, ts, maxTs, flags))
WV_FORWARD(int, avformat_write_header, (AVFormatContext* s, AVDictionary** options), (s, options))
WV_FORWARD(AVIOContext*, avio_alloc_context,
           (unsigned char* buffer, int size, int writeFlag, void* opaque,
            int (*readPacket)(void*, uint8_t*, int), int (*writePacket)(void*, uint8_t*, int),
            int64_t (*seek)(void*, int64_t, int)),
           (buffer, size, writeFlag, opaque, readPacket, writePacket, seek))
WV_FORWARD(void, avio_context_free, (AVIOContext** s), (s))
WV_FORWARD(void, avio_flush, (AVIOContext* s), (s))

// libswresample
WV_FORWARD(int, swr_alloc_set_opts2,
           (SwrContext** s, AVChannelLayout* outLayout, enum AVSampleFormat outFormat, int outRate,
            AVChannelLayout* inLayout, enum AVSampleFormat inFormat, int inRate, int logOffset,
            void* logContext),
           (s, outLayout, outFormat, outRate, inLayout, inFormat, inRate, logOffset, logContext))
WV_FORWARD(int, swr_convert, (SwrContext* s, uint8_t** out, int outCount, const uint8_t** in, int inCount),
           (s, out, outCount, in, inCount))
WV_FORWARD(void, swr_free, (SwrContext** s), (s))
WV_FORWARD(int, swr_get_out_samples, (SwrContext* s, int inSamples), (s, inSamples))
WV_FORWARD(int, swr_init, (SwrContext* s), (s))
// clang-format on
