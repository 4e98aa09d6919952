// Mp3Encoder: an MP3 file made with LAME (libmp3lame).
//
// LAME is set up with the input rate and channel count, the constant bit
// rate in kbit/s, mode 2 (dual channel, not joint stereo) for two channels
// or mode 3 (mono) for one, and quality 5, unless setOptions() chose joint
// stereo (mode 1) or plain stereo (mode 0), another quality or a VBR level
// (the bit rate is then LAME's choice for that level). The file starts
// with the ID3v2
// tag LAME produces, if any, followed by LAME's info frame (written in its
// final form by flushEncoding(), which also flushes LAME's last frames):
// decoders that read it (ffmpeg, mpg123, this engine's loadFile) drop the
// encoder's delay and padding and decode exactly the frames encoded.
//
// Encoded data goes through one owned output buffer of OUTPUT_BYTES. Each
// encoding() call passes LAME at most MAX_FRAMES_PER_CALL frames so that
// LAME's worst-case output (1.25 bytes per frame plus 7200) always fits;
// larger inputs are encoded in several calls. Input is interleaved 16-bit
// PCM; one or two channels.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "codec/AudioEncoder.h"

struct lame_global_struct;

namespace wv {

class Mp3Segments;

class Mp3Encoder : public AudioEncoder {
public:
    static constexpr uint32_t OUTPUT_BYTES = 147456;
    static constexpr int MAX_FRAMES_PER_CALL = 65536;
    static constexpr int MODE_STEREO = 0;
    static constexpr int MODE_JOINT_STEREO = 1;
    static constexpr int MODE_DUAL_CHANNEL = 2;
    static constexpr int MODE_MONO = 3;

    // Allocates the output buffer; no file is opened (see createAudioEncoder).
    Mp3Encoder();
    // Closes LAME; the FileWriter part removes an unfinished file.
    ~Mp3Encoder() override;

    void setOptions(const EncodeOptions& options) override;
    // An ID3v2.4 tag (see Id3Tag.h) ahead of LAME's info frame; its
    // chapters' ends are written again once the length is known.
    void setTags(const OutputTags& tags) override { mTags = tags; }
    // INIT_FAILED for a channel count other than 1 or 2, an unknown format
    // code, parameters LAME rejects, or a failed tag write.
    int initEncoder(uint32_t sampleRate, uint32_t channels, uint32_t bitrate, int format) override;
    // WRITE_ERROR when LAME fails; otherwise the status of writing what it
    // produced (no output gives WRITE_OK).
    int encoding(const int16_t* pcm, int bytes) override;
    // Retries a held remainder, flushes LAME and writes the last frames: 0,
    // or the status of the write that failed (WRITE_ERROR when LAME fails).
    int flushEncoding() override;

    // LAME's output rate, lower than the input's at low bit rates.
    uint32_t outputSampleRate() const override;
    // The constant rate of the audio frames; 0 for VBR.
    uint32_t outputBitRate() const override;

    // The LAME mode chosen by initEncoder(), or -1 before.
    int mode() const { return mMode; }
    // Bytes of the last LAME result (tag, encoded block or flush).
    int lastBytes() const { return mLastBytes; }
    // Whether encoding() shares the work among threads (see Mp3Segments):
    // options asked for more than one, the output can seek (for the info
    // frame), and LAME keeps the input's rate. False again after a flush
    // of no more than one segment, which one encoder did alone.
    bool threaded() const { return mThreaded; }
    // Segments a threaded encode had to encode again without a reservoir
    // because no join fitted (see Mp3Segments).
    size_t segmentsEncodedAgain() const;

private:
    // The largest MPEG audio frame (320 kbit/s at 32 kHz, padded).
    static constexpr size_t kMaxInfoFrameBytes = 2881;

    // Puts LAME's info frame (encoder delay, padding, frame count) in the
    // room LAME left for it at mInfoFrameOffset: WRITE_OK or the write's
    // status.
    int writeInfoFrame();
    // A started LAME for the settings in the members, at an average rate
    // bounded to the asked one when `averageRate`; null when LAME refuses.
    lame_global_struct* startLame(bool averageRate, bool infoFrame, bool reservoir = true) const;
    // Whether LAME's info frame fits in a frame of `lame`'s bit rate.
    bool infoFrameFits(lame_global_struct* lame) const;
    // encoding() on this thread's LAME.
    int encodeHere(const int16_t* pcm, int bytes);
    // encoding() of a threaded encoder: input is held until it makes more
    // than one segment, then handed to the segments.
    int encodeShared(const int16_t* pcm, int bytes);
    int flushShared();

    // Writes the tag again with the chapters' ends at the length encoded.
    int rewriteTag();

    OutputTags mTags;
    size_t mTagBytes = 0;         // of our ID3v2.4 tag at the file's start
    uint64_t mEncodedFrames = 0;  // input frames passed to LAME
    lame_global_struct* mLame = nullptr;
    bool mAverageRate = false;  // the start LAME got (see startLame)
    bool mThreaded = false;
    std::vector<int16_t> mHeldInput;  // a threaded encoder's input before it has two segments
    std::unique_ptr<Mp3Segments> mSegments;
    int64_t mInfoFrameOffset = 0;  // just after the ID3v2 tag
    uint32_t mSampleRate = 0;
    uint32_t mChannels = 0;
    uint32_t mBitrate = 0;     // kbit/s
    uint32_t mFrameBytes = 0;  // bytes of one input frame, all channels
    int mLastBytes = 0;
    int mMode = -1;
    EncodeOptions mOptions;
    unsigned char* mOutput = nullptr;  // OUTPUT_BYTES, owned
};

}  // namespace wv
