// wavoryx info FILE... [--json] [--exact] [--loudness]: tells each file's
// container, codec, sample rate, channels, frames and duration as the file
// states them (its load is cancelled once decoding has begun), or with
// --exact as counted by decoding it whole; --loudness decodes it whole too
// and adds its integrated loudness, loudness range and true peak. Whole
// decodes are scans: they keep no audio and need no working space.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include <wavoryx/Wavoryx.h>

#include "Commands.h"
#include "FileKind.h"
#include "Interrupt.h"
#include "Jobs.h"
#include "Loudness.h"
#include "Progress.h"
#include "Session.h"
#include "StandardInput.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
    bool exact = false;
    bool loudness = false;
};

// The length of the valid UTF-8 sequence at text[i], or 0.
size_t utf8Length(const std::string& text, size_t i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    size_t length = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
    if (length == 0 || i + length > text.size()) return 0;
    uint32_t code = length == 1 ? c : c & (0x7F >> length);
    for (size_t k = 1; k < length; ++k) {
        const unsigned char next = static_cast<unsigned char>(text[i + k]);
        if ((next & 0xC0) != 0x80) return 0;
        code = (code << 6) | (next & 0x3F);
    }
    // Overlong forms, surrogates and code points past Unicode are invalid.
    static const uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < kLeast[length] || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF) return 0;
    return length;
}

// A JSON string of `text`. File names need not be UTF-8: a byte that is not
// part of a valid sequence is written as the escape "\udcXX" (what Python's
// "surrogateescape" reads back to the same byte), so the output stays JSON.
std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (size_t i = 0; i < text.size();) {
        const size_t valid = utf8Length(text, i);
        if (valid == 0) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\udc%02x", static_cast<unsigned char>(text[i]));
            out += escaped;
            ++i;
            continue;
        }
        if (valid > 1) {
            out.append(text, i, valid);
            i += valid;
            continue;
        }
        const unsigned char c = static_cast<unsigned char>(text[i++]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += char(c);
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else {
            out += char(c);
        }
    }
    return out + "\"";
}

// One file as shown: the frames counted by decoding it whole (--exact,
// --loudness), or else the length its container states, whether or not its
// load happened to end before it was cancelled, so that the answer is the
// same every time.
struct ShownChapter {
    uint32_t startFrame = 0;
    uint32_t endFrame = 0;
    std::string title;
};

struct ShownFile {
    const LoadedSource* source = nullptr;
    bool counted = false;  // decoded whole: its frames are counted
    WvSourceInfo facts{};
    bool hasFacts = false;
    const LoudnessFigures* loudness = nullptr;              // with --loudness, once measured
    std::vector<std::pair<std::string, std::string>> tags;  // those the file states, by name
    std::vector<ShownChapter> chapters;                     // those the file states, in order
    bool variableRate = false;                              // an MP3 stating a variable bit rate
    bool known() const { return counted || source->lengthStated; }
    bool exact() const { return counted || source->expectedExact; }
    uint32_t frames() const { return counted ? source->frames : source->expected; }
    // From the frames, never the other way round: the last partial
    // millisecond is dropped only here, for showing.
    uint64_t durationMs() const {
        return source->sampleRate > 0 ? uint64_t(frames()) * 1000 / uint32_t(source->sampleRate) : 0;
    }
};

std::vector<ShownChapter> chaptersOf(Wavoryx& engine, int id) {
    std::vector<ShownChapter> chapters;
    const int32_t count = engine.getSourceChapterCount(id);
    for (int32_t i = 0; i < count; ++i) {
        ShownChapter chapter;
        std::vector<char> title(256);
        int32_t length = engine.getSourceChapter(id, unsigned(i), &chapter.startFrame, &chapter.endFrame,
                                                 title.data(), unsigned(title.size()));
        if (length >= int32_t(title.size())) {
            title.resize(size_t(length) + 1);
            length = engine.getSourceChapter(id, unsigned(i), &chapter.startFrame, &chapter.endFrame,
                                             title.data(), unsigned(title.size()));
        }
        if (length < 0) break;
        chapter.title = title.data();
        chapters.push_back(chapter);
    }
    return chapters;
}

