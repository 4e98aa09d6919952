#include "Silences.h"

#include <cmath>

#include <wavoryx/Wavoryx.h>
#include <CLI/CLI.hpp>

#include "Interrupt.h"
#include "Jobs.h"
#include "Progress.h"
#include "Session.h"
#include "TimeSpec.h"

namespace wvcli {
namespace {

std::string baseName(const std::string& path) { return path.substr(path.find_last_of('/') + 1); }

}  // namespace

int SilenceChoice::tenthsDb() const { return int(std::lround(thresholdDb * 10.0)); }
unsigned SilenceChoice::minMs() const { return unsigned(std::lround(minSeconds * 1000.0)); }

void addSilenceOptions(CLI::App* command, SilenceChoice& choice, const std::string& threshold, const std::string& min) {
    command
        ->add_option(threshold, choice.thresholdDb,
                     "Silence is where every channel stays below DB dBFS, -120 to 0 (default -50)")
        ->check(CLI::Range(-120.0, 0.0))
        ->type_name("DB");
    command
        ->add_option(min, choice.minSeconds,
                     "Only silences lasting at least SECONDS count, 0 to 86400, decimals allowed (default 1)")
        ->check(CLI::Range(0.0, 86400.0))
        ->type_name("SECONDS");
}

int findSilences(Session& session, int id, const SilenceChoice& choice, SourceLoads* loads,
                 const std::string& shownPath, Silences& out) {
    Wavoryx& engine = session.engine();
    out.clear();
    Progress bar("finding silences in " + baseName(shownPath), session.options().quiet);
    if (loads != nullptr) loads->setProgress(&bar, false);
    if (engine.scanSilence(id, choice.tenthsDb(), choice.minMs()) != 0) {
        if (loads != nullptr) loads->setProgress(nullptr, false);
        bar.finish(false);
        reportError(shownPath, "the engine refused the silence scan");
        return 1;
    }
    bool cancelling = false;
    // The scan's events and a load's may share the item: told apart by code.
    const EngineEvent end = followRenderJob(
        session, id, loads,
        [id](const EngineEvent& event) {
            return event.id == id && (event.code == WV_EVENT_RENDER_PROGRESS || (event.ends & WV_JOB_RENDER) != 0);
        },
        [&bar](int percent) { bar.update(percent); }, &cancelling);
    if (loads != nullptr) loads->setProgress(nullptr, false);
    bar.finish(end.code == WV_EVENT_SILENCES && !cancelling);
    if (cancelling) return interruptExitStatus();
    if (end.code != WV_EVENT_SILENCES) {
        // A load that failed says why in its own line.
        if (loadFailureFollows(session, end, loads)) return 1;
        reportError(shownPath, end.code == WV_EVENT_RENDER_FAILED ? "cannot be read" : "the silence scan stopped");
        return 1;
    }
    const int32_t count = engine.getSilences(id, nullptr, 0);
    std::vector<uint32_t> pairs(size_t(count > 0 ? count : 0) * 2);
    if (count < 0 || engine.getSilences(id, pairs.data(), uint32_t(count)) != count) {
        reportError(shownPath, "the silences could not be read");
        return 1;
    }
    for (int32_t i = 0; i < count; ++i) out.emplace_back(pairs[2 * size_t(i)], pairs[2 * size_t(i) + 1]);
    return 0;
}

bool scannedLength(Session& session, int id, uint32_t* frames, int* rate) {
    *rate = session.engine().getSilenceScanFrames(id, frames);
    return *rate > 0;
}

}  // namespace wvcli
