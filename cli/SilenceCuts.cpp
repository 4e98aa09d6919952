#include "SilenceCuts.h"

#include <algorithm>
#include <cmath>

#include <CLI/CLI.hpp>
#include <wavoryx/Wavoryx.h>

#include "Jobs.h"
#include "OptionChecks.h"
#include "Session.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

std::optional<uint32_t> timeOf(const std::string& text) {
    if (text.empty()) return std::nullopt;
    uint32_t ms = 0;
    std::string why;
    parseTimeMs(text, ms, why);
    return ms;
}

// --declick's length: a bare number is milliseconds (5 is 5 ms), as the
// option's name says; a time with a unit as elsewhere (5ms, 0.005s).
bool declickMs(const std::string& text, uint32_t& ms, std::string& why) {
    double value = 0;
    if (parseDecimal(text, value)) {
        if (value < 0 || value > 10000) {
            why = text + " is out of range: use 0 to 10000 ms";
            return false;
        }
        ms = uint32_t(std::lround(value));
        return true;
    }
    return parseTimeMs(text, ms, why);
}

uint32_t framesOfMs(uint64_t ms, int rate) { return uint32_t(ms * uint32_t(rate) / 1000); }

}  // namespace

void addSilenceCutOptions(CLI::App* edit, SilenceCutChoice& choice) {
    edit->add_option("--shorten-silence", choice.shortenText,
                     "Shorten every silence longer than TIME to TIME: its ends next to the sound are kept, the "
                     "middle goes, with 10 ms fades at the cut (see --silence-threshold, --silence-min)")
        ->check(timeText())
        ->type_name("TIME");
    edit->add_flag("--trim-silence", choice.trim,
                   "Remove the silence at the start and at the end, but for 10 ms next to the sound, faded");
    addSilenceOptions(edit, choice.detect, "--silence-threshold", "--silence-min");
    edit->add_option("--declick", choice.declickText,
                     "Fade out and in over MS milliseconds at every join that has no crossfade, and at the cuts of "
                     "--shorten-silence and --trim-silence (default: joins as they are)")
        ->check(CLI::Validator(
            [](std::string& input) -> std::string {
                uint32_t ms = 0;
                std::string why;
                return declickMs(input, ms, why) ? std::string() : why;
            },
            ""))
        ->type_name("MS");
}

void settleSilenceCuts(SilenceCutChoice& choice) {
    choice.shortenMs = timeOf(choice.shortenText);
    choice.declickMs.reset();
    uint32_t ms = 0;
    std::string why;
    if (!choice.declickText.empty() && declickMs(choice.declickText, ms, why)) choice.declickMs = ms;
}

std::vector<KeptPart> keptParts(const Silences& silences, uint32_t frames, int rate, const SilenceCutChoice& choice) {
    const uint32_t fade = framesOfMs(choice.fadeMs(), rate);
    const bool shorten = choice.shortenMs.has_value();
    const uint32_t most = shorten ? framesOfMs(*choice.shortenMs, rate) : 0;
    std::vector<std::pair<uint32_t, uint32_t>> removed;
    for (const auto& s : silences) {
        const uint32_t length = s.second - s.first;
        if (s.first == 0 && s.second >= frames) {
            // Silence throughout: trimmed to nothing, or shortened to MAX.
            if (choice.trim) removed.emplace_back(0, frames);
            else if (shorten && length > most) removed.emplace_back(most, frames);
        } else if (s.first == 0) {
            if (choice.trim) removed.emplace_back(0, s.second - std::min(fade, length));
            else if (shorten && length > most) removed.emplace_back(0, s.second - most);
        } else if (s.second >= frames) {
            if (choice.trim) removed.emplace_back(s.first + std::min(fade, length), frames);
            else if (shorten && length > most) removed.emplace_back(s.first + most, frames);
        } else if (shorten && length > most) {
            removed.emplace_back(s.first + most / 2, s.second - (most - most / 2));
        }
    }
    std::vector<KeptPart> kept;
    uint32_t at = 0;
    for (const auto& r : removed) {
        if (r.first > at) kept.push_back({at, r.first, at > 0, true});
        at = std::max(at, r.second);
    }
    if (frames > at) kept.push_back({at, frames, at > 0, false});
    return kept;
}

int cutSilences(Session& session, int list, const SilenceCutChoice& choice, const EdgeFades& edges, int shape,
                SourceLoads* loads,
                const std::string& shownPath, int* cutList) {
    Wavoryx& engine = session.engine();
    Silences silences;
    const int status = findSilences(session, list, choice.detect, loads, shownPath, silences);
    if (status != 0) return status;
    int rate = 0;
    uint32_t frames = 0;
    if (!scannedLength(session, list, &frames, &rate)) {
        reportError(shownPath, "the edited audio has no length to cut");
        return 1;
    }
    const std::vector<KeptPart> kept = keptParts(silences, frames, rate, choice);
    if (kept.empty()) {
        reportError(shownPath, "nothing but silence is left to write");
        return 1;
    }
    const int cut = engine.newClipList();
    *cutList = cut;
    // A fade stays within the silence kept next to its cut.
    uint32_t fadeMs = choice.fadeMs();
    if (choice.shortenMs) fadeMs = std::min(fadeMs, *choice.shortenMs / 2);
    for (size_t i = 0; i < kept.size(); ++i) {
        const KeptPart& part = kept[i];
        uint32_t in = part.cutBefore ? fadeMs : 0;
        uint32_t out = part.cutAfter ? fadeMs : 0;
        if (i == 0 && edges.inMs) in = *edges.inMs;
        if (i + 1 == kept.size() && edges.outMs) out = *edges.outMs;
        const int clip = engine.addClip(cut, list, part.from, part.to);
        if (clip < 0 || engine.setClipFade(cut, clip, in, out, shape) != 0) {
            reportError(shownPath, "the engine refused a part of the cut");
            return 1;
        }
    }
    return 0;
}

}  // namespace wvcli
