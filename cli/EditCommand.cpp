// wavoryx edit SOURCE[@FROM-TO]... -o OUT: one clip list of the given
// ranges, rendered to WAV, MP3, FLAC, Opus, AAC or Vorbis. Each distinct source is loaded once, and
// ranges are cut in frames of their source, so a range is exact to the
// frame: FROM * rate / 1000 up to TO * rate / 1000 (the source's end when
// TO is left out or lies beyond it).
#include <unistd.h>

#include <algorithm>
#include <cstdint>
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
#include "OptionChecks.h"
#include "OutputFile.h"
#include "Progress.h"
#include "Session.h"
#include "StandardInput.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

struct EditOptions {
    std::vector<std::string> sources;
    std::string output;
    int rate = 0;
    int channels = 0;
    // The list's converter for sources at other rates: 0 linear, 1 high,
    // 2 very high (the values of setResampleQuality).
    int resample = 1;
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

// How far a container's stated length may be from the decoded one: a
// range ending this close to it waits for the whole load.
uint32_t lengthMargin(const LoadedSource& source) {
    return std::max<uint32_t>(uint32_t(source.sampleRate), source.stated / 50);
}

// Where each range comes from: its load, and its frames in that load's item.
struct RangeLoad {
    size_t load = 0;
    bool ranged = false;  // the item holds the range alone, from its frame 0
};

// A part of a file is loaded alone (reaching it without decoding what comes
// before) where that decodes less: for formats whose parts load that way,
// when the range is not the whole file. A WAV is read in place whole.
bool loadsAlone(const SourceRange& range) {
    if (range.fromMs == 0 && !range.hasEnd) return false;
    const std::string kind = fileKind(inputFile(range.path));
    return kind == "MP3" || kind == "FLAC" || kind == "Ogg Vorbis";
}

std::vector<RangeLoad> startLoads(SourceLoads& loads, const EditOptions& options, bool whole) {
    std::vector<RangeLoad> planned;
    for (const SourceRange& range : options.ranges) {
        RangeLoad load;
        load.ranged = !whole && loadsAlone(range);
        load.load = load.ranged ? loads.startRange(range.path, range.fromMs, range.hasEnd ? range.toMs : UINT32_MAX)
                                : loads.startWhole(range.path);
        planned.push_back(load);
    }
    return planned;
}

// Whether a range can be cut before its load has ended: it ends, and well
// inside the length the file states, so that its frames do not depend on
// where the decoded audio really ends.
bool cutsBeforeTheEnd(const SourceRange& range, const LoadedSource& source) {
    if (source.ok) return true;
    if (!range.hasEnd || source.stated == 0) return false;
    return uint64_t(msToFrame(range.toMs, source.sampleRate)) + lengthMargin(source) <= source.stated;
}

enum class Cut { kDone, kFailed, kNeedsWholeLoads };

// Adds every range as a clip of the list. A range of a load still going
// must cut before the file's end (see cutsBeforeTheEnd); its load notes
// the frames needed. A range starting at or after the end of its file is
// reported (kFailed) when the whole file was loaded; one ending past the
// end is cut there, and `notices` says so; a part loaded alone
// cannot tell the file's length, so the list is cut again from whole loads.
Cut buildClipList(Wavoryx& engine, int list, const EditOptions& options, SourceLoads& loads,
                  const std::vector<RangeLoad>& planned, std::vector<std::string>& notices) {
    notices.clear();
    for (LoadedSource& source : loads.sources()) source.needed = 0;
    for (size_t i = 0; i < options.ranges.size(); ++i) {
        const SourceRange& range = options.ranges[i];
        LoadedSource& source = loads.sources()[planned[i].load];
        const uint32_t skipped = planned[i].ranged ? msToFrame(range.fromMs, source.sampleRate) : 0;
        const uint32_t from = msToFrame(range.fromMs, source.sampleRate) - skipped;
        uint32_t to = range.hasEnd ? msToFrame(range.toMs, source.sampleRate) - skipped : source.frames;
        if (source.ok && to > source.frames) {
            to = source.frames;
            if (from < to) {
                // A part loaded alone holds the file from the range's start.
                const uint64_t fileEndMs = planned[i].ranged
                                               ? uint64_t(skipped + to) * 1000 / uint32_t(source.sampleRate)
                                               : source.durationMs();
                notices.push_back(range.path + ": the range " + formatTimeMs(range.fromMs) + "-" +
                                  formatTimeMs(range.toMs) + " ends past the end of the file (" +
                                  formatTimeMs(fileEndMs) + "); cut there");
            }
        }
        if (!source.ok) source.needed = std::max(source.needed, to);
        if (from >= to) {
            if (planned[i].ranged) return Cut::kNeedsWholeLoads;
            reportError(range.path, "the range from " + formatTimeMs(range.fromMs) + " is empty: the file lasts " +
                                        formatTimeMs(source.durationMs()));
            return Cut::kFailed;
        }
        if (engine.addClip(list, source.id, from, to) < 0) {
            reportError(range.path, "the engine refused the range");
            return Cut::kFailed;
        }
    }
    return Cut::kDone;
}

// Waits for the loads until every range can be cut: the loads have begun,
// and those of ranges that reach the file's end have ended.
// Returns 0, 1 (every failure reported) or the interrupt status.
int loadUntilCuttable(SourceLoads& loads, const EditOptions& options, const std::vector<RangeLoad>& planned,
                      bool whole) {
    const auto cuttable = [&] {
        if (whole) return loads.allEnded();
        if (!loads.allBegun()) return false;
        for (size_t i = 0; i < options.ranges.size(); ++i) {
            const LoadedSource& source = loads.sources()[planned[i].load];
            if (!source.ended && !cutsBeforeTheEnd(options.ranges[i], source)) return false;
        }
        return true;
    };
    const int status = loads.waitUntil(cuttable, true);
    if (status != 1 || interruptSignal() != 0) return status;
    // Every failure gets its line, as when nothing is rendered yet.
    loads.waitUntil([&] { return loads.allEnded(); }, false);
    return 1;
}

// Cuts the list and renders it while the loads go on, or with `whole` once
// they have all ended. `*list` is the list made. Returns 0, 1, the
// interrupt status, or -1 when the list must be cut again from whole loads.
int cutAndRender(Session& session, SourceLoads& loads, const EditOptions& options,
                 const std::vector<RangeLoad>& planned, bool whole, const std::string& rendering, int* listOut,
                 std::vector<std::string>& notices) {
    {
        const std::vector<LoadedSource>& sources = loads.sources();
        const std::string& first = sources[0].path;
        const std::string label = sources.size() == 1 ? "loading " + first.substr(first.find_last_of('/') + 1)
                                                      : "loading " + std::to_string(sources.size()) + " files";
        Progress progress(label, session.options().quiet);
        loads.setProgress(&progress, true);
        const int status = loadUntilCuttable(loads, options, planned, whole);
        loads.setProgress(nullptr, false);
        progress.finish(false);
        if (status != 0) return status;
    }
    // The linear converter goes down by less than a factor of 4 only;
    // beyond that it would stretch the audio instead.
    for (const LoadedSource& source : loads.sources()) {
        if (options.resample == 0 && options.rate > 0 && source.sampleRate >= 4 * options.rate) {
            reportError(source.path, "cannot convert " + std::to_string(source.sampleRate) + " Hz down to " +
                                         std::to_string(options.rate) +
                                         " Hz (less than a quarter) with --resample linear");
            return 1;
        }
    }
    Wavoryx& engine = session.engine();
    const int list = engine.newClipList();
    *listOut = list;
    const Cut cut = buildClipList(engine, list, options, loads, planned, notices);
    if (cut != Cut::kDone) return cut == Cut::kFailed ? 1 : -1;
    // The engine writes its waveform file beside the output and removes a
    // partial output; both happen in the working folder, and only a
    // finished file reaches what the user named.
    const encode_type type = options.encoding.type;
    engine.setOutputPara(list, rendering.c_str(), type);
    engine.setEncodePara(list, options.rate, options.encoding.bitrate, options.channels, 0);
    applyEncodingOptions(engine, list, options.encoding);
    engine.setResampleQuality(list, options.resample);
    const int rendered = renderList(session, list, rendering, options.output, &loads);
    // A file holding less than it states: its ranges are cut anew.
    return rendered == 0 && loads.shortOfNeeds() ? -1 : rendered;
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
    if (!mayReplace(target, global.overwrite)) return 1;
    Session session(global);
    if (!session.open(namesStandardInput(paths))) return interruptSignal() != 0 ? interruptExitStatus() : 1;
    const encode_type type = options.encoding.type;
    const std::string rendering = session.workDir() + "output" + encodingSuffix(type);
    int list = 0;
    std::vector<std::string> notices;
    std::unique_ptr<SourceLoads> loads(new SourceLoads(session));
    int rendered =
        cutAndRender(session, *loads, options, startLoads(*loads, options, false), false, rendering, &list, notices);
    if (rendered == -1) {
        // Rare: a file holds less than it states, or a part loaded alone
        // lies past the end: cut again from whole loads, which tell the
        // file's true length.
        loads->cancelRunning();
        ::unlink(rendering.c_str());
        session.engine().removePcm(list);
        loads.reset(new SourceLoads(session));
        rendered =
            cutAndRender(session, *loads, options, startLoads(*loads, options, true), true, rendering, &list, notices);
    }
    // What no list needs any more is not decoded to its end.
    loads->cancelRunning();
    if (rendered != 0) return rendered;
    for (const std::string& notice : notices) reportLine(notice);
    Wavoryx& engine = session.engine();
    if (!commitOutput(rendering, target, true, why)) {
        if (interruptSignal() != 0) return interruptExitStatus();
        reportError(options.output, why);
        return 1;
    }

    if (!global.quiet) {
        const int rate = engine.getPcmSampleRate(list);
        const uint32_t frames = uint32_t(engine.getPcmFrameLength(list));
        const int channels = engine.getPcmChannelCount(list);
        // Audio on standard output: the result line goes with the messages.
        std::fprintf(target.standardOutput ? stderr : stdout, "wrote %s: %s, %d Hz, %s, %u frames, %s\n",
                     options.output.c_str(), encodingSummary(engine, list, type).c_str(), rate,
                     channels == 1 ? "mono" : "stereo", frames,
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
                     std::string("FILE or FILE@FROM-TO (- is standard input); times as ") + kTimeForms +
                         "; a missing FROM is the start, a missing TO the end (song.mp3@0-10 is the first 10 s)")
        ->required();
    edit->add_option("-o,--output", options->output, "The file to write; - is standard output (give --format)")
        ->required()
        ->type_name("OUT");
    edit->add_option("--rate", options->rate,
                     "Sample rate in Hz (default: the highest of the sources'); with --resample linear, above a "
                     "quarter of every source's")
        ->check(wholeNumberIn(1000, 192000));
    edit->add_option("--resample", options->resample,
                     "Converter for sources at another rate: high (default; no aliasing, exact length), best "
                     "(finer still, slower) or linear (fastest; aliases, one frame more per range)")
        ->transform(indexOf({"linear", "high", "best"}))
        ->type_name("NAME");
    edit->add_option("--channels", options->channels, "1 or 2 (default: the sources')")->check(wholeNumberIn(1, 2));
    addEncodingOptions(edit, options->encoding);
    edit->footer(
        "The same file may appear in several ranges; it is loaded once.\n"
        "Examples:\n"
        "  wavoryx edit song.mp3@0:30-0:45 -o chorus.wav\n"
        "  wavoryx edit intro.wav song.mp3@1:00- -o mix.mp3 --bitrate 192\n"
        "  wavoryx edit song.mp3@0-30 -o - --format wav | sox -t wav - -n stat\n"
        "  wavoryx edit talk.flac@0-2.5 talk.flac@10-12.5 -o short.wav --rate 16000 --channels 1");
    edit->callback([options, &line] {
        checkEditOptions(*options);
        line.run = [options, &line] { return runEdit(*options, line.global); };
    });
}

}  // namespace wvcli
