// The edit command's options: what they hold once parsed, and the checks
// and option definitions that need more than one of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <wavoryx/Wavoryx.h>
#include <CLI/CLI.hpp>

#include "EditTags.h"
#include "Encoding.h"
#include "SilenceCuts.h"
#include "TimeSpec.h"

namespace wvcli {

// -1.0 dBTP: room for the coding error of lossy formats.
constexpr int kDefaultTruePeakTenths = -10;

struct EditOptions {
    std::vector<std::string> sources;
    std::string output;
    int rate = 0;
    int channels = 0;
    // The list's converter for sources at other rates: 0 linear, 1 high,
    // 2 very high (the values of setResampleQuality).
    int resample = 1;
    // Encoder threads (setEncodeThreads); 0: one per core.
    int threads = 0;
    EncodingChoice encoding;
    std::vector<SourceRange> ranges;  // parsed from `sources`
    // Effects as written; each is parsed (by checkEditOptions) only when given.
    std::string fadeInText, fadeOutText, crossfadeText, gainText, loudnessText, truePeakText;
    int fadeShape = WV_FADE_EQUAL_POWER;
    bool normalize = false;
    bool truePeakGiven = false;
    bool denoiseGiven = false;
    std::optional<uint32_t> fadeInMs, fadeOutMs, crossfadeMs;
    std::optional<int32_t> gainMillibels;
    // A word after --normalize or --denoise that is not a number: a source,
    // not the option's value (the option's name, the word).
    std::vector<std::pair<std::string, std::string>> sourcesAfterOptions;
    std::string denoiseText;
    std::string tempoText;
    int denoiseDb = 0;
    int tempoPercent = 100;
    int lufsTenths = 0;
    int truePeakTenths = kDefaultTruePeakTenths;
    SilenceCutChoice silence;  // --shorten-silence, --trim-silence, --declick
    TagOptions tags;
};

// Usage checks that need more than one option; thrown as usage errors.
void checkEditOptions(EditOptions& options);

// The sources in the order given, with the words taken back from --normalize
// and --denoise where they stood.
void placeSourcesAfterOptions(const CLI::App& edit, const CLI::Option& sources, EditOptions& options);

// --fade-in, --fade-out, --fade-shape, --crossfade, --gain, --normalize,
// --true-peak, --denoise and --tempo (after SOURCE, which they may give
// words back to).
void addEffectOptions(CLI::App* edit, EditOptions& options);

}  // namespace wvcli
