#include "Loudness.h"

#include <chrono>
#include <climits>
#include <cstdio>

#include <wavoryx/Wavoryx.h>

#include "Interrupt.h"
#include "Jobs.h"
#include "Progress.h"
#include "Session.h"

namespace wvcli {
namespace {

constexpr int kPollMs = 100;
constexpr auto kCancelWait = std::chrono::seconds(10);

// The state of one file's measurement.
struct Measurement {
    int id = 0;
    bool started = false;
    bool ended = false;
    int percent = 0;
};

}  // namespace

std::string tenthsText(int32_t tenths) {
    if (tenths == INT32_MIN) return "-inf";
    char text[32];
    const int64_t whole = int64_t(tenths);
    std::snprintf(text, sizeof text, "%s%lld.%lld", whole < 0 ? "-" : "",
                  static_cast<long long>((whole < 0 ? -whole : whole) / 10),
                  static_cast<long long>((whole < 0 ? -whole : whole) % 10));
    return text;
}

std::string tenthsJson(int32_t tenths) { return tenths == INT32_MIN ? "null" : tenthsText(tenths); }

int measureLoudness(Session& session, SourceLoads& loads, std::vector<LoudnessFigures>& figures) {
    Wavoryx& engine = session.engine();
    const std::vector<LoadedSource>& sources = loads.sources();
    figures.assign(sources.size(), LoudnessFigures());
    std::vector<Measurement> measures(sources.size());
    for (size_t i = 0; i < sources.size(); ++i) {
        measures[i].id = sources[i].id;
        // A file that never became an item (not a file) has no measurement.
        measures[i].started = sources[i].id > 0 && !sources[i].ended && engine.measureLoudness(sources[i].id) == 0;
        measures[i].ended = !measures[i].started;
    }
    const auto allEnded = [&] {
        for (const Measurement& m : measures) {
            if (!m.ended) return false;
        }
        return loads.allEnded();
    };

    Progress progress(sources.size() == 1 ? "measuring" : "measuring " + std::to_string(sources.size()) + " files",
                      session.options().quiet);
    bool failed = false;
    bool cancelling = false;
    auto deadline = std::chrono::steady_clock::now();
    while (!allEnded()) {
        if (!cancelling && interruptSignal() != 0) {
            cancelling = true;
            deadline = std::chrono::steady_clock::now() + kCancelWait;
            for (const Measurement& m : measures) {
                if (!m.ended) engine.cancelProcess(m.id);
            }
            loads.cancelRunning();
        }
        if (cancelling && std::chrono::steady_clock::now() > deadline) break;
        EngineEvent event;
        if (!session.waitEvent(event, kPollMs)) continue;
        size_t index = 0;
        while (index < measures.size() && measures[index].id != event.id) ++index;
        const bool measureEvent = event.code == WV_EVENT_RENDER_FAILED || event.code == WV_EVENT_RENDER_PROGRESS ||
                                  event.code == WV_EVENT_RENDER_CANCELLED || event.code == WV_EVENT_LOUDNESS ||
                                  event.code == WV_EVENT_TRUE_PEAK || event.code == WV_EVENT_LOUDNESS_RANGE;
        if (index == measures.size() || !measureEvent) {
            loads.take(event);
            continue;
        }
        Measurement& m = measures[index];
        LoudnessFigures& f = figures[index];
        switch (event.code) {
            case WV_EVENT_RENDER_PROGRESS: {
                m.percent = event.value;
                int sum = 0;
                for (const Measurement& each : measures) sum += each.ended ? 100 : each.percent;
                progress.update(sum / int(measures.size()));
                break;
            }
            case WV_EVENT_LOUDNESS: f.integrated = event.value; break;
            case WV_EVENT_TRUE_PEAK: f.truePeak = event.value; break;
            case WV_EVENT_LOUDNESS_RANGE:
                f.range = event.value;
                f.measured = m.ended = true;
                break;
            default:
                m.ended = true;
                failed = true;
                // A failed load says why on its own line; only a read error
                // of a loaded file needs one here.
                if (event.code == WV_EVENT_RENDER_FAILED && event.value != -1 && !cancelling) {
                    progress.finish(false);
                    reportError(sources[index].path, "cannot be measured (read error)");
                }
                break;
        }
    }
    progress.finish(!failed && !loads.failed() && !cancelling);
    if (cancelling) return interruptExitStatus();
    return failed || loads.failed() ? 1 : 0;
}

}  // namespace wvcli
