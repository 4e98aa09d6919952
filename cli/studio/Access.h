// Who may use the studio's server: a request must name this server as its
// Host (a page of another site that rebinds its DNS name to 127.0.0.1 does
// not), carry the token (the cookie set at the first visit, or a header),
// and, when it changes anything (POST), come from the page's own origin.
// The token is 32 hex digits from /dev/urandom.
#ifndef WAVORYX_CLI_STUDIO_ACCESS_H
#define WAVORYX_CLI_STUDIO_ACCESS_H

#include <string>

#include "studio/HttpServer.h"

namespace wvstudio {

class Access {
public:
    // An empty string when /dev/urandom cannot be read.
    static std::string newToken();

    Access(std::string token, int port) : mToken(std::move(token)), mPort(port) {}

    enum Verdict { kAllowed, kFirstVisit, kRefused };
    // kFirstVisit: GET /?token=T with the right token, to be answered with
    // the cookie and a redirect (firstVisit). kRefused sets `why`.
    Verdict check(const HttpRequest& request, std::string& why) const;
    void firstVisit(HttpReply& reply) const;

    const std::string& token() const { return mToken; }
    std::string url() const;

private:
    bool hostAllowed(const std::string& host) const;
    bool originAllowed(const std::string& origin) const;
    bool tokenMatches(const std::string& given) const;
    bool carriesToken(const HttpRequest& request) const;

    std::string mToken;
    int mPort;
};

}  // namespace wvstudio

#endif