uint64_t msOfFrame(uint32_t frame, int rate) { return rate > 0 ? uint64_t(frame) * 1000 / uint32_t(rate) : 0; }

std::string channelsText(const ShownFile& file) {
    const int loaded = file.source->channels;
    const int inFile = file.hasFacts && file.facts.channels > 0 ? file.facts.channels : loaded;
    if (inFile > 2) {
        std::string text = std::to_string(inFile) + " channels";
        if (file.facts.channelLayout[0] != '\0') text += std::string(" (") + file.facts.channelLayout + ")";
        return text + ", loaded as " + (loaded == 1 ? "mono" : "stereo");
    }
    return inFile == 1 ? "mono" : inFile == 2 ? "stereo" : "? channels";
}

std::vector<std::pair<std::string, std::string>> tagsOf(Wavoryx& engine, int id) {
    std::vector<std::pair<std::string, std::string>> tags;
    for (const char* name : {"title", "artist", "album", "date", "track", "comment"}) {
        std::vector<char> value(256);
        int32_t length = engine.getSourceTag(id, name, value.data(), unsigned(value.size()));
        if (length >= int32_t(value.size())) {
            value.resize(size_t(length) + 1);
            length = engine.getSourceTag(id, name, value.data(), unsigned(value.size()));
        }
        if (length > 0) tags.emplace_back(name, value.data());
    }
    return tags;
}

// A decode that ended well short of the length the file states (the
// margin as edit's: a second, or 2 % of a long file): said on standard
// error, since every other figure shown is then the decoded one.
bool endsEarly(const ShownFile& file, std::string& said) {
    const LoadedSource& s = *file.source;
    if (!file.counted || !file.hasFacts || file.facts.durationUs <= 0 || s.sampleRate <= 0) return false;
    const uint64_t stated = uint64_t(file.facts.durationUs) * uint32_t(s.sampleRate) / 1000000;
    if (stated <= uint64_t(s.frames) + std::max<uint64_t>(uint32_t(s.sampleRate), stated / 50)) return false;
    char text[96];
    std::snprintf(text, sizeof text, "decoded %.1f s of %.1f s: the file ends early", double(s.frames) / s.sampleRate,
                  double(file.facts.durationUs) / 1e6);
    said = text;
    return true;
}

// A tag as one line of text: control characters become spaces.
std::string oneLine(std::string text) {
    for (char& c : text) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    }
    return text;
}

// What the kind alone does not tell: the codec inside a general container,
// a sample width other than WAV's 16 bits, a lossy codec's bit rate.
std::string detailsText(const std::string& kind, const ShownFile& file) {
    if (!file.hasFacts) return "";
    const WvSourceInfo& f = file.facts;
    std::string text;
    const bool general = kind == "MP4" || kind == "3GP" || kind == "Ogg" || kind == "unknown";
    if (general && f.codec[0] != '\0') text += std::string(", ") + f.codec;
    if (f.bitsPerSample > 0 && !(kind == "WAV" && f.bitsPerSample == 16)) {
        // The codec's name tells float samples from integers of the same width.
        const bool floating = std::strncmp(f.codec, "pcm_f", 5) == 0;
        text += ", " + std::to_string(f.bitsPerSample) + (floating ? "-bit float" : "-bit");
    }
    const bool lossy = f.bitsPerSample == 0;
    if (lossy && f.bitRate > 0) text += ", " + std::to_string((f.bitRate + 500) / 1000) + " kbit/s";
    if (file.variableRate) text += lossy && f.bitRate > 0 ? " VBR" : ", VBR";
    return text;
}

