#include "Loudness.h"

#include <climits>
#include <cstdio>

#include <wavoryx/Wavoryx.h>

#include "Jobs.h"
#include "Progress.h"
#include "Session.h"

namespace wvcli {

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
    Progress progress(sources.size() == 1 ? "measuring" : "measuring " + std::to_string(sources.size()) + " files",
                      session.options().quiet);
    loads.setProgress(&progress, true);
    const int status = loads.waitUntil([&] { return loads.allEnded(); }, false);
    loads.setProgress(nullptr, false);
    figures.assign(sources.size(), LoudnessFigures());
    bool failed = false;
    for (size_t i = 0; i < sources.size() && status <= 1; ++i) {
        if (!sources[i].ok) continue;
        LoudnessFigures& f = figures[i];
        f.measured = engine.getScanLoudness(sources[i].id, &f.integrated, &f.range, &f.truePeak) == 0;
        failed = failed || !f.measured;
    }
    progress.finish(status == 0 && !failed);
    return status != 0 ? status : failed ? 1 : 0;
}

}  // namespace wvcli
