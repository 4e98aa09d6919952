// The process-wide connection to the media layer. Every engine connects in
// its constructor and disconnects in its destructor; the layer is set up on
// the first connection and torn down after the last, so several engines may
// live in one process.
#pragma once

#include <cstdint>

namespace wv {

typedef int32_t status_t;
constexpr status_t OK = 0;

class MediaService {
public:
    // Returns OK, or a negative status when the media layer cannot be used.
    static status_t connect();
    static void disconnect();
    // Number of engines connected now.
    static int connections();
};

}  // namespace wv