void printText(const ShownFile& file) {
    const LoadedSource& source = *file.source;
    const std::string kind = fileKind(inputFile(source.path));
    std::string length = "unknown length";
    if (file.known()) {
        length = std::string(file.exact() ? "" : "about ") + std::to_string(file.frames()) + " frames, " +
                 formatTimeMs(file.durationMs());
    }
    std::printf("%s: %s, %d Hz, %s, %s%s\n", source.path.c_str(), kind.c_str(), source.sampleRate,
                channelsText(file).c_str(), length.c_str(), detailsText(kind, file).c_str());
    if (file.loudness != nullptr) {
        const LoudnessFigures& l = *file.loudness;
        std::printf("  loudness %s LUFS, range %s LU, true peak %s dBTP\n", tenthsText(l.integrated).c_str(),
                    tenthsText(l.range).c_str(), tenthsText(l.truePeak).c_str());
    }
    for (const auto& tag : file.tags) std::printf("  %s: %s\n", tag.first.c_str(), oneLine(tag.second).c_str());
    for (const ShownChapter& chapter : file.chapters) {
        std::printf("  chapter %s-%s %s\n", formatTimeMs(msOfFrame(chapter.startFrame, source.sampleRate)).c_str(),
                    formatTimeMs(msOfFrame(chapter.endFrame, source.sampleRate)).c_str(),
                    oneLine(chapter.title).c_str());
    }
}

void printJson(const std::vector<ShownFile>& files) {
    std::printf("[");
    for (size_t i = 0; i < files.size(); ++i) {
        const ShownFile& file = files[i];
        const LoadedSource& s = *file.source;
        const WvSourceInfo& f = file.facts;
        std::printf(
            "%s\n  {\"file\": %s, \"format\": %s, \"sampleRate\": %d, \"channels\": %d, "
            "\"frames\": %s, \"durationMs\": %s, \"exact\": %s",
            i == 0 ? "" : ",", jsonString(s.path).c_str(), jsonString(fileKind(inputFile(s.path))).c_str(),
            s.sampleRate, s.channels, file.known() ? std::to_string(file.frames()).c_str() : "null",
            file.known() ? std::to_string(file.durationMs()).c_str() : "null", file.exact() ? "true" : "false");
        if (file.hasFacts) {
            std::printf(
                ", \"container\": %s, \"codec\": %s, \"sourceChannels\": %d, \"channelLayout\": %s, "
                "\"bitsPerSample\": %d, \"bitRate\": %d",
                jsonString(f.container).c_str(), jsonString(f.codec).c_str(), f.channels,
                jsonString(f.channelLayout).c_str(), f.bitsPerSample, f.bitRate);
            std::printf(", \"tags\": {");
            for (size_t t = 0; t < file.tags.size(); ++t) {
                std::printf("%s%s: %s", t == 0 ? "" : ", ", jsonString(file.tags[t].first).c_str(),
                            jsonString(file.tags[t].second).c_str());
            }
            std::printf("}");
            // Only where the file has chapters: other files' lines stay as they were.
            if (!file.chapters.empty()) {
                std::printf(", \"chapters\": [");
                for (size_t c = 0; c < file.chapters.size(); ++c) {
                    const ShownChapter& chapter = file.chapters[c];
                    std::printf("%s{\"startFrame\": %u, \"endFrame\": %u, \"startMs\": %llu, \"endMs\": %llu, "
                                "\"title\": %s}",
                                c == 0 ? "" : ", ", chapter.startFrame, chapter.endFrame,
                                static_cast<unsigned long long>(msOfFrame(chapter.startFrame, s.sampleRate)),
                                static_cast<unsigned long long>(msOfFrame(chapter.endFrame, s.sampleRate)),
                                jsonString(chapter.title).c_str());
                }
                std::printf("]");
            }
            std::string said;
            std::printf(", \"endsEarly\": %s, \"variableBitRate\": %s", endsEarly(file, said) ? "true" : "false",
                        file.variableRate ? "true" : "false");
        }
        if (file.loudness != nullptr) {
            // Minus infinity (silence) has no JSON number: null.
            std::printf(", \"integratedLufs\": %s, \"loudnessRangeLu\": %s, \"truePeakDbtp\": %s",
                        tenthsJson(file.loudness->integrated).c_str(), tenthsJson(file.loudness->range).c_str(),
                        tenthsJson(file.loudness->truePeak).c_str());
        }
        std::printf("}");
    }
    std::printf("%s]\n", files.empty() ? "" : "\n");
}

