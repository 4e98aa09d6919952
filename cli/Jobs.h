// The two long jobs of the command, each run to its end while showing its
// progress and watching for Ctrl-C and the other ending signals:
//   loadSources  loads files into the engine (events 6, 3, then 4 or a
//                failure 0, 5, 7), each distinct path once;
//   renderList   renders a clip list to its output file (events 21, then 22
//                or a failure 20, 23, 25).
// On a signal they cancel through the engine (cancelLoadFile,
// cancelProcess), wait up to 10 s for the engine to confirm, remove a
// partial output and return the interrupt status (128 + the signal).
// Failures are reported as one line "wavoryx: FILE: reason" and return 1.
#ifndef WAVORYX_CLI_JOBS_H
#define WAVORYX_CLI_JOBS_H

#include <cstdint>
#include <string>
#include <vector>

namespace wvcli {

class Session;

struct LoadedSource {
    std::string path;
    int id = 0;
    bool ok = false;
    int sampleRate = 0;
    int channels = 0;
    uint32_t frames = 0;

    uint64_t durationMs() const { return sampleRate > 0 ? uint64_t(frames) * 1000 / uint32_t(sampleRate) : 0; }
};

// Loads `paths` (duplicates once) into `sources`, one entry per distinct
// path in first-seen order. Returns 0 when all loaded, 1 when some failed
// (their lines printed, their entries not ok), or the interrupt status.
int loadSources(Session& session, const std::vector<std::string>& paths, std::vector<LoadedSource>& sources);

// The entry of `path` in `sources`, or nullptr.
const LoadedSource* findSource(const std::vector<LoadedSource>& sources, const std::string& path);

// Renders clip list `listId`, whose output was set to `workPath` (in the
// working folder); failures are reported against `shownPath`, the file the
// user named. The engine's waveform file "<workPath>.wave" is removed in
// every case, and so is `workPath` unless the render finished. Returns 0,
// 1 or the interrupt status.
int renderList(Session& session, int listId, const std::string& workPath, const std::string& shownPath);

}  // namespace wvcli

#endif
