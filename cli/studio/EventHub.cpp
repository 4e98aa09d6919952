#include "studio/EventHub.h"

#include <chrono>

namespace wvstudio {

namespace {
// More than any page falls behind by; a stalled one loses the oldest.
constexpr size_t kQueueLimit = 1024;
constexpr auto kKeepAlive = std::chrono::seconds(5);
}  // namespace

void EventHub::publish(const std::string& event, const std::string& data) {
    const std::string message = "event: " + event + "\ndata: " + data + "\n\n";
    std::lock_guard<std::mutex> guard(mLock);
    for (auto& entry : mStreams) {
        std::deque<std::string>& queue = entry.second->queue;
        if (queue.size() >= kQueueLimit) queue.pop_front();
        queue.push_back(message);
    }
    mChanged.notify_all();
}

void EventHub::subscribe(HttpReply& reply) {
    int id = 0;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mClosed) {
            reply.status = 503;
            reply.body = "{\"error\":\"stopping\"}";
            return;
        }
        id = mNextId++;
        mStreams[id] = std::make_shared<Stream>();
    }
    reply.type = "text/event-stream";
    reply.headers.emplace_back("Cache-Control", "no-store");
    reply.stream = [this, id](const HttpWrite& write) { return next(id, write); };
    reply.closed = [this, id] { leave(id); };
}

bool EventHub::next(int id, const HttpWrite& write) {
    std::unique_lock<std::mutex> lock(mLock);
    auto it = mStreams.find(id);
    if (it == mStreams.end()) return false;
    std::shared_ptr<Stream> stream = it->second;
    if (!stream->greeted) {
        stream->greeted = true;
        lock.unlock();
        return write(": wavoryx\n\n", 11);
    }
    mChanged.wait_for(lock, kKeepAlive, [&] { return mClosed || !stream->queue.empty(); });
    if (mClosed) return false;
    std::string out;
    while (!stream->queue.empty()) {
        out += stream->queue.front();
        stream->queue.pop_front();
    }
    lock.unlock();
    if (out.empty()) out = ": keep-alive\n\n";
    return write(out.data(), out.size());
}

void EventHub::leave(int id) {
    std::lock_guard<std::mutex> guard(mLock);
    mStreams.erase(id);
}

void EventHub::close() {
    std::lock_guard<std::mutex> guard(mLock);
    mClosed = true;
    mChanged.notify_all();
}

size_t EventHub::streams() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mStreams.size();
}

}  // namespace wvstudio
