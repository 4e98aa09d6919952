// AudioEncoder: turns interleaved 16-bit PCM into an output file. Every
// encoder is a FileWriter, so it writes its own file, inherits the writer's
// storage-full behaviour (remainder held for one retry) and removes its file
// when it is deleted before finishEncoding() completed it.
//
// Life of an encoder: createAudioEncoder() (makes it and opens the file),
// initEncoder() once, encoding() any number of times, finishEncoding() once
// (or flushEncoding() and finishOutput(), when something else must be
// finished in between), then delete. Callers run checkStatus() before each encoding() call.
// An encoder belongs to one job on one thread.
#pragma once

#include <cstdint>

#include "base/OutputTags.h"
#include "codec/FileWriter.h"

namespace wv {

// The output formats. The values are those of the public encode_type, which
// items hold as a plain int32_t: any other value may reach the factory and
// is refused there.
enum class EncodeFormat : int32_t { Wav = 0, Mp3 = 1, Flac = 2, Opus = 3, Aac = 4, Vorbis = 5 };

// Whether `value` is one of the formats above.
bool isEncodeFormat(int32_t value);
// The file name suffix of a format: ".wav", ".mp3", ".flac", ".opus",
// ".m4a", ".ogg"; ".wav" for a value that is none.
const char* formatSuffix(EncodeFormat format);
// The bit rate (kbit/s) a format is encoded at when the client chose none:
// 320 for MP3 (and WAV and FLAC, which have none), 128 for Opus, 192 for
// AAC and Vorbis.
int32_t defaultBitRate(EncodeFormat format);
// Whether a format is encoded at a chosen bit rate: MP3, Opus, AAC, Vorbis.
bool hasBitRate(EncodeFormat format);

// Choices of the lossy encoders beyond the bit rate; the defaults give what
// an encoder made before these existed. Encoders that have no such choice
// ignore them.
struct EncodeOptions {
    int quality = 5;           // MP3: LAME's algorithm quality, 0 (best, slowest) to 9
    int vbr = 0;               // MP3: 0 constant bit rate; 1-9 LAME's VBR quality level
    // MP3, two channels: 0 dual channel, 1 joint stereo, 2 plain stereo
    // (left and right coded apart in every frame, one programme).
    int jointStereo = 0;
    // Threads the encoder may use, 1 to kMaxEncodeThreads; 1 gives the
    // bytes of an encoder without threads.
    int threads = 1;
};

// The most encoder threads a render may ask for.
constexpr int kMaxEncodeThreads = 64;

class AudioEncoder : public FileWriter {
public:
    // Result of initEncoder() when the encoder cannot start.
    static constexpr int INIT_FAILED = -12;
    // Input sample format codes of initEncoder(); the engine passes 16-bit.
    static constexpr int FORMAT_PCM_16 = 1;
    static constexpr int FORMAT_PCM_8 = 2;
    static constexpr int FORMAT_PCM_32 = 3;

    // A WaveEncoder for Wav, an Mp3Encoder for Mp3, an FfmpegEncoder for
    // Flac, Opus, Aac and Vorbis, with `path` opened as an
    // output (FileWriter::openOutput: an existing file is only replaced by a
    // finished one). Null for any other value (logged "Unsupported type %d")
    // or when the file cannot be created. `outputFlags`: OutputFile's
    // placement flags. The caller owns the result.
    static AudioEncoder* createAudioEncoder(EncodeFormat format, const char* path,
                                            int outputFlags = 0);

    ~AudioEncoder() override = default;

    // Choices for the next initEncoder(); values out of range are clamped.
    virtual void setOptions(const EncodeOptions& options) { (void)options; }

    // Tags, chapters and cover for the next initEncoder(), where the format
    // holds them (MP3: an ID3v2.4 tag; FLAC, Ogg: Vorbis comments; M4A: MP4
    // tags and chapters); WAV ignores them. None set: the file as before.
    virtual void setTags(const OutputTags& tags) { (void)tags; }

    // Prepares the encoder and writes the file's leading bytes (WAV header,
    // MP3 tag). `sampleRate` in Hz; `bitrate` in kbit/s, used by the lossy
    // formats (MP3, Opus, AAC, Vorbis);
    // `format` one of the FORMAT_ codes. 0 on success, INIT_FAILED otherwise.
    virtual int initEncoder(uint32_t sampleRate, uint32_t channels, uint32_t bitrate,
                            int format) = 0;
    // Encodes `bytes` bytes of interleaved input and writes the result.
    // Returns a FileWriter status (WRITE_OK, WRITE_STORAGE_FULL, WRITE_ERROR).
    virtual int encoding(const int16_t* pcm, int bytes) = 0;
    // The final writes: a held remainder's retry, the last encoded frames,
    // the final header. The file stays open. 0 when all of them reached the
    // file; otherwise the FileWriter status of the write that failed (a
    // remainder the storage still cannot take is WRITE_STORAGE_FULL).
    virtual int flushEncoding() = 0;
    // flushEncoding(), then finishOutput(): 0 when the file is complete and
    // in place (kept); otherwise the failed status, and the file is removed
    // (the target left as it was) when the encoder is deleted.
    int finishEncoding();

    // The sample rate (Hz) and channel count the file holds, once
    // initEncoder() succeeded: the input's, unless the encoder converts
    // (LAME picks a lower rate for low bit rates).
    virtual uint32_t outputSampleRate() const { return mInputRate; }
    virtual uint32_t outputChannels() const { return mInputChannels; }
    // The bit rate (kbit/s) the file is encoded at once initEncoder()
    // succeeded, as the encoder took it (LAME rounds a constant rate to one
    // MP3 frames can hold); 0 when it has no fixed one (PCM, FLAC, VBR).
    virtual uint32_t outputBitRate() const { return 0; }

protected:
    AudioEncoder() : FileWriter(nullptr) {}
    // The input's format, kept by initEncoder().
    uint32_t mInputRate = 0;
    uint32_t mInputChannels = 0;
};

}  // namespace wv
