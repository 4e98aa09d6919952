// The silences of an item, found by the engine (Wavoryx::scanSilence), for
// the commands that show them (silence), cut at them (split) or shorten them
// (edit --shorten-silence, --trim-silence).
#ifndef WAVORYX_CLI_SILENCES_H
#define WAVORYX_CLI_SILENCES_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
}

namespace wvcli {

class Session;
class SourceLoads;

// What counts as a silence: every channel below thresholdDb (dBFS) for at
// least minSeconds.
struct SilenceChoice {
    double thresholdDb = -50.0;
    double minSeconds = 1.0;
    int tenthsDb() const;
    unsigned minMs() const;
};

// [start, end) frames of the item scanned, in order.
using Silences = std::vector<std::pair<uint32_t, uint32_t>>;

// Adds the two options, named `threshold` and `min` (with their dashes).
void addSilenceOptions(CLI::App* command, SilenceChoice& choice, const std::string& threshold,
                       const std::string& min);

// Scans item `id` (a loaded file, possibly still loading, or a list) and
// waits for the silences, with a progress bar; `loads` (may be null) takes
// the events of loads that go on meanwhile. A failure is reported against
// `shownPath`. Returns 0, 1 or the interrupt status.
int findSilences(Session& session, int id, const SilenceChoice& choice, SourceLoads* loads,
                 const std::string& shownPath, Silences& out);

// The item's length and rate as its last scan read them (a list's output
// frames); false when no scan ended.
bool scannedLength(Session& session, int id, uint32_t* frames, int* rate);

}  // namespace wvcli

#endif
