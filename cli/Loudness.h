// Loudness of files for `wavoryx info --loudness`, measured by their scans
// (Wavoryx::scanFile with loudness), which keep no audio.
#ifndef WAVORYX_CLI_LOUDNESS_H
#define WAVORYX_CLI_LOUDNESS_H

#include <cstdint>
#include <string>
#include <vector>

namespace wvcli {

class Session;
class SourceLoads;

// One file's figures in tenths, as the engine's events 26, 27 and 28 carry
// them; INT32_MIN stands for minus infinity (silence).
struct LoudnessFigures {
    bool measured = false;
    int32_t integrated = INT32_MIN;  // LUFS
    int32_t truePeak = INT32_MIN;    // dBTP
    int32_t range = 0;               // LU
};

// Waits for every scan of `loads` (started with loudness) to end, showing
// the mean progress, and takes their loudness. `figures`
// gets one entry per source, in the order of loads.sources(). Returns 0,
// 1 when a scan failed (its line printed), or the interrupt status after
// cancelling everything.
int measureLoudness(Session& session, SourceLoads& loads, std::vector<LoudnessFigures>& figures);

// "-23.1" or "-inf"; JSON's form is a number or null.
std::string tenthsText(int32_t tenths);
std::string tenthsJson(int32_t tenths);

}  // namespace wvcli

#endif
