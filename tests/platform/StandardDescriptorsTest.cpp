// A process started with a standard stream closed: the engine gives the
// number to /dev/null before any of its files can take it.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <string>

#include <wavoryx/Wavoryx.h>
#include <wavoryx/platform.h>

#include "TestSupport.h"

namespace {

bool isDevNull(int fd) {
    struct stat st;
    struct stat null;
    return ::fstat(fd, &st) == 0 && ::stat("/dev/null", &null) == 0 && S_ISCHR(st.st_mode) &&
           st.st_rdev == null.st_rdev;
}

// Runs `body` in a child with descriptor `closed` closed; its exit status:
// 0 when every check held, else the number of the first that failed.
template <typename Body>
int withClosed(int closed, Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(closed);
        ::_exit(body());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100;
}

}  // namespace

TEST(StandardDescriptorsTest, AClosedStreamIsNeverTheNumberOfAFileOpenedLater) {
    wvtest::TempDir dir;
    const std::string path = dir.file("later.txt");
    for (int closed = 0; closed <= 2; ++closed) {
        // The engine on its own, as an application constructs it.
        EXPECT_EQ(withClosed(closed,
                             [&] {
                                 std::unique_ptr<Wavoryx> engine(new Wavoryx());
                                 if (!isDevNull(closed)) return 1;
                                 const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
                                 if (fd <= 2) return 2;
                                 // Left inheritable, as the standard streams are.
                                 if (::fcntl(closed, F_GETFD) != 0) return 3;
                                 return 0;
                             }),
                  0)
            << "descriptor " << closed;
        // Called directly: all three closed at once, and a second call.
        EXPECT_EQ(withClosed(closed,
                             [] {
                                 // The runner may hold descriptors above 2: the first
                                 // free one now must be the first free one after, so
                                 // that the calls keep none of their own open.
                                 const int probe = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
                                 const int firstFree = ::fcntl(probe, F_DUPFD_CLOEXEC, 3);
                                 ::close(firstFree);
                                 ::close(probe);
                                 ::close(0);
                                 ::close(1);
                                 ::close(2);
                                 if (wavoryx_keep_standard_descriptors() != 0) return 1;
                                 if (!isDevNull(0) || !isDevNull(1) || !isDevNull(2)) return 2;
                                 if (wavoryx_keep_standard_descriptors() != 0) return 3;
                                 const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
                                 return fd == firstFree ? 0 : 4;
                             }),
                  0)
            << "descriptor " << closed;
    }
}
