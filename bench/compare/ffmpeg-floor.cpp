// The least a process can do to decode a file through FFmpeg's shared
// libraries the way the engine's loader does: detect the container, read
// the stream information, decode the first audio track and convert every
// frame to interleaved 16-bit samples, which are then dropped (nothing is
// written). Timed by bench/compare/run next to the engine's load job, its
// wall time and peak resident size are the floor the libraries themselves
// set: on Debian 12 merely opening libavformat, libavcodec, libswresample
// and libavutil maps about 140 libraries and makes about 26 MB resident.
//
//   ffmpeg-floor FILE    exit status 0 when the track decoded to its end,
//                        1 when it could not be opened or decoded, 2 on
//                        wrong usage. Prints "<frames> <channels>" on stdout.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

#include <cinttypes>
#include <cstdio>
#include <vector>

namespace {

// Owns the FFmpeg objects of one decode; frees them in any order of failure.
struct Decode {
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    SwrContext* convert = nullptr;
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    int stream = -1;
    int channels = 0;  // delivered: the source's, at most 2
    int64_t frames = 0;
    std::vector<int16_t> out;

    ~Decode() {
        av_frame_free(&frame);
        av_packet_free(&packet);
        swr_free(&convert);
        avcodec_free_context(&codec);
        avformat_close_input(&format);
    }

    bool open(const char* path) {
        av_log_set_level(AV_LOG_QUIET);
        if (packet == nullptr || frame == nullptr) return false;
        if (avformat_open_input(&format, path, nullptr, nullptr) < 0) return false;
        avformat_find_stream_info(format, nullptr);
        const AVCodec* decoder = nullptr;
        stream = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, &decoder, 0);
        if (stream < 0 || decoder == nullptr) return false;
        codec = avcodec_alloc_context3(decoder);
        if (codec == nullptr || avcodec_parameters_to_context(codec, format->streams[stream]->codecpar) < 0 ||
            avcodec_open2(codec, decoder, nullptr) < 0) {
            return false;
        }
        channels = codec->ch_layout.nb_channels > 2 ? 2 : codec->ch_layout.nb_channels;
        AVChannelLayout layout;
        av_channel_layout_default(&layout, channels);
        const bool ok = swr_alloc_set_opts2(&convert, &layout, AV_SAMPLE_FMT_S16, codec->sample_rate, &codec->ch_layout,
                                            codec->sample_fmt, codec->sample_rate, 0, nullptr) == 0 &&
                        swr_init(convert) == 0;
        av_channel_layout_uninit(&layout);
        return ok;
    }

    // Converts and drops every frame the decoder has ready.
    bool drain() {
        for (;;) {
            const int got = avcodec_receive_frame(codec, frame);
            if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) return true;
            if (got < 0) return false;
            out.resize(static_cast<size_t>(frame->nb_samples) * channels + 64);
            auto* target = reinterpret_cast<uint8_t*>(out.data());
            const int n = swr_convert(convert, &target, frame->nb_samples,
                                      const_cast<const uint8_t**>(frame->extended_data), frame->nb_samples);
            av_frame_unref(frame);
            if (n < 0) return false;
            frames += n;
        }
    }

    bool run() {
        for (;;) {
            const int read = av_read_frame(format, packet);
            if (read < 0) break;  // end of file or damage: what came before counts
            if (packet->stream_index == stream && avcodec_send_packet(codec, packet) < 0) {
                av_packet_unref(packet);
                return false;
            }
            av_packet_unref(packet);
            if (!drain()) return false;
        }
        avcodec_send_packet(codec, nullptr);
        return drain();
    }
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: ffmpeg-floor FILE\n");
        return 2;
    }
    Decode decode;
    if (!decode.open(argv[1]) || !decode.run()) {
        std::fprintf(stderr, "ffmpeg-floor: cannot decode %s\n", argv[1]);
        return 1;
    }
    std::printf("%" PRId64 " %d\n", decode.frames, decode.channels);
    return 0;
}
