#include "platform/MediaService.h"

#include <mutex>

#include "platform/media/AvLogBridge.h"

namespace wv {
namespace {
std::mutex gLock;
int gConnections = 0;
}  // namespace

status_t MediaService::connect() {
    std::lock_guard<std::mutex> guard(gLock);
    if (gConnections == 0) installAvLogBridge();
    ++gConnections;
    return OK;
}

void MediaService::disconnect() {
    std::lock_guard<std::mutex> guard(gLock);
    if (gConnections > 0) --gConnections;
}

int MediaService::connections() {
    std::lock_guard<std::mutex> guard(gLock);
    return gConnections;
}

}  // namespace wv
