// wavoryx silence FILE: the silences of a file, as text or JSON, from a scan
// that keeps no audio (Wavoryx::scanFileSilence); and
// wavoryx split FILE --on-silence -o PATTERN: one file per stretch of sound
// between them, which loads the file and finds its silences as it loads
// (Wavoryx::scanSilence follows the decoder).
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <wavoryx/Wavoryx.h>

#include "Commands.h"
#include "Encoding.h"
#include "Interrupt.h"
#include "Jobs.h"
#include "OptionChecks.h"
#include "OutputFile.h"
#include "Progress.h"
#include "Overwrite.h"
#include "Session.h"
#include "Silences.h"
#include "StandardInput.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

struct SilenceOptions {
    std::string file;
    SilenceChoice choice;
    bool json = false;
};

struct SplitOptions {
    std::string file;
    std::string pattern;
    bool onSilence = false;
    SilenceChoice choice;
    int rate = 0;
    int channels = 0;
    int resample = 1;
    EncodingChoice encoding;
};

// Loads `file` and finds its silences as it loads; *id is its item, *rate
// its rate, *frames its length once loaded. Returns 0, 1 or the interrupt
// status.
int loadAndFind(Session& session, SourceLoads& loads, const std::string& file, const SilenceChoice& choice, int* id,
                int* rate, uint32_t* frames, Silences& silences) {
    loads.start({file});
    LoadedSource& source = loads.sources().front();
    if (loads.failed() || source.id <= 0) return 1;
    *id = source.id;
    int status = findSilences(session, source.id, choice, &loads, file, silences);
    if (status == 0) status = loads.waitUntil([&] { return loads.allEnded(); }, false);
    if (status != 0) {
        loads.cancelRunning();
        return status;
    }
    *rate = source.sampleRate;
    *frames = source.frames;
    return 0;
}

int runSilence(const SilenceOptions& options, const GlobalOptions& global) {
    Session session(global);
    if (!session.open(namesStandardInput({options.file}))) return interruptSignal() != 0 ? interruptExitStatus() : 1;
    // A scan: the file is decoded once and its audio kept nowhere.
    SourceLoads loads(session);
    loads.scanSilencesInstead(options.choice.tenthsDb(), options.choice.minMs());
    loads.start({options.file});
    Progress progress("finding silences in " + options.file.substr(options.file.find_last_of('/') + 1),
                      global.quiet);
    loads.setProgress(&progress, true);
    const int status = loads.waitUntil([&] { return loads.allEnded(); }, false);
    loads.setProgress(nullptr, false);
    const LoadedSource& source = loads.sources().front();
    progress.finish(status == 0 && source.ok);
    if (status != 0) return status;
    Wavoryx& engine = session.engine();
    uint32_t frames = 0;
    const int rate = engine.getSilenceScanFrames(source.id, &frames);
    const int32_t count = engine.getSilences(source.id, nullptr, 0);
    std::vector<uint32_t> pairs(size_t(count > 0 ? count : 0) * 2);
    if (rate <= 0 || count < 0 || engine.getSilences(source.id, pairs.data(), uint32_t(count)) != count) {
        reportError(options.file, "its silences could not be read");
        return 1;
    }
    Silences silences;
    for (int32_t i = 0; i < count; ++i) silences.emplace_back(pairs[2 * size_t(i)], pairs[2 * size_t(i) + 1]);
    const auto seconds = [rate](uint32_t frame) { return double(frame) / double(rate); };
    if (options.json) {
        std::printf("[");
        for (size_t i = 0; i < silences.size(); ++i) {
            std::printf("%s\n  {\"start\": %.3f, \"end\": %.3f}", i == 0 ? "" : ",", seconds(silences[i].first),
                        seconds(silences[i].second));
        }
        std::printf("%s]\n", silences.empty() ? "" : "\n");
    } else {
        for (const auto& s : silences) {
            std::printf("%.3f %.3f %.3f\n", seconds(s.first), seconds(s.second),
                        seconds(s.second) - seconds(s.first));
        }
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}

// Whether `pattern` holds exactly one whole-number field (%d, %02d, %3d; %%
// is a '%'), so that every part gets its own name.
bool partPatternOk(const std::string& pattern, std::string& why) {
    int fields = 0;
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%') continue;
        if (i + 1 < pattern.size() && pattern[i + 1] == '%') {
            ++i;
            continue;
        }
        size_t j = i + 1;
        while (j < pattern.size() && pattern[j] >= '0' && pattern[j] <= '9') ++j;
        if (j >= pattern.size() || pattern[j] != 'd' || j - i > 3) {
            why = "a part's name takes one number as %d or %02d (and %% for a '%')";
            return false;
        }
        ++fields;
        i = j;
    }
    if (fields != 1) why = "needs exactly one %d or %02d for the part's number";
    return fields == 1;
}

std::string partName(const std::string& pattern, int number) {
    std::vector<char> text(pattern.size() + 32);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(text.data(), text.size(), pattern.c_str(), number);
#pragma GCC diagnostic pop
    return text.data();
}

// The stretches of sound between the silences of [0, frames).
std::vector<std::pair<uint32_t, uint32_t>> soundBetween(const Silences& silences, uint32_t frames) {
    std::vector<std::pair<uint32_t, uint32_t>> parts;
    uint32_t at = 0;
    for (const auto& s : silences) {
        if (s.first > at) parts.emplace_back(at, s.first);
        at = s.second;
    }
    if (frames > at) parts.emplace_back(at, frames);
    return parts;
}

