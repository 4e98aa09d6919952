// wavoryx waveform FILE [--from T] [--to T] [--width N] [--height H]
// [--png PATH]: the peaks of a file (or of a stretch of it) drawn in the
// terminal with block characters, or written as a PNG picture.
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include <wavoryx/Wavoryx.h>

#include "Commands.h"
#include "Interrupt.h"
#include "Jobs.h"
#include "OptionChecks.h"
#include "OutputFile.h"
#include "TimeSpec.h"
#include "WaveformPicture.h"

namespace wvcli {
namespace {

constexpr int kDefaultPngWidth = 800;
constexpr int kDefaultPngHeight = 200;
constexpr int kDefaultTextRows = 8;

struct WaveformOptions {
    std::string file;
    std::string from;
    std::string to;
    int width = 0;
    int height = 0;
    std::string png;
    uint32_t fromMs = 0;
    uint32_t toMs = 0;
    bool hasTo = false;
};

int terminalColumns() {
    struct winsize size;
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    const char* columns = std::getenv("COLUMNS");
    const int parsed = columns != nullptr ? std::atoi(columns) : 0;
    return parsed > 0 ? parsed : 80;
}

void checkWaveformOptions(WaveformOptions& options) {
    std::string why;
    if (!options.from.empty() && !parseTimeMs(options.from, options.fromMs, why)) {
        throw CLI::ValidationError("--from", why);
    }
    options.hasTo = !options.to.empty();
    if (options.hasTo && !parseTimeMs(options.to, options.toMs, why)) throw CLI::ValidationError("--to", why);
    if (options.hasTo && options.toMs <= options.fromMs) {
        throw CLI::ValidationError("--to", "'" + options.to + "' is not after --from (" + formatTimeMs(options.fromMs) +
                                               "): use a later time");
    }
}

// The picture is always a PNG: a name promising another kind would mislead.
bool namesAPng(const std::string& path) {
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return false;
    std::string suffix = path.substr(dot);
    for (char& c : suffix) c = char(std::tolower(static_cast<unsigned char>(c)));
    return suffix == ".png";
}

void printText(const std::vector<uint8_t>& peaks, int rows, uint32_t fromMs, uint32_t toMs) {
    for (const std::string& line : drawTextWaveform(peaks, rows)) std::printf("%s\n", line.c_str());
    // The times of the first and last columns under the picture.
    const std::string left = formatTimeMs(fromMs);
    const std::string right = formatTimeMs(toMs);
    const int gap = int(peaks.size()) - int(left.size()) - int(right.size());
    std::printf("%s%*s%s\n", left.c_str(), gap > 1 ? gap : 1, "", right.c_str());
}

int runWaveform(const WaveformOptions& options, const GlobalOptions& global) {
    const bool png = !options.png.empty();
    OutputTarget target;
    std::string why;
    if (png && !examineOutput(options.png, target, why)) {
        reportError(options.png, why);
        return 1;
    }
    if (png && isSameFile(options.png, options.file)) {
        reportError(options.png, sameFileReason(options.file));
        return 1;
    }
    if (png && !namesAPng(options.png)) {
        reportError(options.png, "does not end in .png, and the picture is a PNG");
        return 1;
    }
    Session session(global);
    if (!session.open()) return 1;
    std::vector<LoadedSource> sources;
    const int loaded = loadSources(session, {options.file}, sources);
    if (loaded != 0) return loaded;
    const LoadedSource& source = sources[0];

    const uint64_t duration = source.durationMs();
    const uint32_t toMs = options.hasTo && options.toMs < duration ? options.toMs : uint32_t(duration);
    if (options.fromMs >= toMs) {
        reportError(source.path, "nothing to draw from " + formatTimeMs(options.fromMs) + ": the file lasts " +
                                     formatTimeMs(duration));
        return 1;
    }
    const int width = options.width > 0 ? options.width : png ? kDefaultPngWidth : terminalColumns();
    const int height = options.height > 0 ? options.height : png ? kDefaultPngHeight : kDefaultTextRows;
    std::vector<uint8_t> peaks(size_t(width), 0);
    if (session.engine().getWaveformSamples(source.id, options.fromMs, toMs, unsigned(width), peaks.data()) < 0) {
        reportError(source.path, "the engine could not sample its waveform");
        return 1;
    }
    if (interruptSignal() != 0) return interruptExitStatus();
    if (!png) {
        printText(peaks, height, options.fromMs, toMs);
        return 0;
    }
    const std::string drawing = session.workDir() + "waveform.png";
    if (!writeWaveformPng(drawing, peaks, height, why) || !commitOutput(drawing, target, true, why)) {
        if (interruptSignal() != 0) return interruptExitStatus();
        reportError(options.png, why);
        return 1;
    }
    if (!global.quiet) {
        std::printf("wrote %s: %dx%d, %s to %s of %s\n", options.png.c_str(), width, height,
                    formatTimeMs(options.fromMs).c_str(), formatTimeMs(toMs).c_str(), source.path.c_str());
    }
    return 0;
}

}  // namespace

void addWaveformCommand(CLI::App& app, CommandLine& line) {
    auto options = std::make_shared<WaveformOptions>();
    CLI::App* waveform =
        app.add_subcommand("waveform", "Draw the waveform of an audio file in the terminal or as a PNG");
    waveform->add_option("FILE", options->file, "An audio file")->required();
    waveform->add_option("--from", options->from, "Start time (default 0)")->type_name("T");
    waveform->add_option("--to", options->to, "End time (default: the end)")->type_name("T");
    waveform->add_option("--width", options->width, "Columns (default: the terminal's width; 800 for --png)")
        ->check(wholeNumberIn(1, 20000));
    waveform->add_option("--height", options->height, "Text rows (default 8), or PNG pixels (default 200)")
        ->check(wholeNumberIn(1, 10000));
    waveform->add_option("--png", options->png, "Write a PNG picture to PATH instead")->type_name("PATH");
    waveform->footer(
        "Times as ms (1500), seconds (1.5) or m:ss.fff (0:01.5).\n"
        "Examples:\n"
        "  wavoryx waveform song.mp3\n"
        "  wavoryx waveform song.mp3 --from 0:30 --to 0:45 --width 60 --height 4\n"
        "  wavoryx waveform song.mp3 --png song.png --width 1200 --height 300");
    waveform->callback([options, &line] {
        checkWaveformOptions(*options);
        line.run = [options, &line] { return runWaveform(*options, line.global); };
    });
}

}  // namespace wvcli