int runInfo(const InfoOptions& options, const GlobalOptions& global) {
    Session session(global);
    if (!session.open(namesStandardInput(options.files))) return interruptSignal() != 0 ? interruptExitStatus() : 1;
    SourceLoads loads(session);
    if (options.exact || options.loudness) loads.scanInstead({}, options.loudness);
    loads.start(options.files);
    int status = 0;
    std::vector<LoudnessFigures> loudness;
    if (options.loudness) {
        status = measureLoudness(session, loads, loudness);
    } else if (options.exact) {
        Progress progress("decoding", global.quiet);
        loads.setProgress(&progress, true);
        status = loads.waitUntil([&] { return loads.allEnded(); }, false);
        loads.setProgress(nullptr, false);
        progress.finish(status == 0);
    } else {
        // What the file states is known once decoding has begun; nothing
        // more is decoded.
        status = loads.waitUntil([&] { return loads.allBegun(); }, false);
    }
    if (status > 1) return status;
    // One entry per file named, in order, even when named twice.
    std::vector<ShownFile> shown;
    for (const std::string& name : options.files) {
        const LoadedSource* source = loads.find(name);
        if (source == nullptr || !source->begun || (source->ended && !source->ok)) continue;
        ShownFile file;
        file.source = source;
        file.counted = (options.exact || options.loudness) && source->ok;
        file.hasFacts = session.engine().getSourceInfo(source->id, &file.facts) == 0;
        if (file.hasFacts) {
            file.tags = tagsOf(session.engine(), source->id);
            file.chapters = chaptersOf(session.engine(), source->id);
        }
        file.variableRate = fileKind(inputFile(name)) == "MP3" && statesVariableRate(inputFile(name));
        std::string said;
        if (endsEarly(file, said)) reportError(name, said);
        if (options.loudness) {
            const size_t index = size_t(source - loads.sources().data());
            if (index >= loudness.size() || !loudness[index].measured) continue;
            file.loudness = &loudness[index];
        }
        shown.push_back(file);
    }
    loads.cancelRunning();
    if (options.json) {
        printJson(shown);
    } else {
        for (const ShownFile& file : shown) printText(file);
    }
    return status;
}

}  // namespace

void addInfoCommand(CLI::App& app, CommandLine& line) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* info = app.add_subcommand("info", "Show the format, rate, channels, frames and duration of audio files");
    info->add_option("FILE", options->files, "Audio files (any format the engine loads); - is standard input")
        ->required();
    info->add_flag("--json", options->json, "Print a JSON array, one object per file loaded");
    info->add_flag("--exact", options->exact,
                   "Decode each file whole and count its frames (and tell a file that ends early)");
    info->add_flag("--loudness", options->loudness,
                   "Decode each file whole and measure its integrated loudness (LUFS), loudness range (LU) and "
                   "true peak (dBTP), after ITU-R BS.1770 / EBU R128");
    info->footer(
        "Without --exact nothing is decoded: frames and duration are what the file states,\n"
        "exact where its container counts them (WAV, FLAC, an MP3 with an info frame), else\n"
        "\"about\", or \"unknown length\" (null in JSON). With --exact each file is decoded and its\n"
        "frames counted.\n"
        "With --loudness each file is decoded whole and measured; silence shows -inf (null in JSON).\n"
        "Examples:\n"
        "  wavoryx info song.mp3 take.wav\n"
        "  wavoryx info --json song.mp3 | python3 -m json.tool\n"
        "  wavoryx info --loudness song.mp3");
    info->callback([options, &line] { line.run = [options, &line] { return runInfo(*options, line.global); }; });
}

}  // namespace wvcli