int runSplit(const SplitOptions& options, const GlobalOptions& global) {
    const std::string note = unusedOptionsNote(options.encoding);
    if (!note.empty()) reportLine(note);
    Session session(global);
    if (!session.open(namesStandardInput({options.file}))) return interruptSignal() != 0 ? interruptExitStatus() : 1;
    SourceLoads loads(session);
    int id = 0;
    int rate = 0;
    uint32_t frames = 0;
    Silences silences;
    int status = loadAndFind(session, loads, options.file, options.choice, &id, &rate, &frames, silences);
    if (status != 0) return status;
    const auto parts = soundBetween(silences, frames);
    if (parts.empty()) {
        reportError(options.file, "is silence throughout: no part to write");
        return 1;
    }
    Wavoryx& engine = session.engine();
    const encode_type type = options.encoding.type;
    for (size_t i = 0; i < parts.size(); ++i) {
        const std::string output = partName(options.pattern, int(i + 1));
        OutputTarget target;
        std::string why;
        if (!examineOutput(output, target, why)) {
            reportError(output, why);
            return 1;
        }
        if (const std::string* input = sameFileAmong(output, {options.file})) {
            reportError(output, sameFileReason(*input));
            return 1;
        }
        if (!mayReplace(target, global.overwrite)) return interruptSignal() != 0 ? interruptExitStatus() : 1;
        const std::string rendering = session.workDir() + "part" + encodingSuffix(type);
        const int list = engine.newClipList();
        if (engine.addClip(list, id, parts[i].first, parts[i].second) < 0) {
            reportError(options.file, "the engine refused a part");
            return 1;
        }
        engine.setOutputPara(list, rendering.c_str(), type);
        engine.setEncodePara(list, options.rate, options.encoding.bitrate, options.channels, 0);
        applyEncodingOptions(engine, list, options.encoding);
        engine.setResampleQuality(list, options.resample);
        status = renderList(session, list, rendering, output);
        if (status != 0) return status;
        if (!commitOutput(rendering, target, true, why)) {
            if (interruptSignal() != 0) return interruptExitStatus();
            reportError(output, why);
            return 1;
        }
        if (!global.quiet) {
            const uint32_t outFrames = uint32_t(engine.getPcmFrameLength(list));
            std::printf("wrote %s: %s, %s-%s, %u frames\n", output.c_str(),
                        encodingSummary(engine, list, type).c_str(),
                        formatTimeMs(uint64_t(parts[i].first) * 1000 / uint32_t(rate)).c_str(),
                        formatTimeMs(uint64_t(parts[i].second) * 1000 / uint32_t(rate)).c_str(), outFrames);
        }
        engine.removePcm(list);
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}

}  // namespace

void addSilenceCommand(CLI::App& app, CommandLine& line) {
    auto options = std::make_shared<SilenceOptions>();
    CLI::App* silence = app.add_subcommand("silence", "List the silences of an audio file with their times");
    silence->add_option("FILE", options->file, "An audio file (any format the engine loads); - is standard input")
        ->required();
    addSilenceOptions(silence, options->choice, "--threshold", "--min");
    silence->add_flag("--json", options->json, "Print a JSON array of {\"start\": s, \"end\": s}");
    silence->footer(
        "Each silence is one line: START END LENGTH, in seconds with three decimals. A frame is\n"
        "quiet when every channel's sample is below the threshold; a silence is a run of quiet\n"
        "frames at least --min long, from its first quiet frame to the first loud one (or the end).\n"
        "This is ffmpeg's silencedetect rule: --threshold -50 --min 1 finds what\n"
        "silencedetect=n=-50dB:d=1 finds.\n"
        "Examples:\n"
        "  wavoryx silence interview.mp3\n"
        "  wavoryx silence lecture.flac --threshold -40 --min 0.5 --json");
    silence->callback([options, &line] { line.run = [options, &line] { return runSilence(*options, line.global); }; });

    auto split = std::make_shared<SplitOptions>();
    CLI::App* command = app.add_subcommand("split", "Write one file per stretch of sound between the silences of a file");
    command->add_option("FILE", split->file, "An audio file (any format the engine loads); - is standard input")
        ->required();
    command->add_flag("--on-silence", split->onSilence, "Cut at every silence (--threshold, --min): the only way yet")
        ->required();
    command
        ->add_option("-o,--output", split->pattern,
                     "Names of the parts, with one %d or %02d for the part's number (1, 2, ...): part-%02d.mp3")
        ->required()
        ->type_name("PATTERN");
    addSilenceOptions(command, split->choice, "--threshold", "--min");
    command->add_option("--rate", split->rate, "Sample rate in Hz (default: the file's)")
        ->check(wholeNumberIn(1000, 192000));
    command->add_option("--channels", split->channels, "1 or 2 (default: the file's)")->check(wholeNumberIn(1, 2));
    command
        ->add_option("--resample", split->resample,
                     "Converter when --rate differs from the file's: high (default), best or linear")
        ->transform(indexOf({"linear", "high", "best"}))
        ->type_name("NAME");
    addEncodingOptions(command, split->encoding);
    command->footer(
        "Each part is a stretch of sound exactly as the file holds it, from the end of one silence\n"
        "to the start of the next: the parts together are the file without its silences.\n"
        "Examples:\n"
        "  wavoryx split interview.mp3 --on-silence -o 'part-%02d.mp3'\n"
        "  wavoryx split lecture.flac --on-silence --min 2 --threshold -45 -o 'lecture-%d.flac'");
    command->callback([split, &line] {
        std::string why;
        if (!partPatternOk(split->pattern, why)) throw CLI::ValidationError("--output", why);
        settleEncoding(split->encoding, split->pattern);
        line.run = [split, &line] { return runSplit(*split, line.global); };
    });
}

}  // namespace wvcli
