// wavoryx waveform FILE [--from T] [--to T] [--width N] [--height H] [--db]
// [--png PATH [--colors LIST] [--transparent]] [--json PATH] [--dat PATH]
// [--bits 8|16] [--pixels-per-second N | -z N] [--average-channels | --split-channels]
// [--amplitude-scale X|auto]: the true minimum and maximum of a
// file (or of a stretch of it) drawn in the terminal with block characters,
// written as a PNG picture, or as waveform data files.
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
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
#include "Progress.h"
#include "Session.h"
#include "StandardInput.h"
#include "TimeSpec.h"
#include "WaveformFiles.h"
#include "WaveformPicture.h"
#include "WaveformPng.h"

namespace wvcli {
namespace {

constexpr int kDefaultPngWidth = 800;
constexpr int kDefaultPngHeight = 200;
constexpr int kDefaultTextRows = 8;
constexpr int kDefaultTextColumns = 80;
constexpr int kMaxWidth = 20000;
constexpr int kMaxHeight = 10000;
constexpr int kDefaultPixelsPerSecond = 100;

struct WaveformOptions {
    std::string file;
    std::string from;
    std::string to;
    int width = 0;
    int height = 0;
    std::string png;
    bool decibels = false;
    std::string colors;
    bool transparent = false;
    std::string json;
    std::string dat;
    int bits = 16;
    int pixelsPerSecond = 0;
    int zoom = 0;
    bool averageChannels = false;
    bool splitChannels = false;
    std::string amplitudeScale;
    double scale = 1.0;  // 0 for auto
    uint32_t fromMs = 0;
    uint32_t toMs = 0;
    bool hasTo = false;
    PictureStyle style;
};

// One file the command writes: where it goes, as examined.
struct Output {
    std::string path;
    OutputTarget target;
};

// The terminal's width, held to what --width accepts: the environment is
// no more trusted than the command line, and a huge COLUMNS would ask for
// that many columns of memory.
int terminalColumns() {
    struct winsize size;
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return std::min<int>(size.ws_col, kMaxWidth);
    const char* columns = std::getenv("COLUMNS");
    if (columns == nullptr) return kDefaultTextColumns;
    char* end = nullptr;
    errno = 0;
    const long parsed = std::strtol(columns, &end, 10);
    if (end == columns || *end != '\0' || parsed < 1) return kDefaultTextColumns;
    return errno == ERANGE || parsed > kMaxWidth ? kMaxWidth : int(parsed);
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
    const bool data = !options.json.empty() || !options.dat.empty();
    if (options.pixelsPerSecond > 0 && !data) {
        throw CLI::ValidationError("--pixels-per-second", "is for --json and --dat");
    }
    if (options.pixelsPerSecond > 0 && options.width > 0) {
        throw CLI::ValidationError("--pixels-per-second", "give it or --width, not both");
    }
    if (options.zoom > 0 && !data) throw CLI::ValidationError("--zoom", "is for --json and --dat");
    if (options.zoom > 0 && (options.width > 0 || options.pixelsPerSecond > 0)) {
        throw CLI::ValidationError("--zoom", "give it, --width or --pixels-per-second, not two");
    }
    if (options.averageChannels && !data) throw CLI::ValidationError("--average-channels", "is for --json and --dat");
    if (options.splitChannels && !data) throw CLI::ValidationError("--split-channels", "is for --json and --dat");
    if (options.splitChannels && options.averageChannels) {
        throw CLI::ValidationError("--split-channels", "give it or --average-channels, not both");
    }
    if (!options.amplitudeScale.empty()) {
        if (!data) throw CLI::ValidationError("--amplitude-scale", "is for --json and --dat");
        if (options.amplitudeScale == "auto") {
            options.scale = 0;
        } else {
            char* end = nullptr;
            options.scale = std::strtod(options.amplitudeScale.c_str(), &end);
            if (end == options.amplitudeScale.c_str() || *end != '\0' || !(options.scale > 0) ||
                !(options.scale <= 1e6)) {
                throw CLI::ValidationError("--amplitude-scale", "'" + options.amplitudeScale +
                                                                    "' is not a number above 0 (up to 1000000) "
                                                                    "or auto");
            }
        }
    }
    if ((!options.colors.empty() || options.transparent) && options.png.empty()) {
        throw CLI::ValidationError(options.transparent ? "--transparent" : "--colors", "is for --png");
    }
    if (!options.colors.empty() && !parseColourList(options.colors, options.style, why)) {
        throw CLI::ValidationError("--colors", why);
    }
    if (options.transparent) options.style.background.alpha = 0;
    options.style.scale = options.decibels ? Scale::Decibels : Scale::Linear;
}

// The picture is always a PNG: a name promising another kind would mislead.
// Standard output has no name to mislead with.
bool namesAPng(const std::string& path) {
    if (path == "-") return true;
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return false;
    std::string suffix = path.substr(dot);
    for (char& c : suffix) c = char(std::tolower(static_cast<unsigned char>(c)));
    return suffix == ".png";
}

// Where the result line of an output goes: with the messages when the
// output itself is on standard output, so that nothing follows its data.
FILE* resultStream(const std::string& path) { return path == "-" ? stderr : stdout; }

void printText(const std::vector<int16_t>& minMax, int rows, Scale scale, uint32_t fromMs, uint32_t toMs) {
    for (const std::string& line : drawTextWaveform(minMax, rows, scale)) std::printf("%s\n", line.c_str());
    // The times of the first and last columns under the picture.
    const std::string left = formatTimeMs(fromMs);
    const std::string right = formatTimeMs(toMs);
    const int gap = int(minMax.size() / 2) - int(left.size()) - int(right.size());
    std::printf("%s%*s%s\n", left.c_str(), gap > 1 ? gap : 1, "", right.c_str());
}

// Every output is checked before anything is loaded: a bad name costs no
// decoding.
bool examineOutputs(const WaveformOptions& options, Overwrite overwrite, std::vector<Output>& outputs) {
    for (const std::string* path : {&options.png, &options.json, &options.dat}) {
        if (path->empty()) continue;
        Output output{*path, {}};
        std::string why;
        if (!examineOutput(*path, output.target, why)) {
            reportError(*path, why);
            return false;
        }
        if (isSameFile(*path, options.file)) {
            reportError(*path, sameFileReason(options.file));
            return false;
        }
        for (const Output& earlier : outputs) {
            if (earlier.path == *path || isSameFile(earlier.path, *path)) {
                reportError(*path, "is named for two outputs");
                return false;
            }
        }
        outputs.push_back(output);
    }
    if (!options.png.empty() && !namesAPng(options.png)) {
        reportError(options.png, "does not end in .png, and the picture is a PNG");
        return false;
    }
    // Asked last: nobody is asked about a file that would be refused anyway.
    for (Output& output : outputs) {
        if (!mayReplace(output.target, overwrite)) return false;
    }
    return true;
}

// The sets that make pixels of `perPixel` frames of [first, end) of
// `channel`: the whole pixels in one set, a last, shorter pixel in another.
void addPixelSets(std::vector<WvPeakSet>& sets, uint64_t first, uint64_t end, uint32_t perPixel, int32_t channel) {
    const uint64_t whole = (end - first) / perPixel;
    const uint64_t rest = (end - first) % perPixel;
    if (whole > 0) sets.push_back({uint32_t(first), uint32_t(whole * perPixel), uint32_t(whole), channel});
    if (rest > 0) sets.push_back({uint32_t(first + whole * perPixel), uint32_t(rest), 1, channel});
}

// One scan of `path` with `sets` (see Wavoryx::scanFile): nothing goes to
// the working folder. `lengthOnly`: stops as soon as the file states its
// length exactly (its frames are then that length), else counts them.
// `peaks` (when not null) gets each set's pairs. Returns 0, 1 with the
// failure reported, or the interrupt status.
int scanSource(Session& session, const std::string& path, const std::vector<WvPeakSet>& sets, bool lengthOnly,
               bool tellDamage, LoadedSource& source, std::vector<std::vector<int16_t>>* peaks) {
    Wavoryx& engine = session.engine();
    SourceLoads loads(session);
    loads.scanInstead(sets, false, tellDamage);
    loads.start({path});
    const LoadedSource& scanned = loads.sources()[0];
    Progress progress("loading " + scanned.path.substr(scanned.path.find_last_of('/') + 1), session.options().quiet);
    loads.setProgress(&progress, true);
    int status = 0;
    if (lengthOnly) {
        status = loads.waitUntil([&] { return scanned.begun; }, false);
        if (status == 0 && !scanned.ended && scanned.expectedExact) {
            loads.cancelRunning();
            source = scanned;
            source.frames = scanned.expected;
            engine.removePcm(scanned.id);
            return 0;
        }
    }
    if (status == 0) status = loads.waitUntil([&] { return loads.allEnded(); }, false);
    loads.setProgress(nullptr, false);
    progress.finish(status == 0);
    source = scanned;
    for (size_t i = 0; status == 0 && peaks != nullptr && i < sets.size(); ++i) {
        std::vector<int16_t> pairs(size_t(sets[i].count) * 2);
        if (engine.getScanPeaks(scanned.id, unsigned(i), pairs.data(), sets[i].count) != int32_t(sets[i].count)) {
            reportError(scanned.path, "the engine could not measure its peaks");
            status = 1;
        }
        peaks->push_back(std::move(pairs));
    }
    if (scanned.id > 0) engine.removePcm(scanned.id);
    return status;
}

// Every value times `scale`, rounded toward zero and held to 16 bits; scale
// 0 is the largest that keeps the values within 16 bits (none, for silence).
// Scaling each pixel's extremes equals scaling every sample first: the
// product is monotonic.
void scaleAmplitude(std::vector<int16_t>& minMax, double scale) {
    if (scale == 0) {
        int highest = 0;
        for (int16_t value : minMax) highest = std::max(highest, std::abs(int(value)));
        scale = highest == 0 ? 1.0 : 32767.0 / highest;
    }
    for (int16_t& value : minMax) {
        const double scaled = std::trunc(double(value) * scale);
        value = int16_t(std::clamp(scaled, -32768.0, 32767.0));
    }
}

// The data's pixel size, and the peak sets that make its pixels of frames
// [firstFrame, endFrame): one series of sets per data channel, each
// `perChannel` sets long.
void planData(const WaveformOptions& options, const LoadedSource& source, uint64_t firstFrame, uint64_t endFrame,
              PeakData& data, std::vector<WvPeakSet>& sets, size_t& perChannel) {
    data.sampleRate = source.sampleRate;
    data.bits = options.bits;
    data.sharedRules = options.averageChannels || options.splitChannels;
    const uint64_t frames = endFrame - firstFrame;
    if (options.zoom > 0) {
        data.samplesPerPixel = options.zoom;
    } else if (options.width > 0) {
        // At most --width pixels: the last may be partial.
        data.samplesPerPixel = int32_t(std::max<uint64_t>(1, (frames + uint64_t(options.width) - 1) / options.width));
    } else {
        const int perSecond = options.pixelsPerSecond > 0 ? options.pixelsPerSecond : kDefaultPixelsPerSecond;
        data.samplesPerPixel = std::max(1, (source.sampleRate + perSecond / 2) / perSecond);
    }
    data.channels = options.splitChannels ? source.channels : 1;
    const size_t before = sets.size();
    for (int c = 0; c < data.channels; ++c) {
        const int32_t channel = options.splitChannels      ? c
                                : options.averageChannels ? int32_t(WV_PEAKS_CHANNEL_MEAN)
                                                          : int32_t(WV_PEAKS_ALL_CHANNELS);
        addPixelSets(sets, firstFrame, endFrame, uint32_t(data.samplesPerPixel), channel);
    }
    perChannel = (sets.size() - before) / size_t(data.channels);
}

// Each data channel's pixels from its sets' pairs, interleaved pixel by pixel.
void gatherData(const std::vector<std::vector<int16_t>>& peaks, size_t firstSet, size_t perChannel,
                PeakData& data) {
    std::vector<std::vector<int16_t>> channels(size_t(data.channels));
    for (size_t c = 0; c < channels.size(); ++c) {
        for (size_t k = 0; k < perChannel; ++k) {
            const std::vector<int16_t>& pairs = peaks[firstSet + c * perChannel + k];
            channels[c].insert(channels[c].end(), pairs.begin(), pairs.end());
        }
    }
    const size_t pixels = channels[0].size() / 2;
    data.minMax.clear();
    data.minMax.reserve(pixels * 2 * channels.size());
    for (size_t p = 0; p < pixels; ++p) {
        for (const std::vector<int16_t>& pairs : channels) {
            data.minMax.insert(data.minMax.end(), {pairs[2 * p], pairs[2 * p + 1]});
        }
    }
}

bool writeDataFiles(const WaveformOptions& options, PeakData& data,
                    const std::vector<Output>& outputs, std::string& failedPath, std::string& why) {
    if (!options.amplitudeScale.empty()) scaleAmplitude(data.minMax, options.scale);
    for (const Output& output : outputs) {
        const bool json = output.path == options.json;
        if (output.path != options.json && output.path != options.dat) continue;
        failedPath = output.path;
        if (interruptSignal() != 0) return false;
        if (!writeOutput(json ? jsonText(data) : datBytes(data), output.target, why)) return false;
    }
    return true;
}

int runWaveform(const WaveformOptions& options, const GlobalOptions& global) {
    std::vector<Output> outputs;
    if (!examineOutputs(options, global.overwrite, outputs)) return interruptSignal() != 0 ? interruptExitStatus() : 1;
    const bool png = !options.png.empty();
    const bool data = !options.json.empty() || !options.dat.empty();
    Session session(global);
    if (!session.open(options.file == "-")) return interruptSignal() != 0 ? interruptExitStatus() : 1;
    // The file is scanned, never loaded: no audio goes to the working
    // folder. The frames come first (stated exactly, or counted), since
    // the bins depend on them; a scan that counts otherwise is done again.
    LoadedSource source;
    int status = scanSource(session, options.file, {}, true, true, source, nullptr);
    if (status != 0) return status;
    bool damageTold = source.ended;
    uint32_t toMs = 0;
    int width = 0;
    PeakData peakData;
    std::vector<std::vector<int16_t>> peaks;
    size_t perChannel = 0;
    for (;;) {
        const uint64_t duration = source.durationMs();
        toMs = options.hasTo && options.toMs < duration ? options.toMs : uint32_t(duration);
        if (options.fromMs >= toMs) {
            reportError(source.path, "nothing to draw from " + formatTimeMs(options.fromMs) + ": the file lasts " +
                                         formatTimeMs(duration));
            return 1;
        }
        const uint64_t firstFrame = uint64_t(options.fromMs) * uint32_t(source.sampleRate) / 1000;
        const uint64_t endFrame = endFrameAtMs(toMs, source.sampleRate, source.frames);
        std::vector<WvPeakSet> sets;
        if (png || !data) {
            width = options.width > 0 ? options.width : png ? kDefaultPngWidth : terminalColumns();
            sets.push_back({uint32_t(firstFrame), uint32_t(endFrame - firstFrame), uint32_t(width),
                            WV_PEAKS_ALL_CHANNELS});
        }
        if (data) planData(options, source, firstFrame, endFrame, peakData, sets, perChannel);
        LoadedSource scanned;
        peaks.clear();
        status = scanSource(session, options.file, sets, false, !damageTold, scanned, &peaks);
        if (status != 0) return status;
        damageTold = true;
        if (scanned.frames == source.frames) break;
        source = scanned;
    }
    if (interruptSignal() != 0) return interruptExitStatus();
    std::string why;
    if (png || !data) {
        const int height = options.height > 0 ? options.height : png ? kDefaultPngHeight : kDefaultTextRows;
        const std::vector<int16_t>& minMax = peaks[0];
        if (!png) {
            printText(minMax, height, options.style.scale, options.fromMs, toMs);
        } else {
            std::string png;
            if (!drawWaveformPng(minMax, height, options.fromMs, toMs, options.style, png, why) ||
                !writeOutput(png, outputs[0].target, why)) {
                if (interruptSignal() != 0) return interruptExitStatus();
                reportError(options.png, why);
                return 1;
            }
            if (!global.quiet) {
                std::fprintf(resultStream(options.png), "wrote %s: %dx%d, %s to %s of %s\n", options.png.c_str(),
                             width, height,
                            formatTimeMs(options.fromMs).c_str(), formatTimeMs(toMs).c_str(), source.path.c_str());
            }
        }
    }
    std::string failedPath;
    if (data) gatherData(peaks, png || !data ? 1 : 0, perChannel, peakData);
    if (data && !writeDataFiles(options, peakData, outputs, failedPath, why)) {
        if (interruptSignal() != 0) return interruptExitStatus();
        if (!failedPath.empty()) reportError(failedPath, why);
        return 1;
    }
    if (data && !global.quiet) {
        for (const std::string* path : {&options.json, &options.dat}) {
            if (!path->empty()) {
                std::fprintf(resultStream(*path), "wrote %s: %s to %s of %s\n", path->c_str(),
                             formatTimeMs(options.fromMs).c_str(), formatTimeMs(toMs).c_str(), source.path.c_str());
            }
        }
    }
    return 0;
}

}  // namespace

void addWaveformCommand(CLI::App& app, CommandLine& line) {
    auto options = std::make_shared<WaveformOptions>();
    CLI::App* waveform = app.add_subcommand(
        "waveform", "Draw the waveform of an audio file in the terminal or as a PNG, or write its peaks as data");
    waveform->add_option("FILE", options->file, "An audio file; - is standard input")->required();
    waveform->add_option("--from", options->from, "Start time (default 0)")->type_name("T");
    waveform->add_option("--to", options->to, "End time (default: the end)")->type_name("T");
    waveform
        ->add_option("--width", options->width,
                     "Columns (default: the terminal's width; 800 for --png); with --json/--dat: at most N pixels")
        ->check(wholeNumberIn(1, kMaxWidth));
    waveform->add_option("--height", options->height, "Text rows (default 8), or PNG pixels (default 200)")
        ->check(wholeNumberIn(1, kMaxHeight));
    waveform->add_flag("--db", options->decibels, "Logarithmic height: -60 dB at the centre line, 0 dBFS at the edge");
    waveform->add_option("--png", options->png, "Write a PNG picture to PATH instead")->type_name("PATH");
    waveform
        ->add_option("--colors", options->colors,
                     "PNG colours WAVE[,BACKGROUND[,AXIS]], each #rrggbb or #rrggbbaa "
                     "(default #2060c0,#fafafa,#606060)")
        ->type_name("LIST");
    waveform->add_flag("--transparent", options->transparent, "PNG background fully transparent");
    waveform->add_option("--json", options->json, "Write the peaks as JSON waveform data to PATH")->type_name("PATH");
    waveform->add_option("--dat", options->dat, "Write the peaks as binary waveform data to PATH")->type_name("PATH");
    waveform->add_option("--bits", options->bits, "Data values of 8 or 16 bits (default 16)")
        ->check(oneOf({"8", "16"}));
    waveform
        ->add_option("--pixels-per-second", options->pixelsPerSecond,
                     "Data pixels per second of audio (default 100), instead of --width")
        ->check(wholeNumberIn(1, 48000));
    waveform
        ->add_option("-z,--zoom", options->zoom,
                     "Data pixels of N frames each (samples per pixel), instead of --width or --pixels-per-second")
        ->type_name("N")
        ->check(wholeNumberIn(1, 100000000));
    waveform->add_flag("--average-channels", options->averageChannels,
                       "Data from the mean of the channels instead of their extremes");
    waveform->add_flag("--split-channels", options->splitChannels,
                       "Data with one channel per audio channel, each its own extremes");
    waveform
        ->add_option("--amplitude-scale", options->amplitudeScale,
                     "Data values times X (rounded toward zero, held to 16 bits), or auto: as high as fits")
        ->type_name("X|auto");
    waveform->footer(std::string("Times as ") + kTimeForms + ".\n" +
                     "Each column (or data pixel) shows the lowest and the highest sample of its\n"
                     "stretch over all channels, as they are: a signal that stays above zero is\n"
                     "drawn above the centre line only. --db draws each sample's level in dB on\n"
                     "its own side of the centre: from -60 dB (and below) at the centre line to\n"
                     "0 dBFS at the edge, so quiet passages stay visible.\n"
                     "The PNG has a time axis (m:ss, h:mm:ss past an hour) when it is at least\n"
                     "64 pixels high.\n"
                     "--json and --dat write waveform data version 2: one channel (all channels\n"
                     "merged), samples_per_pixel frames per pixel from --from on, the last pixel\n"
                     "possibly shorter; with --bits 8 each value is the 16-bit one divided by 256,\n"
                     "rounded down. Without --png they replace the terminal drawing.\n"
                     "--average-channels makes each frame one value, the sum of its channels\n"
                     "divided by their number, rounded toward zero, and takes the extremes of those:\n"
                     "the values other waveform data tools write by default. It is an option so that\n"
                     "the default data keep showing every channel's true peaks (a channel in\n"
                     "opposite phase to the other averages to silence). For the same data as those\n"
                     "tools give with -z N: --zoom N --average-channels. --split-channels writes one\n"
                     "data channel per audio channel instead.\n"
                     "With either, the data follow those tools' rules to the byte: 8-bit values are\n"
                     "the 16-bit ones divided by 256 rounded toward zero, and a --dat of one channel\n"
                     "is version 1 (no channel count). MP3s still lose their encoder delay and\n"
                     "padding here, so their data can be a few pixels shorter.\n"
                     "Files of more than two channels are loaded as stereo: the data are of that.\n"
                     "Examples:\n"
                     "  wavoryx waveform song.mp3\n"
                     "  wavoryx waveform song.mp3 --from 0:30 --to 0:45 --width 60 --height 4 --db\n"
                     "  wavoryx waveform song.mp3 --png song.png --width 1200 --height 300\n"
                     "  wavoryx waveform song.mp3 --png song.png --colors '#ff8800,#202020' --transparent\n"
                     "  wavoryx waveform song.mp3 --json song.json --dat song.dat --pixels-per-second 50 --bits 8\n"
                     "  wavoryx waveform song.wav --dat song.dat -z 256 --average-channels --amplitude-scale auto");
    waveform->callback([options, &line] {
        checkWaveformOptions(*options);
        line.run = [options, &line] { return runWaveform(*options, line.global); };
    });
}

}  // namespace wvcli
