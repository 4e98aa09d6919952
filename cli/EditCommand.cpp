// wavoryx edit SOURCE[@FROM-TO]... -o OUT: one clip list of the given
// ranges, rendered to WAV, MP3, FLAC, Opus, AAC or Vorbis. Each distinct source is loaded once (in
// at most kMostLoadsPerFile parts, each decoded once), and
// ranges are cut in frames of their source, so a range is exact to the
// frame: FROM * rate / 1000 up to TO * rate / 1000 (the source's end when
// TO is left out, lies beyond it or in its last, partial millisecond). Effects (fades, crossfades, gains,
// loudness) are set only when asked for: a plain edit renders its ranges
// byte for byte.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <wavoryx/Wavoryx.h>

#include "Commands.h"
#include "EditOptions.h"
#include "EditTags.h"
#include "Encoding.h"
#include "FileKind.h"
#include "Interrupt.h"
#include "Jobs.h"
#include "Loudness.h"
#include "OptionChecks.h"
#include "OutputFile.h"
#include "Progress.h"
#include "Session.h"
#include "SilenceCuts.h"
#include "StandardInput.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

uint32_t msToFrame(uint32_t ms, int rate) { return uint32_t(uint64_t(ms) * uint32_t(rate) / 1000); }

// How far a container's stated length may be from the decoded one: a
// range ending this close to it waits for the whole load.
uint32_t lengthMargin(const LoadedSource& source) {
    return std::max<uint32_t>(uint32_t(source.sampleRate), source.stated / 50);
}

// Where each range comes from: its load, and its frames in that load's item.
struct RangeLoad {
    size_t load = 0;
    bool ranged = false;  // the item holds the file from its load's fromMs, at its frame 0
};

// A part of a file is loaded alone (reaching it without decoding what comes
// before) where that decodes less: for formats whose parts load that way,
// when the range is not the whole file. A WAV is read in place whole.
bool loadsAlone(const std::string& path, uint32_t fromMs, bool hasEnd) {
    if (fromMs == 0 && !hasEnd) return false;
    // A stream is read once, front to back: its ranges share a whole load.
    if (streamsStandardInput(path)) return false;
    const std::string kind = fileKind(inputFile(path));
    return kind == "MP3" || kind == "FLAC" || kind == "Ogg Vorbis";
}

// Ranges of a file nearer than this to each other share a load: decoding
// the gap costs less than starting another load.
constexpr uint32_t kJoinGapMs = 30000;
// Each load holds its own descriptors and decoder: a file never gets more
// than this many, however many ranges name it.
constexpr size_t kMostLoadsPerFile = 16;

struct Span {
    uint32_t fromMs = 0;
    uint32_t toMs = 0;  // UINT32_MAX: to the end of the file
};

// The parts of the file `path` to load for `ranges` (those of it): ranges
// that overlap or lie close together are one part; when that leaves too
// many parts, the whole stretch from the first range to the last is one.
std::vector<Span> spansOf(const std::string& path, const std::vector<SourceRange>& ranges) {
    std::vector<Span> wanted;
    for (const SourceRange& range : ranges) {
        if (range.path == path) wanted.push_back({range.fromMs, range.hasEnd ? range.toMs : UINT32_MAX});
    }
    std::sort(wanted.begin(), wanted.end(), [](const Span& a, const Span& b) { return a.fromMs < b.fromMs; });
    std::vector<Span> spans;
    for (const Span& span : wanted) {
        if (!spans.empty() && uint64_t(span.fromMs) <= uint64_t(spans.back().toMs) + kJoinGapMs) {
            spans.back().toMs = std::max(spans.back().toMs, span.toMs);
        } else {
            spans.push_back(span);
        }
    }
    if (spans.size() > kMostLoadsPerFile) {
        Span all = spans.front();
        for (const Span& span : spans) all.toMs = std::max(all.toMs, span.toMs);
        spans.assign(1, all);
    }
    return spans;
}

