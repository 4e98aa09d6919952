// The one recorder of client events for the tests, the fuzz targets and the
// soak tools. Free of GoogleTest and of the engine's internals, so that
// programs which link only the public library can use it too.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace wvtest {

struct Event {
    int code;
    int id;
    int value;
    bool operator==(const Event& o) const { return code == o.code && id == o.id && value == o.value; }
};

// Collects the events of a client callback. Only one recorder can be active
// at a time, because the callback is a plain function pointer.
class EventRecorder {
public:
    EventRecorder();
    ~EventRecorder();
    static void callback(int code, int id, int value, char* text, void* user);
    std::vector<Event> events() const;
    // Waits until `pred` holds for the events seen so far, up to `timeout`.
    bool waitFor(const std::function<bool(const std::vector<Event>&)>& pred,
                 std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;
    // Waits for an event with this code (and id when id >= 0).
    bool waitForCode(int code, int id = -1, std::chrono::milliseconds timeout = std::chrono::seconds(20)) const;
    // Thread ids of the calls, in order.
    std::vector<std::thread::id> threads() const;
    void clear();

private:
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::vector<Event> mEvents;
    std::vector<std::thread::id> mThreads;
};

}  // namespace wvtest
