// The files and sources endpoints: /api/files, /api/open, /api/source and
// /api/peaks.
#include <string>
#include <vector>

#include <wavoryx/Wavoryx.h>

#include "studio/Json.h"
#include "studio/Studio.h"

namespace wvstudio {

namespace {
constexpr unsigned kMostBins = 65536;

std::string folderName(const std::string& path) {
    std::string trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.pop_back();
    const size_t slash = trimmed.find_last_of('/');
    return slash == std::string::npos ? trimmed : trimmed.substr(slash + 1);
}
}  // namespace

bool bodyJson(const HttpRequest& request, HttpReply& reply, JsonValue& body) {
    if (!parseJson(request.body, body) || body.kind != JsonValue::kObject) {
        fail(reply, 400, "the body must be a JSON object");
        return false;
    }
    return true;
}

void Studio::filesApi(HttpReply& reply) {
    std::string json = "{\"files\":[";
    const std::vector<StudioFile> files = mFiles.files();
    for (size_t i = 0; i < files.size(); ++i) {
        json += (i == 0 ? "" : ",") + std::string("{\"id\":") + quote(files[i].id) + ",\"name\":" +
                quote(files[i].name) + "}";
    }
    json += "],\"open\":";
    json += mFiles.singleFile() && !files.empty() ? quote(files[0].id) : "null";
    json += ",\"out\":" + quote(folderName(mSetup.outDir)) + "}";
    reply.body = json;
}

void Studio::openApi(const HttpRequest& request, HttpReply& reply) {
    JsonValue body;
    if (!bodyJson(request, reply, body)) return;
    StudioFile file;
    if (!body["file"].isString() || !mFiles.find(body["file"].text, file)) return fail(reply, 404, "no such file");
    std::string why;
    const int id = mSources.open(file, why);
    if (id <= 0) return fail(reply, 500, why);
    mSources.describe(id, reply.body);
}

void Studio::sourceApi(const HttpRequest& request, HttpReply& reply) {
    uint64_t id = 0;
    if (!wholeNumber(request.param("id"), INT32_MAX, id)) return fail(reply, 400, "id: a source number");
    if (!mSources.describe(int(id), reply.body)) return fail(reply, 404, "no such source");
}

void Studio::peaksApi(const HttpRequest& request, HttpReply& reply) {
    uint64_t source = 0;
    uint64_t start = 0;
    uint64_t end = 0;
    uint64_t count = 0;
    if (!wholeNumber(request.param("source"), INT32_MAX, source) ||
        !wholeNumber(request.param("start"), UINT32_MAX, start) ||
        !wholeNumber(request.param("end"), UINT32_MAX, end) || !wholeNumber(request.param("count"), kMostBins, count) ||
        end <= start || count == 0) {
        return fail(reply, 400, "source, start < end (frames) and count (1 to 65536) are needed");
    }
    if (!mSources.known(int(source))) return fail(reply, 404, "no such source");
    std::vector<int16_t> bins(size_t(count) * 2, 0);
    // A range past what the load has reached gives (0, 0) bins.
    mSession.engine().getWaveformPeaksFrames(int(source), uint32_t(start), uint32_t(end), unsigned(count),
                                             bins.data());
    const int loaded = mSession.engine().getPcmFrameLength(int(source));
    std::string body(bins.size() * 2, '\0');
    for (size_t i = 0; i < bins.size(); ++i) {
        const uint16_t v = static_cast<uint16_t>(bins[i]);
        body[2 * i] = static_cast<char>(v & 0xFF);
        body[2 * i + 1] = static_cast<char>(v >> 8);
    }
    reply.type = "application/octet-stream";
    reply.body = std::move(body);
    reply.headers.emplace_back("X-Frames-Loaded", std::to_string(loaded > 0 ? loaded : 0));
}

void Studio::listApi(const HttpRequest& request, HttpReply& reply) {
    JsonValue body;
    if (!bodyJson(request, reply, body)) return;
    mLists.make(body, reply);
}

void Studio::listWav(const std::string& name, HttpReply& reply) { mLists.stream(name, reply); }

}  // namespace wvstudio