// A file's ranges share a few loads (see spansOf): a load per range runs
// out of descriptors at a few hundred ranges.
std::vector<RangeLoad> startLoads(SourceLoads& loads, const EditOptions& options, bool whole) {
    struct PartLoad {
        Span span;
        RangeLoad load;
    };
    std::map<std::string, std::vector<PartLoad>> started;
    std::vector<RangeLoad> planned;
    for (const SourceRange& range : options.ranges) {
        auto found = started.find(range.path);
        if (found == started.end()) {
            std::vector<PartLoad> parts;
            for (const Span& span : whole ? std::vector<Span>{{0, UINT32_MAX}} : spansOf(range.path, options.ranges)) {
                PartLoad part{span, RangeLoad()};
                part.load.ranged = !whole && loadsAlone(range.path, span.fromMs, span.toMs != UINT32_MAX);
                part.load.load = part.load.ranged ? loads.startRange(range.path, span.fromMs, span.toMs)
                                                  : loads.startWhole(range.path);
                parts.push_back(part);
            }
            found = started.emplace(range.path, std::move(parts)).first;
        }
        const uint32_t toMs = range.hasEnd ? range.toMs : UINT32_MAX;
        RangeLoad load = found->second.front().load;
        for (const PartLoad& part : found->second) {
            if (part.span.fromMs <= range.fromMs && toMs <= part.span.toMs) load = part.load;
        }
        planned.push_back(load);
    }
    return planned;
}

// Whether a range can be cut before its load has ended: it ends, and well
// inside the length the file states, so that its frames do not depend on
// where the decoded audio really ends. A stream states no length to trust:
// its range is cut once the audio decoded (`framesNow`) reaches past the
// millisecond after its end, which a whole load would cut alike.
bool cutsBeforeTheEnd(const SourceRange& range, const LoadedSource& source, uint32_t framesNow) {
    if (source.ok) return true;
    if (!range.hasEnd) return false;
    if (streamsStandardInput(source.path)) {
        return uint64_t(framesNow) * 1000 >= (uint64_t(range.toMs) + 1) * uint32_t(source.sampleRate);
    }
    if (source.stated == 0) return false;
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
                  const std::vector<RangeLoad>& planned, std::vector<int>& clips, std::vector<std::string>& notices) {
    notices.clear();
    clips.clear();
    for (LoadedSource& source : loads.sources()) source.needed = 0;
    for (size_t i = 0; i < options.ranges.size(); ++i) {
        const SourceRange& range = options.ranges[i];
        LoadedSource& source = loads.sources()[planned[i].load];
        const uint32_t skipped = planned[i].ranged ? msToFrame(source.fromMs, source.sampleRate) : 0;
        const uint32_t from = msToFrame(range.fromMs, source.sampleRate) - skipped;
        uint32_t to = range.hasEnd ? msToFrame(range.toMs, source.sampleRate) - skipped : source.frames;
        // An end in the file's last, partial millisecond is its end: no
        // time in ms reaches further.
        if (source.ok && range.hasEnd && to <= source.frames) {
            to = uint32_t(endFrameAtMs(range.toMs, source.sampleRate, uint64_t(skipped) + source.frames) - skipped);
        }
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
        const int clip = engine.addClip(list, source.id, from, to);
        if (clip < 0) {
            reportError(range.path, "the engine refused the range");
            return Cut::kFailed;
        }
        clips.push_back(clip);
    }
    return Cut::kDone;
}

