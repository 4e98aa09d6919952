#include "Encoding.h"

#include <sys/stat.h>

#include <cctype>
#include <vector>

#include "OptionChecks.h"

namespace wvcli {
namespace {

struct Known {
    const char* name;  // for --format and as the extension
    encode_type type;
    const char* shown;
    const char* suffix;
};

const Known kKnown[] = {{"wav", ENCODE_WAV, "WAV", ".wav"},     {"mp3", ENCODE_MP3, "MP3", ".mp3"},
                        {"flac", ENCODE_FLAC, "FLAC", ".flac"}, {"opus", ENCODE_OPUS, "Opus", ".opus"},
                        {"m4a", ENCODE_AAC, "AAC", ".m4a"},     {"ogg", ENCODE_VORBIS, "Vorbis", ".ogg"}};

const Known& known(encode_type type) {
    for (const Known& k : kKnown) {
        if (k.type == type) return k;
    }
    return kKnown[0];
}

}  // namespace

void addEncodingOptions(CLI::App* command, EncodingChoice& choice) {
    command
        ->add_option("--format", choice.format,
                     "wav, mp3, flac, opus, m4a (AAC) or ogg (Vorbis) (default: from the "
                     "extension of OUT)")
        ->check(oneOf({"wav", "mp3", "flac", "opus", "m4a", "ogg"}));
    choice.bitrateOption =
        command
            ->add_option("--bitrate", choice.bitrate,
                         "Bit rate in kbit/s of MP3 (default 320), Opus (128), AAC (192) and Vorbis (192)")
            ->check(wholeNumberIn(8, 512));
    choice.qualityOption =
        command->add_option("--quality", choice.quality, "MP3 encoder quality, 0 (best, slowest) to 9 (default 5)")
            ->check(wholeNumberIn(0, 9));
    choice.vbrOption =
        command->add_option("--vbr", choice.vbr, "MP3 variable bit rate at level 1 (best) to 9, instead of --bitrate")
            ->check(wholeNumberIn(1, 9))
            ->type_name("N");
    // Two flags rather than one negatable one, whose help would show the
    // default as "{false}".
    CLI::Option* joint = command->add_flag_callback(
        "--joint", [&choice] { choice.joint = true; }, "MP3 stereo as joint stereo (the default)");
    CLI::Option* plain = command->add_flag_callback(
        "--no-joint", [&choice] { choice.joint = false; },
        "MP3 stereo as plain stereo: left and right coded apart, in every frame");
    joint->excludes(plain);
}

std::string unusedOptionsNote(const EncodingChoice& choice) {
    const bool mp3 = choice.type == ENCODE_MP3;
    const bool rated = mp3 || choice.type == ENCODE_OPUS || choice.type == ENCODE_AAC || choice.type == ENCODE_VORBIS;
    std::vector<std::string> unused;
    if (!rated && choice.bitrateOption != nullptr && choice.bitrateOption->count() > 0) unused.push_back("--bitrate");
    if (!mp3 && choice.vbrOption != nullptr && choice.vbrOption->count() > 0) unused.push_back("--vbr");
    if (!mp3 && choice.qualityOption != nullptr && choice.qualityOption->count() > 0) unused.push_back("--quality");
    if (unused.empty()) return std::string();
    std::string names;
    for (size_t i = 0; i < unused.size(); ++i) {
        names += (i == 0 ? "" : i + 1 == unused.size() ? " and " : ", ") + unused[i];
    }
    return "note: " + names + (unused.size() == 1 ? " does" : " do") + " not apply to " + encodingName(choice.type) +
           " output; ignored";
}

void settleEncoding(EncodingChoice& choice, const std::string& output) {
    std::string chosen = choice.format;
    if (chosen.empty()) {
        const size_t dot = output.find_last_of('.');
        const size_t slash = output.find_last_of('/');
        if (dot != std::string::npos && (slash == std::string::npos || dot > slash)) chosen = output.substr(dot + 1);
    }
    for (char& c : chosen) c = char(std::tolower(static_cast<unsigned char>(c)));
    for (const Known& k : kKnown) {
        if (chosen != k.name) continue;
        choice.type = k.type;
        // The encoders would clamp these silently.
        if (k.type == ENCODE_MP3 && choice.bitrate > 320) {
            throw CLI::ValidationError("--bitrate",
                                       std::to_string(choice.bitrate) + " is out of range for MP3: use 8 to 320");
        }
        if (k.type == ENCODE_OPUS && choice.bitrate > 510) {
            throw CLI::ValidationError("--bitrate",
                                       std::to_string(choice.bitrate) + " is out of range for Opus: use 8 to 510");
        }
        return;
    }
    // A folder has no format to tell: say what it is.
    struct stat st;
    const bool exists = ::stat(output.c_str(), &st) == 0;
    if ((!output.empty() && output.back() == '/') || (exists && S_ISDIR(st.st_mode))) {
        throw CLI::ValidationError("--output", "'" + output + (exists ? "' is a folder" : "' names a folder") +
                                                   ": name a file to write");
    }
    throw CLI::ValidationError("--format", "cannot tell the format of '" + output +
                                               "': name it .wav, .mp3, .flac, .opus, .m4a or .ogg, or give --format");
}

const char* encodingName(encode_type type) { return known(type).shown; }

std::string encodingSummary(Wavoryx& engine, int id, encode_type type) {
    std::string summary = encodingName(type);
    const int kbps = engine.getOutputBitRate(id);
    if (kbps > 0) {
        summary += ", " + std::to_string(kbps) + " kbit/s";
    } else if (type == ENCODE_MP3) {
        summary += ", VBR";
    } else if (type == ENCODE_VORBIS) {
        // libvorbis takes no bit rate at this sample rate or this low.
        summary += ", quality mode (no bit rate possible)";
    }
    return summary;
}

const char* encodingSuffix(encode_type type) { return known(type).suffix; }

void applyEncodingOptions(Wavoryx& engine, int id, const EncodingChoice& choice) {
    // Plain stereo rather than the engine's default dual channel, which some
    // decoders take for two mono programmes.
    engine.setEncodeOptions(id, choice.quality, choice.vbr, choice.joint ? 1 : 2);
}

}  // namespace wvcli
