// Test audio made at test time, and a look at encoded files through the
// `ffmpeg` and `ffprobe` commands, so that tests check what a real decoder
// makes of the engine's output.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace wvtest {

// Interleaved 16-bit sine tones, one frequency per channel (Hz), at
// `amplitude` of full scale (0..1).
std::vector<int16_t> makeTones(uint32_t frames, uint32_t sampleRate, const std::vector<double>& frequencies,
                               double amplitude = 0.5);

// Power of `frequency` (Hz) in channel `channel` of interleaved `pcm`, over
// frames [first, first + count): Goertzel, normalised by count.
double tonePower(const std::vector<int16_t>& pcm, uint32_t channels, uint32_t channel, size_t first, size_t count,
                 uint32_t sampleRate, double frequency);

// Whether the ffmpeg and ffprobe commands can be run.
bool haveFfmpeg();

struct StreamInfo {
    int sampleRate = 0;
    int channels = 0;
    long bitRate = 0;  // bit/s, 0 when not reported
    std::string codec;
};

// The first audio stream of `path` as ffprobe sees it; false on failure.
bool probeAudio(const std::string& path, StreamInfo* info);

// The first audio stream's length as its container states it, in frames of
// its time base (ffprobe's duration_ts: the last Ogg granule position, an
// MP4 track's duration, at the sample rate for the engine's outputs); -1 on
// failure.
long probeStreamFrames(const std::string& path);

// Decodes `path` with ffmpeg into interleaved 16-bit samples at the file's
// own rate and channel count, using `scratchDir` for the raw file. False on
// failure.
bool decodeToPcm16(const std::string& path, const std::string& scratchDir, std::vector<int16_t>* pcm);

// What the MPEG audio frames of an MP3 file say.
struct Mp3Frames {
    int frames = 0;          // audio frames; negated when bytes that are not frames follow
    int firstOffset = -1;    // where the first frame starts (after an ID3v2 tag)
    int bitrateKbps = -1;    // of the audio frames; -1 when it differs between them
    int mode = -1;           // header channel-mode bits (0 stereo, 1 joint, 2 dual, 3 mono); -1: differs
    int sampleRate = 0;      // Hz
    bool infoFrame = false;  // the first frame is an "Info" or "Xing" frame (not counted above)
};
// Walks the frames of an MP3 file (MPEG-1, 2 and 2.5 layer III).
Mp3Frames walkMp3Frames(const std::vector<char>& file);

// Broadband noise, the same in every channel but for its sign: a signal
// whose cross-correlation has one clear peak (see bestLag).
std::vector<int16_t> makeNoise(uint32_t frames, uint32_t channels);

// Whether the mpg123 command can be run.
bool haveMpg123();
// Decodes an MP3 with mpg123 (gapless, as it does by default) into
// interleaved 16-bit samples at the file's rate and channel count.
bool decodeWithMpg123(const std::string& path, const std::string& scratchDir, std::vector<int16_t>* pcm);

// The shift, within +-maxLag frames, at which channel 0 of `decoded` best
// matches channel 0 of `original` (normalised cross-correlation over 8192
// frames in the middle of the shorter one): 0 when the audio starts where it should, a
// positive lag when `decoded` starts late.
int bestLag(const std::vector<int16_t>& original, const std::vector<int16_t>& decoded, uint32_t channels, int maxLag);

}  // namespace wvtest
