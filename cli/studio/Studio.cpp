#include "studio/Studio.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include <wavoryx/Wavoryx.h>

#include "studio/Json.h"

namespace wvstudio {

void fail(HttpReply& reply, int status, const std::string& why) {
    reply.status = status;
    reply.type = "application/json";
    reply.body = errorJson(why);
}

bool wholeNumber(const std::string& text, uint64_t most, uint64_t& out) {
    if (text.empty() || text.size() > 19) return false;
    uint64_t value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + uint64_t(c - '0');
    }
    if (value > most) return false;
    out = value;
    return true;
}

Studio::Studio(wvcli::Session& session, FileRegistry& files, const StudioSetup& setup, const std::string& token,
               int port)
    : mSession(session),
      mFiles(files),
      mSetup(setup),
      mAccess(token, port),
      mSources(session.engine()),
      mLists(session.engine(), mSources),
      mExports(session.engine(), mSources, mEvents, session.workDir(), setup.outDir),
      mTakes(session.engine(), mSources, files, mEvents, session.workDir()),
      mFacts(session.engine(), mSources, mEvents) {}

void Studio::handle(const HttpRequest& request, HttpReply& reply) {
    std::string why;
    switch (mAccess.check(request, why)) {
        case Access::kRefused: return fail(reply, 403, why);
        case Access::kFirstVisit: return mAccess.firstVisit(reply);
        case Access::kAllowed: break;
    }
    // Names are never paths: an encoded slash or backslash, or a step up,
    // is refused before anything looks at the name.
    const std::string& target = request.target;
    for (const char* bad : {"%2f", "%2F", "%5c", "%5C", "%00"}) {
        if (target.find(bad) != std::string::npos) return fail(reply, 400, "encoded separators are refused");
    }
    if (request.path.find("..") != std::string::npos || request.path.find('\\') != std::string::npos) {
        return fail(reply, 400, "paths with .. are refused");
    }
    reply.headers.emplace_back("Cache-Control", "no-store");
    route(request, reply);
}

void Studio::route(const HttpRequest& request, HttpReply& reply) {
    const std::string& path = request.path;
    const bool get = request.method == "GET" || request.method == "HEAD";
    const bool post = request.method == "POST";
    if (path.compare(0, 5, "/api/") != 0) {
        if (!get) return fail(reply, 405, "only GET here");
        return serveStatic(request, reply);
    }
    if (get && path == "/api/files") return filesApi(reply);
    if (get && path == "/api/source") return sourceApi(request, reply);
    if (get && path == "/api/peaks") return peaksApi(request, reply);
    if (get && path == "/api/events") return mEvents.subscribe(reply);
    if (post && path == "/api/open") return openApi(request, reply);
    if (post && path == "/api/list") return listApi(request, reply);
    if (post && path == "/api/export") return exportApi(request, reply);
    if (post && path == "/api/export/cancel") return cancelApi(request, reply);
    if (get && path == "/api/download") return mExports.download(request.param("name"), reply);
    if (get && path == "/api/info") return infoApi(request, reply);
    if (post && path == "/api/loudness") return loudnessApi(request, reply);
    if (post && path == "/api/silences") return silencesApi(request, reply);
    if (post && path == "/api/record/start") return recordStartApi(reply);
    if (post && path == "/api/record/stop") return recordStopApi(request, reply);
    static const std::string kListPrefix = "/api/list/";
    if (get && path.compare(0, kListPrefix.size(), kListPrefix) == 0) {
        return listWav(path.substr(kListPrefix.size()), reply);
    }
    fail(reply, 404, "no such endpoint");
}

namespace {
const char* contentType(const std::string& name) {
    struct Kind {
        const char* suffix;
        const char* type;
    };
    static const Kind kKinds[] = {{".html", "text/html; charset=utf-8"},
                                  {".js", "text/javascript; charset=utf-8"},
                                  {".mjs", "text/javascript; charset=utf-8"},
                                  {".css", "text/css; charset=utf-8"},
                                  {".svg", "image/svg+xml"},
                                  {".png", "image/png"},
                                  {".json", "application/json"},
                                  {".ico", "image/x-icon"},
                                  {".woff2", "font/woff2"}};
    for (const Kind& kind : kKinds) {
        const std::string suffix = kind.suffix;
        if (name.size() > suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
            return kind.type;
        }
    }
    return "application/octet-stream";
}
}  // namespace

void Studio::serveStatic(const HttpRequest& request, HttpReply& reply) {
    std::string name = request.path == "/" ? "/index.html" : request.path;
    // Each step a plain name: no hidden files, no empty steps.
    for (size_t at = 0; at < name.size();) {
        const size_t end = std::min(name.find('/', at + 1), name.size());
        const std::string step = name.substr(at + 1, end - at - 1);
        if (step.empty() || step[0] == '.') return fail(reply, 404, "no such page file");
        at = end;
    }
    // Nothing outside the page's folder, whatever links in it say.
    std::unique_ptr<char, decltype(&std::free)> root(::realpath(mSetup.webDir.c_str(), nullptr), &std::free);
    std::unique_ptr<char, decltype(&std::free)> file(::realpath((mSetup.webDir + name).c_str(), nullptr), &std::free);
    const std::string inside = root ? std::string(root.get()) + "/" : std::string();
    if (!root || !file || std::string(file.get()).compare(0, inside.size(), inside) != 0) {
        return fail(reply, 404, "no such page file");
    }
    const std::string path = mSetup.webDir + name;
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return fail(reply, 404, "no such page file");
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || st.st_size > (64 << 20)) {
        ::close(fd);
        return fail(reply, 404, "no such page file");
    }
    std::string body(static_cast<size_t>(st.st_size), '\0');
    size_t got = 0;
    while (got < body.size()) {
        const ssize_t n = ::read(fd, &body[got], body.size() - got);
        if (n <= 0) break;
        got += static_cast<size_t>(n);
    }
    ::close(fd);
    body.resize(got);
    reply.type = contentType(name);
    reply.body = std::move(body);
}

void Studio::onEvent(const wvcli::EngineEvent& event) {
    std::string data;
    if (mSources.take(event.code, event.id, event.value, data)) {
        if (!data.empty()) mEvents.publish("load", data);
        return;
    }
    if (mExports.take(event.code, event.id, event.value)) return;
    if (mFacts.take(event.code, event.id, event.value)) return;
    mTakes.take(event.code, event.id, event.value);
}

void Studio::shutdown() {
    mEvents.close();
    mTakes.stopAll();
    mExports.cancelAll();
    mSources.cancelAll();
}

}  // namespace wvstudio