// Sets the effects asked for, and only those. A range's own fade of a side
// wins over --fade-in (first clip) or --fade-out (last clip). Silence cuts
// may remove the list's start or end, so then --fade-in and --fade-out go
// to the edges of what is kept (cutSilences), not to the clips here.
bool applyEffects(Wavoryx& engine, int list, const EditOptions& options, const std::vector<int>& clips) {
    const auto refused = [](int32_t result, const std::string& what) {
        if (result == 0) return false;
        reportLine("the engine refused " + what + " (error " + std::to_string(result) + ")");
        return true;
    };
    // --declick fades both sides of every join, where no crossfade overlaps it.
    const uint32_t declick = options.crossfadeMs ? 0 : options.silence.declickMs.value_or(0);
    for (size_t i = 0; i < clips.size(); ++i) {
        const SourceRange& range = options.ranges[i];
        if (range.gainMillibels &&
            refused(engine.setClipGain(list, clips[i], *range.gainMillibels), "the gain of " + range.path)) {
            return false;
        }
        const bool edgesHere = !options.silence.wanted();
        const bool first = i == 0 && edgesHere;
        const bool last = i + 1 == clips.size() && edgesHere;
        const bool fades = range.fadeInMs || range.fadeOutMs || (first && options.fadeInMs) ||
                           (last && options.fadeOutMs) || (declick > 0 && clips.size() > 1);
        const uint32_t in = range.fadeInMs.value_or(first ? options.fadeInMs.value_or(0) : declick);
        const uint32_t out = range.fadeOutMs.value_or(last ? options.fadeOutMs.value_or(0) : declick);
        if (fades &&
            refused(engine.setClipFade(list, clips[i], in, out, options.fadeShape), "the fades of " + range.path)) {
            return false;
        }
    }
    if (options.crossfadeMs &&
        refused(engine.setListCrossfade(list, *options.crossfadeMs, WV_FADE_EQUAL_POWER), "the crossfade")) {
        return false;
    }
    if (options.gainMillibels && refused(engine.setListGain(list, *options.gainMillibels), "the gain")) return false;
    if (options.denoiseDb != 0 && refused(engine.setListDenoise(list, options.denoiseDb), "the noise reduction")) {
        return false;
    }
    if (options.tempoPercent != 100 && refused(engine.setListTempo(list, options.tempoPercent), "the tempo")) {
        return false;
    }
    return !options.normalize ||
           !refused(engine.setListLoudness(list, options.lufsTenths, options.truePeakTenths), "the loudness");
}

