// The output formats of `edit` and `record` and the options that choose
// them: --format, --bitrate and the MP3 choices --quality, --vbr and
// --joint/--no-joint.
#ifndef WAVORYX_CLI_ENCODING_H
#define WAVORYX_CLI_ENCODING_H

#include <CLI/CLI.hpp>

#include <string>

#include <wavoryx/Wavoryx.h>

namespace wvcli {

struct EncodingChoice {
    std::string format;  // empty: from the output's extension
    int bitrate = 0;     // kbit/s; 0: the format's default
    int quality = 5;     // MP3: 0 (best) to 9
    int vbr = 0;         // MP3: 0 constant bit rate, 1-9 VBR level
    bool joint = true;   // MP3: joint stereo, as most MP3 encoders do
    encode_type type = ENCODE_WAV;
    // The options as defined, to tell whether they were given.
    const CLI::Option* bitrateOption = nullptr;
    const CLI::Option* qualityOption = nullptr;
    const CLI::Option* vbrOption = nullptr;
};

// Adds the options to `command`; `what` is "render" or "recording" for the
// help texts.
void addEncodingOptions(CLI::App* command, EncodingChoice& choice);

// Sets choice.type from --format or the extension of `output`; a usage
// error (CLI11 ValidationError) when neither names a format.
void settleEncoding(EncodingChoice& choice, const std::string& output);

// "note: --bitrate does not apply to WAV output; ignored", naming the
// options given that the settled format has no use for; empty when none.
std::string unusedOptionsNote(const EncodingChoice& choice);

// "WAV", "MP3", "FLAC", "Opus", "AAC", "Vorbis".
const char* encodingName(encode_type type);
// The encoding as the file holds it, for the "wrote" line: "WAV",
// "MP3, 96 kbit/s" (the rate the encoder used), "MP3, VBR".
std::string encodingSummary(Wavoryx& engine, int id, encode_type type);
// ".wav", ".mp3", ".flac", ".opus", ".m4a", ".ogg".
const char* encodingSuffix(encode_type type);

// The MP3 choices for `id` (a list, or 0 for the recordings to come).
void applyEncodingOptions(Wavoryx& engine, int id, const EncodingChoice& choice);

}  // namespace wvcli

#endif
