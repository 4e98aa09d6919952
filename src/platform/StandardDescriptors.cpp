#include "platform/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include <wavoryx/platform.h>

namespace wv {
namespace {

bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) != -1 || errno != EBADF; }

}  // namespace

int keepStandardDescriptors() {
    if (isOpen(STDIN_FILENO) && isOpen(STDOUT_FILENO) && isOpen(STDERR_FILENO)) return 0;
    // open() takes the lowest free number, so the closed slots fill in
    // order; the first one above 2 is not needed. Close-on-exec only for
    // that one: the standard three are inherited, as always.
    for (;;) {
        const int fd = ::open("/dev/null", O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (fd < 0) return -errno;
        if (fd > STDERR_FILENO) {
            ::close(fd);
            return 0;
        }
        ::fcntl(fd, F_SETFD, 0);
    }
}

}  // namespace wv

int wavoryx_keep_standard_descriptors(void) { return wv::keepStandardDescriptors(); }
