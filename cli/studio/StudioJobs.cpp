// The endpoints of longer work: /api/export (and its cancel), /api/info,
// /api/loudness and /api/silences, /api/record/start and /api/record/stop.
#include <cmath>
#include <cstdint>
#include <string>

#include "studio/Json.h"
#include "studio/Studio.h"

namespace wvstudio {

void Studio::exportApi(const HttpRequest& request, HttpReply& reply) {
    JsonValue body;
    if (bodyJson(request, reply, body)) mExports.start(body, reply);
}

void Studio::cancelApi(const HttpRequest& request, HttpReply& reply) {
    JsonValue body;
    if (bodyJson(request, reply, body)) mExports.cancel(body, reply);
}

void Studio::infoApi(const HttpRequest& request, HttpReply& reply) {
    uint64_t id = 0;
    if (!wholeNumber(request.param("source"), INT32_MAX, id)) return fail(reply, 400, "source: a source number");
    StudioFile file;
    if (!mFiles.find(mSources.fileOf(int(id)), file)) return fail(reply, 404, "no such source");
    const int status = mFacts.describe(int(id), file.path, reply.body);
    if (status != 200) fail(reply, status, status == 404 ? "no such source" : "not known yet: the load has not begun");
}

void Studio::loudnessApi(const HttpRequest& request, HttpReply& reply) {
    JsonValue body;
    if (!bodyJson(request, reply, body)) return;
    const JsonValue& source = body["source"];
    if (!source.isNumber() || source.number < 1 || source.number > INT32_MAX) return fail(reply, 400, "source: a number");
    const int status = mFacts.measure(int(source.number));
    if (status != 200) return fail(reply, status, status == 404 ? "no such source" : "cannot be measured now");
    reply.body = "{}";
}

void Studio::silencesApi(const HttpRequest& request, HttpReply& reply) {
    JsonValue body;
    if (!bodyJson(request, reply, body)) return;
    const JsonValue& source = body["source"];
    if (!source.isNumber() || source.number < 1 || source.number > INT32_MAX) return fail(reply, 400, "source: a number");
    // The defaults and ranges of `wavoryx silence`.
    double thresholdDb = -50.0;
    double minSeconds = 1.0;
    const JsonValue& threshold = body["threshold"];
    const JsonValue& min = body["min"];
    if (!threshold.isNull()) {
        if (!threshold.isNumber() || !(threshold.number >= -120.0 && threshold.number <= 0.0)) {
            return fail(reply, 400, "threshold: dBFS, -120 to 0");
        }
        thresholdDb = threshold.number;
    }
    if (!min.isNull()) {
        if (!min.isNumber() || !(min.number >= 0.0 && min.number <= 86400.0)) {
            return fail(reply, 400, "min: seconds, 0 to 86400");
        }
        minSeconds = min.number;
    }
    const int status = mFacts.silences(int(source.number), int(std::lround(thresholdDb * 10.0)),
                                       unsigned(std::lround(minSeconds * 1000.0)), reply.body);
    if (status != 200) fail(reply, status, status == 404 ? "no such source" : "cannot be scanned");
}

void Studio::recordStartApi(HttpReply& reply) { mTakes.start(reply); }

void Studio::recordStopApi(const HttpRequest& request, HttpReply& reply) {
    JsonValue body;
    if (bodyJson(request, reply, body)) mTakes.stop(body, reply);
}

}  // namespace wvstudio
