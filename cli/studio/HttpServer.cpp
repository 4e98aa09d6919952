#include "studio/HttpServer.h"

#include <httplib.h>

#include <algorithm>
#include <cctype>
#include <cstdint>

namespace wvstudio {

std::string HttpRequest::header(const std::string& lowerName) const {
    auto it = headers.find(lowerName);
    return it == headers.end() ? std::string() : it->second;
}

std::string HttpRequest::param(const std::string& name) const {
    auto it = params.find(name);
    return it == params.end() ? std::string() : it->second;
}

namespace {
constexpr size_t kThreads = 48;
}  // namespace

struct HttpServer::Impl {
    httplib::Server server;
    Handler handler;
};

namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

HttpRequest plainRequest(const httplib::Request& req) {
    HttpRequest out;
    out.method = req.method;
    out.target = req.target;
    out.path = req.path;
    for (const auto& h : req.headers) {
        // A repeated header is refused by the checks that read it: keep
        // the strangest form (the values joined) rather than the first.
        std::string& slot = out.headers[lower(h.first)];
        slot = slot.empty() ? h.second : slot + "," + h.second;
    }
    for (const auto& p : req.params) out.params.emplace(p.first, p.second);
    out.body = req.body;
    return out;
}

// A request's one byte range: "bytes=F-L", "bytes=F-" or "bytes=-N".
struct ByteRange {
    bool given = false;
    bool suffix = false;  // the last `last` bytes
    uint64_t first = 0;
    uint64_t last = UINT64_MAX;
};

bool digits(const std::string& text, uint64_t& out) {
    if (text.empty() || text.size() > 18) return false;
    out = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        out = out * 10 + uint64_t(c - '0');
    }
    return true;
}

// Several ranges, or a form not understood, give the whole body (allowed).
ByteRange byteRange(const std::string& header) {
    ByteRange range;
    static const std::string kUnit = "bytes=";
    if (header.compare(0, kUnit.size(), kUnit) != 0 || header.find(',') != std::string::npos) return range;
    const std::string spec = header.substr(kUnit.size());
    const size_t dash = spec.find('-');
    if (dash == std::string::npos) return range;
    const std::string from = spec.substr(0, dash);
    const std::string to = spec.substr(dash + 1);
    if (from.empty()) {
        range.suffix = digits(to, range.last);
        range.given = range.suffix;
        return range;
    }
    if (!digits(from, range.first)) return range;
    if (!to.empty() && (!digits(to, range.last) || range.last < range.first)) return range;
    range.given = true;
    return range;
}

void applyReply(HttpReply& reply, const ByteRange& range, httplib::Response& res) {
    for (const auto& h : reply.headers) res.set_header(h.first.c_str(), h.second);
    if (reply.stream) {
        auto stream = std::move(reply.stream);
        auto closed = std::move(reply.closed);
        res.status = reply.status;
        res.set_chunked_content_provider(
            reply.type.c_str(),
            [stream](size_t, httplib::DataSink& sink) {
                const HttpWrite write = [&sink](const char* data, size_t size) {
                    return sink.is_writable() && sink.write(data, size);
                };
                if (!stream(write)) {
                    sink.done();
                    return false;
                }
                return true;
            },
            [closed](bool) {
                if (closed) closed();
            });
        return;
    }
    if (reply.provider) {
        auto provider = std::move(reply.provider);
        auto closed = std::move(reply.closed);
        uint64_t first = 0;
        uint64_t size = reply.length;
        if (range.given && reply.status == 200) {
            // One range, clamped to the body, as RFC 9110 asks; one that
            // starts past the end cannot be served.
            if (range.suffix) {
                first = reply.length - std::min(reply.length, range.last);
            } else {
                first = range.first;
            }
            const uint64_t last = range.suffix ? reply.length - 1 : std::min(range.last, reply.length - 1);
            if (reply.length == 0 || first >= reply.length || (range.suffix && range.last == 0)) {
                res.status = 416;
                res.set_header("Content-Range", "bytes */" + std::to_string(reply.length));
                res.set_content("", "text/plain");
                return;
            }
            size = last - first + 1;
            res.status = 206;
            res.set_header("Content-Range", "bytes " + std::to_string(first) + "-" + std::to_string(last) + "/" +
                                                std::to_string(reply.length));
        } else {
            res.status = reply.status;
        }
        res.set_content_provider(
            static_cast<size_t>(size), reply.type.c_str(),
            [provider, first](size_t offset, size_t length, httplib::DataSink& sink) {
                const HttpWrite write = [&sink](const char* data, size_t n) {
                    return sink.is_writable() && sink.write(data, n);
                };
                return provider(first + offset, length, write);
            },
            [closed](bool) {
                if (closed) closed();
            });
        return;
    }
    res.status = reply.status;
    res.set_content(reply.body, reply.type.c_str());
}

}  // namespace

HttpServer::HttpServer(Handler handler, size_t maxBody) : mImpl(new Impl) {
    mImpl->handler = std::move(handler);
    mImpl->server.set_payload_max_length(maxBody);
    // Each event stream and each kept-alive connection holds a thread: the
    // library's default of eight would let a few tabs stall the rest.
    mImpl->server.new_task_queue = [] { return new httplib::ThreadPool(kThreads); };
    mImpl->server.set_keep_alive_max_count(100);
    Impl* impl = mImpl.get();
    // Routes, not the pre-routing hook: a body is read only for routed
    // requests (after the size check).
    const httplib::Server::Handler serve = [impl](const httplib::Request& req, httplib::Response& res) {
        HttpReply reply;
        impl->handler(plainRequest(req), reply);
        // Ranges are answered here, the library's own handling of them
        // being turned off: it trusts the last byte asked for.
        const ByteRange range = byteRange(req.get_header_value("Range"));
        const_cast<httplib::Request&>(req).ranges.clear();
        applyReply(reply, range, res);
    };
    mImpl->server.Get(".*", serve);
    mImpl->server.Post(".*", serve);
    mImpl->server.Put(".*", serve);
    mImpl->server.Delete(".*", serve);
    mImpl->server.Patch(".*", serve);
    mImpl->server.set_error_handler([](const httplib::Request&, httplib::Response& res) {
        if (res.body.empty()) {
            res.set_content("{\"error\":\"status " + std::to_string(res.status) + "\"}", "application/json");
        }
    });
}

HttpServer::~HttpServer() { stop(); }

int HttpServer::bind(int port) {
    if (port == 0) return mImpl->server.bind_to_any_port("127.0.0.1");
    return mImpl->server.bind_to_port("127.0.0.1", port) ? port : -1;
}

void HttpServer::start() {
    Impl* impl = mImpl.get();
    mThread = std::thread([impl] { impl->server.listen_after_bind(); });
}

void HttpServer::stop() {
    mImpl->server.stop();
    if (mThread.joinable()) mThread.join();
}

}  // namespace wvstudio
