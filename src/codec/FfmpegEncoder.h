// FfmpegEncoder: FLAC, Opus, AAC and Vorbis files made with libavcodec's
// encoders and libavformat's muxers.
//
//   Flac    encoder "flac" in a native FLAC file; lossless, bit rate unused
//   Opus    "libopus" in Ogg (.opus); always 48 kHz
//   Aac     "aac" (AAC-LC) in an MP4 audio file (.m4a); needs a seekable
//           output, since the index is written after the audio
//   Vorbis  "libvorbis" in Ogg (.ogg); variable bit rate around the asked
//           one, lowered when libvorbis takes none that high for the rate
//           and channels (at 8 kHz mono it takes at most 32 kbit/s); in
//           quality mode, at the quality nearest the asked rate, where it
//           takes no bit rate at all (rates above 50 kHz, under about
//           22 kbit/s a channel): outputBitRate() is then 0
//
// The input keeps its rate where the codec takes it; otherwise (always for
// Opus) libswresample converts it to the codec's nearest rate above, or its
// highest. A converted file holds exactly round(frames * outRate / inRate)
// frames. Every file's audio starts at frame 0: the codec's leading delay is
// recorded the way each container does (Opus pre-skip, the MP4 edit list).
// Its end is exact in the container too: the last, short frame carries the
// duration that sets the final Ogg granule position or the MP4 track's
// length, and packets the codec emits past the end are left out. Decoders
// that honour it all (FLAC, Opus through ffmpeg) give back exactly the frames
// encoded; ffmpeg 5.1 cuts AAC and Vorbis only within the last packet, so up
// to one codec block (< 1024 frames) of padding may follow there.
//
// The codec gets frames of exactly its frame size, gathered in a FIFO, and a
// shorter last one. The muxer writes through a MuxerOutput, so each
// encoding() call ends in at most one write of new data and the storage-full
// protocol holds as for the other encoders. An input with no frames gives a
// file with the headers only.
//
// FLAC with more than one thread (setOptions) is coded by FlacSegments, in
// segments on worker threads, into the bytes one encoder writes.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "codec/AudioEncoder.h"

struct AVAudioFifo;
struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;
struct SwrContext;

namespace wv {

class FlacSegments;
class MuxerOutput;

class FfmpegEncoder : public AudioEncoder {
public:
    // Largest block converted at once, in input frames.
    static constexpr uint32_t MAX_FRAMES_PER_CONVERSION = 16384;

    // `format` is one of Flac, Opus, Aac, Vorbis. No file is opened (see
    // createAudioEncoder).
    explicit FfmpegEncoder(EncodeFormat format);
    // Frees every FFmpeg object; the FileWriter part removes an unfinished
    // file.
    ~FfmpegEncoder() override;

    // Tags go to the muxer's metadata; chapters to CHAPTERxx and
    // CHAPTERxxNAME comments (FLAC, Ogg) or the muxer's chapters (MP4: a
    // chapter track); a cover to the METADATA_BLOCK_PICTURE comment (FLAC,
    // Ogg).
    void setTags(const OutputTags& tags) override { mTags = tags; }
    // Only the threads count: more than one codes FLAC on that many
    // workers; the other formats have a codec of one thread.
    void setOptions(const EncodeOptions& options) override;

    // INIT_FAILED for a channel count other than 1 or 2, a format other than
    // FORMAT_PCM_16, no bit rate for a lossy format, an encoder or muxer
    // that is missing or refuses the settings, or a header that could not
    // be written. A later call starts over.
    int initEncoder(uint32_t sampleRate, uint32_t channels, uint32_t bitrate, int format) override;
    // WRITE_ERROR before a successful initEncoder(), after flushEncoding(),
    // or when the codec or the muxer fails; otherwise the status of the
    // write of what the call produced.
    int encoding(const int16_t* pcm, int bytes) override;
    // Retries a held remainder, encodes the last frames, drains the codec
    // and writes the container's trailer: 0, or the failed status.
    int flushEncoding() override;

    // The dropped bytes leave a gap in the stream: Opus and Vorbis files
    // still finish (Ogg demuxers skip the broken page); FLAC and AAC files,
    // whose headers are rewritten at the end, then fail to finish with
    // WRITE_STORAGE_FULL rather than be kept with wrong sizes.
    void dropHeld() override;

    uint32_t outputSampleRate() const override;
    uint32_t outputChannels() const override { return mInputChannels; }
    uint32_t outputBitRate() const override { return static_cast<uint32_t>(mBitRate / 1000); }

    // The bit rate (bit/s) the codec was opened with; 0 for FLAC, a Vorbis
    // file in quality mode, or before.
    int64_t bitRate() const { return mBitRate; }
    // Frames the codec takes at once (FLAC's block size), once initEncoder()
    // succeeded.
    int codecFrameSize() const { return mFrameSize; }
    // Whether encoding() shares the work among threads (FLAC only).
    bool threaded() const { return mSegments != nullptr; }

private:
    static constexpr int kNoQuality = -100;
    // The libvorbis quality (-1 to 10) nearest a bit rate a channel (bit/s).
    static int vorbisQualityFor(int64_t bitsPerChannel);
    // Opens the codec at mOutputRate with `bitRate` bit/s, or at `quality`
    // in the codec's own scale when one is given; false when it refuses
    // them.
    bool openCodec(int64_t bitRate, int quality = kNoQuality);
    // A codec opened as openCodec() opens mCodec, or null; for any thread.
    AVCodecContext* newCodec(int64_t bitRate, int quality, bool globalHeader) const;
    bool openConverter();
    bool openMuxer();
    // mTags into the muxer, before its header is written.
    bool addTags();
    // MP4's chapters, ends at the length encoded, for the trailer.
    bool endChapters();
    // Frees everything initEncoder() made.
    void release();
    // Converts `frames` input frames into the FIFO; false on failure.
    bool convert(const int16_t* pcm, int frames);
    // Passes `count` frames from the FIFO to the codec and muxes what comes
    // out; false on failure.
    bool sendFrame(int count);
    // Muxes every packet the codec has ready (all of them after the end).
    bool writePackets();
    // Ends the stream at exactly the frames the file must hold.
    bool encodeRest();
    // FLAC on worker threads: passes `frames` input frames to mSegments
    // and muxes the frames it has ready; at the end, the rest and the
    // stream's information.
    bool pushSegments(const int16_t* pcm, int frames);
    bool finishSegments();
    bool muxFrame(const uint8_t* data, size_t size, uint32_t samples);

    const EncodeFormat mFormat;
    OutputTags mTags;
    AVCodecContext* mCodec = nullptr;
    AVFormatContext* mMuxer = nullptr;
    AVStream* mStream = nullptr;
    SwrContext* mConverter = nullptr;
    AVAudioFifo* mFifo = nullptr;
    AVFrame* mFrame = nullptr;
    AVPacket* mPacket = nullptr;
    std::unique_ptr<MuxerOutput> mOutput;
    std::unique_ptr<FlacSegments> mSegments;
    int mThreads = 1;
    std::vector<uint8_t> mConverted[2];  // one plane each, or one interleaved
    uint32_t mOutputRate = 0;
    int64_t mBitRate = 0;
    int mFrameSize = 0;         // frames the codec takes at once
    uint64_t mInputFrames = 0;  // frames passed to encoding()
    uint64_t mSentFrames = 0;   // frames passed to the codec
    int64_t mEndPts = -1;       // the input's end in the codec's time base, once known
    bool mTrailerWritten = false;
    bool mEndFailed = false;  // the end of the stream could not be written
};

}  // namespace wv
