// The endpoints of longer work: /api/export (and its cancel), /api/info and
// /api/loudness, /api/record/start and /api/record/stop.
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

void Studio::recordStartApi(HttpReply& reply) { mTakes.start(reply); }

void Studio::recordStopApi(const HttpRequest& request, HttpReply& reply) {
    JsonValue body;
    if (bodyJson(request, reply, body)) mTakes.stop(body, reply);
}

}  // namespace wvstudio
