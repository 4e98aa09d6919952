#include "studio/HttpServer.h"

#include <httplib.h>

#include <algorithm>
#include <cctype>

namespace wvstudio {

std::string HttpRequest::header(const std::string& lowerName) const {
    auto it = headers.find(lowerName);
    return it == headers.end() ? std::string() : it->second;
}

std::string HttpRequest::param(const std::string& name) const {
    auto it = params.find(name);
    return it == params.end() ? std::string() : it->second;
}

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

void applyReply(HttpReply& reply, httplib::Response& res) {
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
        // The library answers Range requests from a sized provider itself
        // (206, Content-Range) when the status is left to it.
        if (reply.status != 200) res.status = reply.status;
        res.set_content_provider(
            static_cast<size_t>(reply.length), reply.type.c_str(),
            [provider](size_t offset, size_t length, httplib::DataSink& sink) {
                const HttpWrite write = [&sink](const char* data, size_t size) {
                    return sink.is_writable() && sink.write(data, size);
                };
                return provider(offset, length, write);
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
    mImpl->server.set_keep_alive_max_count(100);
    Impl* impl = mImpl.get();
    // Routes, not the pre-routing hook: a body is read only for routed
    // requests (after the size check).
    const httplib::Server::Handler serve = [impl](const httplib::Request& req, httplib::Response& res) {
        HttpReply reply;
        impl->handler(plainRequest(req), reply);
        applyReply(reply, res);
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
