// The studio's HTTP server on 127.0.0.1: the packaged HTTP library behind
// one handler and plain request and reply values, so that only this file
// depends on the library. Connections are served on the library's worker
// threads; the handler may be called on several at once.
#ifndef WAVORYX_CLI_STUDIO_HTTPSERVER_H
#define WAVORYX_CLI_STUDIO_HTTPSERVER_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace wvstudio {

struct HttpRequest {
    std::string method;
    std::string target;  // as sent: path and query, still encoded
    std::string path;    // decoded
    std::map<std::string, std::string> headers;  // names in lower case
    std::map<std::string, std::string> params;   // query, decoded
    std::string body;

    std::string header(const std::string& lowerName) const;
    std::string param(const std::string& name) const;
};

// Writes bytes to the client; false once the connection is gone.
using HttpWrite = std::function<bool(const char* data, size_t size)>;

struct HttpReply {
    int status = 200;
    std::string type = "application/json";
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
    // A body of `length` bytes made on demand, piece by piece: Range
    // requests are answered from it (206 with Content-Range). provider
    // writes [offset, offset + size); false stops the reply.
    uint64_t length = 0;
    std::function<bool(uint64_t offset, uint64_t size, const HttpWrite& write)> provider;
    // An endless body (events): called again after each return of true;
    // false ends the reply. `closed` runs once the reply is over, however
    // it ended.
    std::function<bool(const HttpWrite& write)> stream;
    std::function<void()> closed;
};

class HttpServer {
public:
    using Handler = std::function<void(const HttpRequest&, HttpReply&)>;

    // Bodies over maxBody bytes are answered 413 before the handler runs.
    HttpServer(Handler handler, size_t maxBody);
    ~HttpServer();
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    // Binds 127.0.0.1:port (0: a free one); the port, or -1.
    int bind(int port);
    // Serves on a thread of its own until stop().
    void start();
    // Stops accepting and waits for the serving thread.
    void stop();

private:
    struct Impl;
    std::unique_ptr<Impl> mImpl;
    std::thread mThread;
};

}  // namespace wvstudio

#endif
