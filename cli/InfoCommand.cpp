// wavoryx info FILE... [--json]: loads each file and tells its container,
// sample rate, channels, frames and duration.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "Commands.h"
#include "FileKind.h"
#include "Jobs.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

struct InfoOptions {
    std::vector<std::string> files;
    bool json = false;
};

std::string jsonString(const std::string& text) {
    std::string out = "\"";
    for (unsigned char c : text) {
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

void printText(const LoadedSource& source) {
    std::printf("%s: %s, %d Hz, %s, %u frames, %s\n", source.path.c_str(), fileKind(source.path).c_str(),
                source.sampleRate,
                source.channels == 1   ? "mono"
                : source.channels == 2 ? "stereo"
                                       : "? channels",
                source.frames, formatTimeMs(source.durationMs()).c_str());
}

void printJson(const std::vector<const LoadedSource*>& loaded) {
    std::printf("[");
    for (size_t i = 0; i < loaded.size(); ++i) {
        const LoadedSource& s = *loaded[i];
        std::printf(
            "%s\n  {\"file\": %s, \"format\": %s, \"sampleRate\": %d, \"channels\": %d, "
            "\"frames\": %u, \"durationMs\": %llu}",
            i == 0 ? "" : ",", jsonString(s.path).c_str(), jsonString(fileKind(s.path)).c_str(), s.sampleRate,
            s.channels, s.frames, static_cast<unsigned long long>(s.durationMs()));
    }
    std::printf("%s]\n", loaded.empty() ? "" : "\n");
}

int runInfo(const InfoOptions& options, const GlobalOptions& global) {
    Session session(global);
    if (!session.open()) return 1;
    std::vector<LoadedSource> sources;
    const int status = loadSources(session, options.files, sources);
    if (status > 1) return status;
    // One entry per file named, in order, even when named twice.
    std::vector<const LoadedSource*> loaded;
    for (const std::string& file : options.files) {
        const LoadedSource* source = findSource(sources, file);
        if (source != nullptr && source->ok) loaded.push_back(source);
    }
    if (options.json) {
        printJson(loaded);
    } else {
        for (const LoadedSource* source : loaded) printText(*source);
    }
    return status;
}

}  // namespace

void addInfoCommand(CLI::App& app, CommandLine& line) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* info = app.add_subcommand("info", "Show the format, rate, channels, frames and duration of audio files");
    info->add_option("FILE", options->files, "Audio files (any format the engine loads)")->required();
    info->add_flag("--json", options->json, "Print a JSON array, one object per file loaded");
    info->footer(
        "Each file is loaded whole, so frames and duration are exact.\n"
        "Examples:\n"
        "  wavoryx info song.mp3 take.wav\n"
        "  wavoryx info --json song.mp3 | python3 -m json.tool");
    info->callback([options, &line] { line.run = [options, &line] { return runInfo(*options, line.global); }; });
}

}  // namespace wvcli
