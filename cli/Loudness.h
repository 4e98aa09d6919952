// Loudness of loaded files for `wavoryx info --loudness`: one measurement
// (Wavoryx::measureLoudness) per file, started right after its load so that
// it follows the decoding, with the loads' events taken on the way.
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

// Measures every source of `loads` (which were just started) and waits for
// every load and measurement to end, showing the mean progress. `figures`
// gets one entry per source, in the order of loads.sources(). Returns 0,
// 1 when a load or measurement failed (its line printed), or the interrupt
// status after cancelling everything.
int measureLoudness(Session& session, SourceLoads& loads, std::vector<LoudnessFigures>& figures);

// "-23.1" or "-inf"; JSON's form is a number or null.
std::string tenthsText(int32_t tenths);
std::string tenthsJson(int32_t tenths);

}  // namespace wvcli

#endif