// Waits for the loads until every range can be cut: the loads have begun,
// and those of ranges that reach the file's end have ended.
// Returns 0, 1 (every failure reported) or the interrupt status.
int loadUntilCuttable(Wavoryx& engine, SourceLoads& loads, const EditOptions& options,
                      const std::vector<RangeLoad>& planned, bool whole) {
    const auto cuttable = [&] {
        if (whole) return loads.allEnded();
        if (!loads.allBegun()) return false;
        for (size_t i = 0; i < options.ranges.size(); ++i) {
            const LoadedSource& source = loads.sources()[planned[i].load];
            if (source.ended) continue;
            const int32_t frames = streamsStandardInput(source.path) ? engine.getPcmFrameLength(source.id) : 0;
            if (!cutsBeforeTheEnd(options.ranges[i], source, uint32_t(std::max(frames, 0)))) return false;
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
// `outputMode`: setOutputMode's flags, 0 when `rendering` is in the working
// folder.
int cutAndRender(Session& session, SourceLoads& loads, const EditOptions& options,
                 const std::vector<RangeLoad>& planned, bool whole, const std::string& rendering, int outputMode,
                 int* listOut, std::vector<std::string>& notices) {
    {
        const std::vector<LoadedSource>& sources = loads.sources();
        const std::string& first = sources[0].path;
        const std::string label = sources.size() == 1 ? "loading " + first.substr(first.find_last_of('/') + 1)
                                                      : "loading " + std::to_string(sources.size()) + " files";
        Progress progress(label, session.options().quiet);
        loads.setProgress(&progress, true);
        const int status = loadUntilCuttable(session.engine(), loads, options, planned, whole);
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
    std::vector<int> clips;
    const Cut cut = buildClipList(engine, list, options, loads, planned, clips, notices);
    if (cut != Cut::kDone) return cut == Cut::kFailed ? 1 : -1;
    if (!applyEffects(engine, list, options, clips)) return 1;
    int out = list;
    if (options.silence.wanted()) {
        // The list read at the output's format, so that its silences are
        // found in the output's frames; the list of its kept parts renders.
        engine.setEncodePara(list, options.rate, 0, options.channels, 0);
        engine.setResampleQuality(list, options.resample);
        const int status = cutSilences(session, list, options.silence, {options.fadeInMs, options.fadeOutMs},
                                       options.fadeShape, &loads, options.output, &out);
        if (status != 0) return status;
        *listOut = out;
        if (options.normalize) engine.setListLoudness(out, options.lufsTenths, options.truePeakTenths);
    }
    if (!applyTagOptions(engine, out, loads.sources()[planned[0].load].id, options.tags)) return 1;
    // The engine removes a partial output, and puts only a finished one at
    // the user's name; into a device or standard output the command copies
    // the finished file from the working folder, whose waveform file goes
    // with the session.
    const encode_type type = options.encoding.type;
    engine.setOutputPara(out, rendering.c_str(), type);
    engine.setOutputMode(out, outputMode);
    engine.setEncodePara(out, options.rate, options.encoding.bitrate, options.channels, 0);
    applyEncodingOptions(engine, out, options.encoding);
    engine.setResampleQuality(out, options.resample);
    engine.setEncodeThreads(out, options.threads);
    const int rendered =
        renderList(session, out, rendering, options.output, &loads, options.normalize, outputMode != 0);
    // A file holding less than it states: its ranges are cut anew.
    return rendered == 0 && loads.shortOfNeeds() ? -1 : rendered;
}

// Why a normalised output stays under its loudness target, as one line;
// empty when it met it (or was not normalised).
std::string loudnessShortfall(Wavoryx& engine, int list, const EditOptions& options) {
    if (!options.normalize) return {};
    int32_t reached = 0;
    const int32_t result = engine.getListLoudnessResult(list, &reached);
    const std::string target = tenthsText(options.lufsTenths);
    const std::string missed = "reached " + tenthsText(reached) + " LUFS, not " + target + ": ";
    switch (result) {
        case WV_LOUDNESS_GAIN_LIMIT:
            return missed + "the gain is limited to +40 dB";
        case WV_LOUDNESS_PEAK_CEILING:
            return missed + "the true peak is held at " + tenthsText(options.truePeakTenths) +
                   " dBTP (--true-peak)";
        case WV_LOUDNESS_NONE:
            return "no loudness to bring to " + target + " LUFS (silence or under 0.4 s of audio): left as it was";
        default:
            return {};
    }
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
    if (!mayReplace(target, global.overwrite)) return interruptSignal() != 0 ? interruptExitStatus() : 1;
    const std::string note = unusedOptionsNote(options.encoding);
    if (!note.empty()) reportLine(note);
    Session session(global);
    streamStandardInputWhereItCan();
    // Before the Session goes: the engine's load of it then sees its end.
    StandardInputStreamEnd streamEnd;
    if (!session.open(namesStandardInput(paths))) return interruptSignal() != 0 ? interruptExitStatus() : 1;
    const encode_type type = options.encoding.type;
    // A file is written at its own name by the engine; a device or standard
    // output gets the finished file's bytes from here.
    const bool inPlace = target.kind != TargetKind::Special;
    const std::string rendering =
        inPlace ? target.filePath : session.workDir() + "output" + encodingSuffix(type);
    // Without -y, a name free when examined is taken only while still free;
    // the finished file is held until the command knows it is the last.
    const int keepOthers = target.kind == TargetKind::Absent && !target.lastWriterWins ? WV_OUTPUT_NO_REPLACE : 0;
    const int outputMode = inPlace ? WV_OUTPUT_HOLD | WV_OUTPUT_NO_WAVEFORM | keepOthers : 0;
    int list = 0;
    std::vector<std::string> notices;
    std::unique_ptr<SourceLoads> loads(new SourceLoads(session));
    int rendered =
        cutAndRender(session, *loads, options, startLoads(*loads, options, false), false, rendering, outputMode, &list,
                     notices);
    if (rendered == -1) {
        // Rare: a file holds less than it states, or a part loaded alone
        // lies past the end: cut again from whole loads, which tell the
        // file's true length.
        // Standard input's stream cannot be read again: its load goes on.
        std::vector<LoadedSource> streamed;
        for (const LoadedSource& source : loads->sources()) {
            if (!streamsStandardInput(source.path)) {
                if (!source.ended) session.engine().cancelLoadFile(source.id);
            } else if (source.id > 0) {
                streamed.push_back(source);
            }
        }
        if (inPlace) {
            session.engine().placeOutput(list, 0);
        } else {
            ::unlink(rendering.c_str());
        }
        session.engine().removePcm(list);
        loads.reset(new SourceLoads(session));
        for (const LoadedSource& source : streamed) loads->adopt(source);
        rendered =
            cutAndRender(session, *loads, options, startLoads(*loads, options, true), true, rendering,
                         outputMode, &list, notices);
    }
    // What no list needs any more is not decoded to its end; what a load
    // skipped as damaged is told all the same.
    if (interruptSignal() == 0) {
        loads->endUnneeded();
    } else {
        loads->cancelRunning();
    }
    if (rendered != 0) return rendered;
    for (const std::string& notice : notices) reportLine(notice);
    Wavoryx& engine = session.engine();
    if (inPlace) {
        // An interrupt up to here leaves the target as it was.
        const int placed = engine.placeOutput(list, interruptSignal() == 0 ? 1 : 0);
        if (interruptSignal() != 0) return interruptExitStatus();
        if (placed != 0) {
            reportError(options.output, placed == -17 ? "appeared while the output was made; not overwritten"
                                                      : "cannot write (the output could not be put in place)");
            return 1;
        }
    } else if (!commitOutput(rendering, target, true, why)) {
        if (interruptSignal() != 0) return interruptExitStatus();
        reportError(options.output, why);
        return 1;
    }
    const std::string shortfall = loudnessShortfall(engine, list, options);
    if (!shortfall.empty()) reportError(options.output, shortfall);

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
                         "; a missing FROM is the start, a missing TO the end (song.mp3@0-10 is the first 10 s); "
                         "effects may follow: " +
                         kRangeEffectForms)
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
    edit->add_option("--threads", options->threads,
                     "Encoder threads, 1 to 64 (default: one per core); 1 writes what a single encoder writes")
        ->check(wholeNumberIn(1, 64));
    addEncodingOptions(edit, options->encoding);
    addEffectOptions(edit, *options);
    addSilenceCutOptions(edit, options->silence);
    addTagOptions(edit, options->tags);
    edit->footer(
        "The same file may appear in several ranges; it is loaded once.\n"
        "Effects are applied only when asked for: without them the output holds the ranges' samples exactly.\n"
        "The last example makes a podcast episode: joins crossfaded over 1.5 s, brought to -16 LUFS under a "
        "-1 dBTP ceiling.\n"
        "Examples:\n"
        "  wavoryx edit song.mp3@0:30-0:45 -o chorus.wav\n"
        "  wavoryx edit intro.wav song.mp3@1:00- -o mix.mp3 --bitrate 192\n"
        "  wavoryx edit song.mp3@0-30 -o - --format wav | sox -t wav - -n stat\n"
        "  wavoryx edit talk.flac@0-2.5 talk.flac@10-12.5 -o short.wav --rate 16000 --channels 1\n"
        "  wavoryx edit song.mp3@1:00-2:00:gain=-3:fade=0.5 -o part.wav --fade-shape linear\n"
        "  wavoryx edit intro.wav talk.mp3 outro.wav -o episode.mp3 --crossfade 1.5 --normalize -16 "
        "--true-peak -1\n"
        "  wavoryx edit interview.mp3 -o tight.mp3 --shorten-silence 0.8 --trim-silence --declick 5ms");
    CLI::Option* normalize = edit->get_option("--normalize");
    CLI::Option* truePeak = edit->get_option("--true-peak");
    CLI::Option* sources = edit->get_option("SOURCE");
    CLI::Option* denoise = edit->get_option("--denoise");
    edit->callback([options, &line, normalize, truePeak, denoise, sources, edit] {
        options->normalize = normalize->count() > 0;
        options->denoiseGiven = denoise->count() > 0;
        if (!options->sourcesAfterOptions.empty()) placeSourcesAfterOptions(*edit, *sources, *options);
        options->truePeakGiven = truePeak->count() > 0;
        checkEditOptions(*options);
        line.run = [options, &line] { return runEdit(*options, line.global); };
    });
}

}  // namespace wvcli
