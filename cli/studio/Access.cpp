#include "studio/Access.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

namespace wvstudio {

std::string Access::newToken() {
    unsigned char bytes[16];
    const int fd = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::string();
    size_t got = 0;
    while (got < sizeof bytes) {
        const ssize_t n = ::read(fd, bytes + got, sizeof bytes - got);
        if (n <= 0) break;
        got += static_cast<size_t>(n);
    }
    ::close(fd);
    if (got < sizeof bytes) return std::string();
    std::string token;
    char hex[3];
    for (unsigned char b : bytes) {
        std::snprintf(hex, sizeof hex, "%02x", b);
        token += hex;
    }
    return token;
}

std::string Access::url() const {
    return "http://127.0.0.1:" + std::to_string(mPort) + "/?token=" + mToken;
}

bool Access::hostAllowed(const std::string& host) const {
    const std::string port = ":" + std::to_string(mPort);
    return host == "127.0.0.1" + port || host == "localhost" + port;
}

bool Access::originAllowed(const std::string& origin) const {
    const std::string port = ":" + std::to_string(mPort);
    return origin == "http://127.0.0.1" + port || origin == "http://localhost" + port;
}

// Compared in constant time: the answer's timing tells nothing of the token.
bool Access::tokenMatches(const std::string& given) const {
    if (given.size() != mToken.size() || mToken.empty()) return false;
    unsigned char diff = 0;
    for (size_t i = 0; i < given.size(); ++i) diff |= static_cast<unsigned char>(given[i] ^ mToken[i]);
    return diff == 0;
}

bool Access::carriesToken(const HttpRequest& request) const {
    if (tokenMatches(request.header("x-wavoryx-token"))) return true;
    const std::string cookies = request.header("cookie");
    size_t at = 0;
    while (at < cookies.size()) {
        size_t end = cookies.find_first_of(";,", at);
        if (end == std::string::npos) end = cookies.size();
        std::string pair = cookies.substr(at, end - at);
        const size_t first = pair.find_first_not_of(' ');
        pair = first == std::string::npos ? std::string() : pair.substr(first);
        static const std::string kName = "wavoryx_token=";
        if (pair.compare(0, kName.size(), kName) == 0 && tokenMatches(pair.substr(kName.size()))) return true;
        at = end + 1;
    }
    return false;
}

Access::Verdict Access::check(const HttpRequest& request, std::string& why) const {
    if (!hostAllowed(request.header("host"))) {
        why = "this server answers only to 127.0.0.1:" + std::to_string(mPort);
        return kRefused;
    }
    if (request.method == "GET" && request.path == "/" && request.params.count("token") != 0) {
        if (tokenMatches(request.param("token"))) return kFirstVisit;
        why = "wrong token";
        return kRefused;
    }
    if (!carriesToken(request)) {
        why = "no token: open the address the command printed";
        return kRefused;
    }
    if (request.method != "GET" && request.method != "HEAD" && !originAllowed(request.header("origin"))) {
        why = "requests that change anything must come from the studio's page";
        return kRefused;
    }
    return kAllowed;
}

void Access::firstVisit(HttpReply& reply) const {
    reply.status = 303;
    reply.type = "text/plain";
    reply.body = "See /\n";
    reply.headers.emplace_back("Set-Cookie", "wavoryx_token=" + mToken + "; HttpOnly; SameSite=Strict; Path=/");
    reply.headers.emplace_back("Location", "/");
}

}  // namespace wvstudio
