// Server-sent events to every open page (one stream per tab). Each stream
// has its own bounded queue; a stream whose connection dropped is noticed at
// its next write (a keep-alive comment at least every 5 s) and leaves the
// hub, so a closed tab holds nothing.
#ifndef WAVORYX_CLI_STUDIO_EVENTHUB_H
#define WAVORYX_CLI_STUDIO_EVENTHUB_H

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "studio/HttpServer.h"

namespace wvstudio {

class EventHub {
public:
    // Sends `event` with JSON `data` to every stream.
    void publish(const std::string& event, const std::string& data);
    // Makes `reply` a new stream.
    void subscribe(HttpReply& reply);
    // Ends every stream (the server is stopping) and refuses new ones.
    void close();
    size_t streams() const;

private:
    struct Stream {
        std::deque<std::string> queue;
        bool greeted = false;
    };
    bool next(int id, const HttpWrite& write);
    void leave(int id);

    mutable std::mutex mLock;
    std::condition_variable mChanged;
    std::map<int, std::shared_ptr<Stream>> mStreams;
    int mNextId = 1;
    bool mClosed = false;
};

}  // namespace wvstudio

#endif
