// One run of `wavoryx studio`: the access rules, the files, the sources and
// lists made from them, the event streams, and the routes of the API (each
// area's handlers in a file of its own: StudioFiles.cpp, StudioLists.cpp).
#ifndef WAVORYX_CLI_STUDIO_STUDIO_H
#define WAVORYX_CLI_STUDIO_STUDIO_H

#include <memory>
#include <string>

#include "Session.h"
#include "studio/Access.h"
#include "studio/EventHub.h"
#include "studio/Exports.h"
#include "studio/FileRegistry.h"
#include "studio/HttpServer.h"
#include "studio/Lists.h"
#include "studio/SourceFacts.h"
#include "studio/Sources.h"
#include "studio/Takes.h"

namespace wvstudio {

struct StudioSetup {
    std::string webDir;  // the page's files
    std::string outDir;  // where exports are written
};

class Studio {
public:
    Studio(wvcli::Session& session, FileRegistry& files, const StudioSetup& setup, const std::string& token,
           int port);

    // Every request: the access rules, then its route.
    void handle(const HttpRequest& request, HttpReply& reply);
    // An engine event, taken on the command's event thread.
    void onEvent(const wvcli::EngineEvent& event);
    // Ends the event streams and cancels what still runs.
    void shutdown();

    const Access& access() const { return mAccess; }

private:
    void route(const HttpRequest& request, HttpReply& reply);
    void serveStatic(const HttpRequest& request, HttpReply& reply);
    // StudioFiles.cpp
    void filesApi(HttpReply& reply);
    void openApi(const HttpRequest& request, HttpReply& reply);
    void sourceApi(const HttpRequest& request, HttpReply& reply);
    void peaksApi(const HttpRequest& request, HttpReply& reply);
    // StudioLists.cpp
    void listApi(const HttpRequest& request, HttpReply& reply);
    void listWav(const std::string& name, HttpReply& reply);
    // StudioJobs.cpp
    void exportApi(const HttpRequest& request, HttpReply& reply);
    void cancelApi(const HttpRequest& request, HttpReply& reply);
    void infoApi(const HttpRequest& request, HttpReply& reply);
    void loudnessApi(const HttpRequest& request, HttpReply& reply);
    void silencesApi(const HttpRequest& request, HttpReply& reply);
    void recordStartApi(HttpReply& reply);
    void recordStopApi(const HttpRequest& request, HttpReply& reply);

    wvcli::Session& mSession;
    FileRegistry& mFiles;
    StudioSetup mSetup;
    Access mAccess;
    EventHub mEvents;
    Sources mSources;
    Lists mLists;
    Exports mExports;
    Takes mTakes;
    SourceFacts mFacts;
};

// The request's body as a JSON object; false after a 400 reply.
bool bodyJson(const HttpRequest& request, HttpReply& reply, JsonValue& body);
// A JSON error reply.
void fail(HttpReply& reply, int status, const std::string& why);
// A whole number from a query parameter or JSON value; false when it is
// missing, not a number, negative or above `most`.
bool wholeNumber(const std::string& text, uint64_t most, uint64_t& out);

}  // namespace wvstudio

#endif
