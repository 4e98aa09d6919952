#include "EditOptions.h"

#include <cmath>

#include "OptionChecks.h"

namespace wvcli {
namespace {

constexpr const char* kDefaultLoudness = "-16";
// Of --denoise given alone: on speech with noise 20 dB below it, the noise
// between words drops by about 14 dB and the speech's loudness stays within 1 LU.
constexpr const char* kDefaultDenoise = "20";
constexpr int kMostDenoiseDb = 97;

// Parsed values of texts that their option's check has accepted.
std::optional<uint32_t> timeIfGiven(const std::string& text) {
    if (text.empty()) return std::nullopt;
    uint32_t ms = 0;
    std::string why;
    parseTimeMs(text, ms, why);
    return ms;
}

int tenthsOf(const std::string& text) {
    double value = 0;
    parseDecimal(text, value);
    return int(std::lround(value * 10));
}

// A decimal number within [lowest, highest] once rounded to `perUnit`ths.
CLI::Validator decimalIn(int lowest, int highest, int perUnit, const std::string& unit) {
    const std::string accepted = "use " + std::to_string(lowest) + " to " + std::to_string(highest) + " " + unit;
    return CLI::Validator(
        [=](std::string& input) -> std::string {
            double value = 0;
            if (!parseDecimal(input, value)) return "'" + input + "' is not a number: " + accepted;
            const long rounded = std::lround(value * perUnit);
            if (rounded < long(lowest) * perUnit || rounded > long(highest) * perUnit) {
                return input + " is out of range: " + accepted;
            }
            return std::string();
        },
        "[" + std::to_string(lowest) + " to " + std::to_string(highest) + "]");
}

// An optional value that must be a number: a word that is none goes back to
// the sources (which count it before their requirement is checked).
CLI::Validator numberOrSource(CLI::Validator number, CLI::Option* sources, EditOptions& options,
                              const std::string& name) {
    return CLI::Validator(
        [number, sources, &options, name](std::string& input) -> std::string {
            double value = 0;
            if (input.empty() || parseDecimal(input, value)) return number(input);
            for (const auto& word : options.sourcesAfterOptions) {
                if (word.first == name) {
                    input.clear();
                    return std::string();
                }
            }
            options.sourcesAfterOptions.emplace_back(name, input);
            sources->add_result(input);
            input.clear();
            return std::string();
        },
        number.get_description());
}

}  // namespace

void checkEditOptions(EditOptions& options) {
    options.ranges.clear();
    for (const std::string& text : options.sources) {
        SourceRange range;
        std::string why;
        if (!parseSourceRange(text, range, why)) throw CLI::ValidationError("SOURCE", why);
        options.ranges.push_back(range);
    }
    settleEncoding(options.encoding, options.output);
    if (options.truePeakGiven && !options.normalize) {
        throw CLI::ValidationError("--true-peak", "is the ceiling of --normalize: give both or neither");
    }
    options.fadeInMs = timeIfGiven(options.fadeInText);
    options.fadeOutMs = timeIfGiven(options.fadeOutText);
    options.crossfadeMs = timeIfGiven(options.crossfadeText);
    options.gainMillibels.reset();
    if (!options.gainText.empty()) {
        int32_t millibels = 0;
        std::string why;
        parseGainMillibels(options.gainText, millibels, why);
        options.gainMillibels = millibels;
    }
    options.denoiseDb = 0;
    if (options.denoiseGiven) {
        double value = 0;
        parseDecimal(options.denoiseText.empty() ? kDefaultDenoise : options.denoiseText, value);
        options.denoiseDb = int(std::lround(value));
    }
    options.tempoPercent = 100;
    if (!options.tempoText.empty()) {
        double value = 0;
        parseDecimal(options.tempoText, value);
        options.tempoPercent = int(std::lround(value * 100));
    }
    if (options.normalize) {
        options.lufsTenths = tenthsOf(options.loudnessText.empty() ? kDefaultLoudness : options.loudnessText);
        if (options.truePeakGiven) options.truePeakTenths = tenthsOf(options.truePeakText);
    }
    settleSilenceCuts(options.silence);
    checkTagOptions(options.tags);
}

void placeSourcesAfterOptions(const CLI::App& edit, const CLI::Option& sources, EditOptions& options) {
    std::vector<std::string> given = sources.results();
    auto& taken = options.sourcesAfterOptions;
    for (auto word = taken.rbegin(); word != taken.rend(); ++word) {
        if (!given.empty() && given.back() == word->second) given.pop_back();
    }
    std::vector<std::string> ordered;
    size_t next = 0;
    for (const CLI::Option* option : edit.parse_order()) {
        if (option == &sources && next < given.size()) ordered.push_back(given[next++]);
        for (const auto& word : taken) {
            if (option->get_name() == word.first) ordered.push_back(word.second);
        }
    }
    ordered.insert(ordered.end(), given.begin() + long(next), given.end());
    options.sources = ordered;
    taken.clear();
}

void addEffectOptions(CLI::App* edit, EditOptions& options) {
    edit->add_option("--fade-in", options.fadeInText,
                     std::string("Fade the start of the output in from silence over TIME (the first range's "
                                 "fade-in; its own fade-in= wins); times as ") +
                         kTimeForms)
        ->check(timeText())
        ->type_name("TIME");
    edit->add_option("--fade-out", options.fadeOutText,
                     "Fade the end of the output out to silence over TIME (the last range's fade-out; its own "
                     "fade-out= wins)")
        ->check(timeText())
        ->type_name("TIME");
    edit->add_option("--fade-shape", options.fadeShape,
                     "Curve of every fade: equal-power (default; a quarter sine, heard as smoother than a straight "
                     "line), linear, or log (straight in dB from -60 dB)")
        ->transform(indexOf({"linear", "equal-power", "log"}))
        ->type_name("NAME");
    edit->add_option("--crossfade", options.crossfadeText,
                     "Overlap every join by TIME, equal power (the output gets shorter by TIME per join; at most "
                     "half of the shorter clip)")
        ->check(timeText())
        ->type_name("TIME");
    edit->add_option("--gain", options.gainText,
                     "Gain of the whole output in dB, -96 to 24, decimals allowed (-3.5); per range: "
                     "FILE@FROM-TO:gain=DB")
        ->check(decimalIn(kLowestGainDb, kHighestGainDb, 100, "dB"))
        ->type_name("DB");
    // Its value is optional, so the parser would take the next word for it
    // whatever it is: one that is no number goes back to the sources
    // (which count it before their requirement is checked).
    CLI::Option* sources = edit->get_option("SOURCE");
    edit->add_option("--normalize", options.loudnessText,
                     std::string("Bring the integrated loudness to LUFS, -70 to -5 (default ") + kDefaultLoudness +
                         " when given alone), with a true-peak limiter; the audio is read twice")
        ->expected(0, 1)
        ->default_str(kDefaultLoudness)
        ->transform(numberOrSource(decimalIn(-70, -5, 10, "LUFS"), sources, options, "--normalize"))
        ->type_name("LUFS");
    edit->add_option("--true-peak", options.truePeakText, "Ceiling of --normalize in dBTP, -20 to 0 (default -1)")
        ->check(decimalIn(-20, 0, 10, "dBTP"))
        ->type_name("DBTP");
    edit->add_option("--denoise", options.denoiseText,
                     std::string("Reduce steady background noise (hiss, hum, room) by about DB, 1 to 97 (default ") +
                         kDefaultDenoise + " when given alone), with FFmpeg's afftdn; the output keeps its length")
        ->expected(0, 1)
        ->default_str(kDefaultDenoise)
        ->transform(numberOrSource(decimalIn(1, kMostDenoiseDb, 1, "dB"), sources, options, "--denoise"))
        ->type_name("DB");
    edit->add_option("--tempo", options.tempoText,
                     "Play FACTOR times as fast without changing the pitch, 0.5 to 2 in steps of 0.01 (1.25: a "
                     "quarter faster, the output lasts 1/1.25 as long)")
        ->check(CLI::Validator(
            [](std::string& input) -> std::string {
                double value = 0;
                const std::string accepted = "use 0.5 to 2";
                if (!parseDecimal(input, value)) return "'" + input + "' is not a number: " + accepted;
                const long percent = std::lround(value * 100);
                if (percent < 50 || percent > 200) return input + " is out of range: " + accepted;
                return std::string();
            },
            "[0.5 to 2]"))
        ->type_name("FACTOR");
}

}  // namespace wvcli
