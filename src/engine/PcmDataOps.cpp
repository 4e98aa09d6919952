// Hands out a loaded item's PCM data as a read-only descriptor, so that a
// client can map it (a numpy array over the engine's own file) instead of
// rendering a copy.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "engine/WavoryxPriv.h"

using namespace wv;

namespace {

// Where a WAV read in place has its samples (what the item's file reader
// skips; the decoder reads such a WAV in place only with this header).
constexpr uint64_t kWavHeaderBytes = 44;

int openReadOnly(const std::string& path, int flags) {
    int fd;
    do {
        fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | flags);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

bool sameFile(int a, int b) {
    struct stat sa, sb;
    return ::fstat(a, &sa) == 0 && ::fstat(b, &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

}  // namespace

int32_t WavoryxPriv::openPcmData(pcm_id_t id, uint64_t* offset, uint64_t* bytes) {
    if (offset == nullptr || bytes == nullptr) return WV_ERR_OUT_OF_RANGE;
    // The hold keeps the item, and with it its locked PCM file, until the
    // new descriptor is open: no release can close or unlink it meanwhile.
    ItemHold hold(this, id);
    SPcmInfo* item = hold.get();
    if (item == nullptr) return WV_ERR_NO_ITEM;
    if (item->status.load() != PCM_READY || item->clipList || item->scan) return WV_ERR_WRONG_ITEM;
    const uint64_t size = uint64_t(item->frames.load()) * item->frameSize();
    const std::string pcmPath = item->pcmPath.get();
    int fd;
    uint64_t start = 0;
    if (!pcmPath.empty()) {
        // Opened by name, then checked to be the very file the item holds
        // locked: a name replaced behind the engine's back is refused.
        const int held = item->pcmFd.load();
        fd = held < 0 ? -1 : openReadOnly(pcmPath, O_NOFOLLOW);
        if (fd >= 0 && !sameFile(fd, held)) {
            ::close(fd);
            fd = -1;
        }
    } else {
        // A WAV read in place: the engine itself reads it by name, behind
        // its header.
        fd = openReadOnly(item->path.get(), 0);
        start = kWavHeaderBytes;
    }
    if (fd < 0) return WV_ERR_WRONG_ITEM;
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
        static_cast<uint64_t>(st.st_size) < start + size) {
        ::close(fd);
        return WV_ERR_WRONG_ITEM;
    }
    *offset = start;
    *bytes = size;
    return fd;
}
