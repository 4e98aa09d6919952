// The one "poll until it holds" of the tests, the fuzz targets and the soak
// driver. Header-only and free of GoogleTest, so that programs which cannot
// link it use the same wait. Most of what is waited for changes without an
// event (a file goes, a registry empties, a device plays on), hence polling.
#pragma once

#include <chrono>
#include <thread>

namespace wvtest {

// Evaluates `condition` every millisecond until it holds (true) or until
// `timeout` has passed without it holding (false). The condition is always
// evaluated at least once, and once more after the last sleep.
template <typename Condition>
bool waitUntil(Condition&& condition, std::chrono::milliseconds timeout = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (condition()) return true;
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace wvtest
