// edit's silence options: --shorten-silence MAX, --trim-silence and the
// detection they use (--silence-threshold, --silence-min), and --declick.
//
// The edited list is scanned for its silences (Wavoryx::scanSilence) and
// rendered through a second list whose clips are the parts of the first
// that are kept:
//   --shorten-silence MAX  a silence longer than MAX inside the audio keeps
//                          its first MAX/2 and its last MAX/2 (the ends next
//                          to the sound: a breath's tail and the next
//                          word's lead-in stay); a silence at the start
//                          keeps its last MAX, one at the end its first MAX.
//   --trim-silence         the silence at the start and at the end goes,
//                          but for the fade's length next to the sound.
// Every cut gets a fade out and a fade in of `fadeMs` (10 ms, or --declick's
// length), within the silence kept, so no join clicks. --declick MS takes
// milliseconds (a bare number), or a time with its unit.
#ifndef WAVORYX_CLI_SILENCECUTS_H
#define WAVORYX_CLI_SILENCECUTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Silences.h"

namespace CLI {
class App;
}

namespace wvcli {

constexpr uint32_t kCutFadeMs = 10;

struct SilenceCutChoice {
    SilenceChoice detect;
    std::string shortenText;             // as given; parsed into shortenMs
    std::optional<uint32_t> shortenMs;   // --shorten-silence
    bool trim = false;                   // --trim-silence
    std::string declickText;             // as given; parsed into declickMs
    std::optional<uint32_t> declickMs;   // --declick
    bool wanted() const { return shortenMs.has_value() || trim; }
    uint32_t fadeMs() const { return declickMs.value_or(kCutFadeMs); }
};

// A part of the list kept, [from, to) in its frames, and whether a cut lies
// at each side (a fade goes there).
struct KeptPart {
    uint32_t from = 0;
    uint32_t to = 0;
    bool cutBefore = false;
    bool cutAfter = false;
};

// The options, on edit.
void addSilenceCutOptions(CLI::App* edit, SilenceCutChoice& choice);
// Parses the texts the options' checks accepted.
void settleSilenceCuts(SilenceCutChoice& choice);

// What is kept of `frames` frames at `rate` with these silences.
std::vector<KeptPart> keptParts(const Silences& silences, uint32_t frames, int rate, const SilenceCutChoice& choice);

// The fades of the output's start and end (--fade-in, --fade-out).
struct EdgeFades {
    std::optional<uint32_t> inMs;
    std::optional<uint32_t> outMs;
};

// Scans list `list` (its encode parameters set as the output's) and makes
// *cutList, a list of its kept parts with their fades in `shape`: at a cut
// the cut's short fade, at the output's first start and last end `edges`
// when given. `loads` as for findSilences. Returns 0, 1 (reported against
// shownPath) or the interrupt status.
int cutSilences(Session& session, int list, const SilenceCutChoice& choice, const EdgeFades& edges, int shape,
                SourceLoads* loads,
                const std::string& shownPath, int* cutList);

}  // namespace wvcli

#endif
