// wavoryx edit SOURCE[@FROM-TO]... -o OUT: one clip list of the given
// ranges, rendered to WAV, MP3, FLAC, Opus, AAC or Vorbis. Each distinct source is loaded once, and
// ranges are cut in frames of their source, so a range is exact to the
// frame: FROM * rate / 1000 up to TO * rate / 1000 (the source's end when
// TO is left out or lies beyond it).
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <wavoryx/Wavoryx.h>

#include "Commands.h"
#include "Encoding.h"
#include "FileKind.h"
#include "Interrupt.h"
#include "Jobs.h"
#include "OutputFile.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

struct EditOptions {
    std::vector<std::string> sources;
    std::string output;
    int rate = 0;
    int channels = 0;
    EncodingChoice encoding;
    std::vector<SourceRange> ranges;  // parsed from `sources`
};

// Usage checks that need more than one option; thrown as usage errors.
void checkEditOptions(EditOptions& options) {
    options.ranges.clear();
    for (const std::string& text : options.sources) {
        SourceRange range;
        std::string why;
        if (!parseSourceRange(text, range, why)) throw CLI::ValidationError("SOURCE", why);
        options.ranges.push_back(range);
    }
    settleEncoding(options.encoding, options.output);
}

uint32_t msToFrame(uint32_t ms, int rate) { return uint32_t(uint64_t(ms) * uint32_t(rate) / 1000); }

// Adds every range as a clip of the list; false (reported) for a range
// that starts at or after its source's end.
bool buildClipList(Wavoryx& engine, int list, const EditOptions& options, const std::vector<LoadedSource>& sources) {
    for (const SourceRange& range : options.ranges) {
        const LoadedSource& source = *findSource(sources, range.path);
        const uint32_t from = msToFrame(range.fromMs, source.sampleRate);
        uint32_t to = range.hasEnd ? msToFrame(range.toMs, source.sampleRate) : source.frames;
        if (to > source.frames) to = source.frames;
        if (from >= to) {
            reportError(range.path, "the range from " + formatTimeMs(range.fromMs) + " is empty: the file lasts " +
                                        formatTimeMs(source.durationMs()));
            return false;
        }
        if (engine.addClip(list, source.id, from, to) < 0) {
            reportError(range.path, "the engine refused the range");
            return false;
        }
    }
    return true;
}

int runEdit(const EditOptions& options, const GlobalOptions& global) {
    OutputTarget target;
    std::string why;
    if (!examineOutput(options.output, target, why)) {
        reportError(options.output, why);
        return 1;
    }
    std::vector<std::string> paths;
    for (const SourceRange& range : options.ranges) paths.push_back(range.path);
    if (const std::string* input = sameFileAmong(options.output, paths)) {
        reportError(options.output, sameFileReason(*input));
        return 1;
    }
    Session session(global);
    if (!session.open()) return 1;
    std::vector<LoadedSource> sources;
    const int loaded = loadSources(session, paths, sources);
    if (loaded != 0) return loaded;

    // The engine converts down by less than a factor of 4 only; beyond
    // that it would stretch the audio instead.
    for (const LoadedSource& source : sources) {
        if (options.rate > 0 && source.sampleRate >= 4 * options.rate) {
            reportError(source.path, "cannot convert " + std::to_string(source.sampleRate) + " Hz down to " +
                                         std::to_string(options.rate) + " Hz (less than a quarter)");
            return 1;
        }
    }
    Wavoryx& engine = session.engine();
    const int list = engine.newClipList();
    if (!buildClipList(engine, list, options, sources)) return 1;
    // The engine writes its waveform file beside the output and removes a
    // partial output; both happen in the working folder, and only a
    // finished file reaches what the user named.
    const encode_type type = options.encoding.type;
    const std::string rendering = session.workDir() + "output" + encodingSuffix(type);
    engine.setOutputPara(list, rendering.c_str(), type);
    engine.setEncodePara(list, options.rate, options.encoding.bitrate, options.channels, 0);
    applyEncodingOptions(engine, list, options.encoding);
    const int rendered = renderList(session, list, rendering, options.output);
    if (rendered != 0) return rendered;
    if (!commitOutput(rendering, target, true, why)) {
        if (interruptSignal() != 0) return interruptExitStatus();
        reportError(options.output, why);
        return 1;
    }

    if (!global.quiet) {
        const int rate = engine.getPcmSampleRate(list);
        const uint32_t frames = uint32_t(engine.getPcmFrameLength(list));
        const int channels = engine.getPcmChannelCount(list);
        std::printf("wrote %s: %s, %d Hz, %s, %u frames, %s\n", options.output.c_str(),
                    encodingSummary(engine, list, type).c_str(), rate, channels == 1 ? "mono" : "stereo", frames,
                    formatTimeMs(rate > 0 ? uint64_t(frames) * 1000 / uint32_t(rate) : 0).c_str());
    }
    return 0;
}

}  // namespace

void addEditCommand(CLI::App& app, CommandLine& line) {
    auto options = std::make_shared<EditOptions>();
    CLI::App* edit = app.add_subcommand(
        "edit", "Join ranges of audio files into one audio file (WAV, MP3, FLAC, Opus, AAC, Vorbis)");
    edit->add_option("SOURCE", options->sources,
                     "FILE or FILE@FROM-TO; times as ms (1500), seconds (1.5) or m:ss.fff (0:01.5); "
                     "a missing FROM is the start, a missing TO the end")
        ->required();
    edit->add_option("-o,--output", options->output, "The file to write")->required()->type_name("OUT");
    edit->add_option("--rate", options->rate,
                     "Sample rate in Hz, above a quarter of every source's (default: the highest of the sources')")
        ->check(CLI::Range(1000, 192000));
    edit->add_option("--channels", options->channels, "1 or 2 (default: the sources')")->check(CLI::Range(1, 2));
    addEncodingOptions(edit, options->encoding);
    edit->footer(
        "The same file may appear in several ranges; it is loaded once.\n"
        "Examples:\n"
        "  wavoryx edit song.mp3@0:30-0:45 -o chorus.wav\n"
        "  wavoryx edit intro.wav song.mp3@1:00- -o mix.mp3 --bitrate 192\n"
        "  wavoryx edit talk.flac@0-2.5 talk.flac@10.0-12.5 -o short.wav --rate 16000 --channels 1");
    edit->callback([options, &line] {
        checkEditOptions(*options);
        line.run = [options, &line] { return runEdit(*options, line.global); };
    });
}

}  // namespace wvcli
