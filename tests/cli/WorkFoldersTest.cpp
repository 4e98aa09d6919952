// Working folders of killed runs are told by the lock their runs no longer
// hold, and only they are removed.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <string>

#include "TestSupport.h"
#include "WorkFolders.h"

using namespace wvcli;
using wvtest::TempDir;

namespace {

// The PID of a process that has ended and been reaped.
pid_t deadPid() {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(0);
    int status = 0;
    ::waitpid(child, &status, 0);
    return child;
}

void makeFolderWithFile(const std::string& path) {
    ASSERT_EQ(::mkdir(path.c_str(), 0700), 0) << path;
    wvtest::writeFile(path + "/1.pcm", "pcm", 3);
}

bool isFolder(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

TEST(WorkFoldersTest, NamesCarryThePidAndStartTime) {
    pid_t pid = 0;
    uint64_t start = 0;
    ASSERT_TRUE(parseWorkFolderName("wavoryx-1234-98765-a1B2c3", pid, start));
    EXPECT_EQ(pid, 1234);
    EXPECT_EQ(start, 98765u);
    const std::string own = workFolderPrefix() + "abcdef";
    ASSERT_TRUE(parseWorkFolderName(own, pid, start));
    EXPECT_EQ(pid, ::getpid());
    EXPECT_EQ(start, processStartTime(::getpid()));
    EXPECT_GT(start, 0u);
    for (const char* other : {"wavoryx-a1B2c3", "wavoryx-12-a1B2c3", "wavoryx--5-a1B2c3", "wavoryx-12-34-a1B2c",
                              "wavoryx-12-34-a1B2c3d", "wavoryx-1x-34-a1B2c3", "wavoryx-12-34-a1.2c3",
                              "wavoryx-0-34-a1B2c3", "other-12-34-a1B2c3", "wavoryx-99999999999-34-abcdef"}) {
        EXPECT_FALSE(parseWorkFolderName(other, pid, start)) << other;
    }
}

TEST(WorkFoldersTest, OnlyFoldersWhoseLockNobodyHoldsAreRemoved) {
    TempDir parent;
    const pid_t gone = deadPid();
    const std::string self = std::to_string(::getpid());
    // Killed: its lock file is there, and nobody holds it.
    const std::string dead = parent.file("wavoryx-" + std::to_string(gone) + "-12345-abcdef");
    makeFolderWithFile(dead);
    wvtest::writeFile(dead + "/" + kWorkFolderLock, "", 0);
    // A run in another PID namespace: its PID and start time mean nothing
    // here (this very process's PID, started at another time), but it holds
    // its lock, from another process.
    const std::string foreign = parent.file("wavoryx-" + self + "-1-abcdef");
    makeFolderWithFile(foreign);
    wvtest::writeFile(foreign + "/" + kWorkFolderLock, "", 0);
    int ready[2];
    int release[2];
    ASSERT_EQ(::pipe(ready), 0);
    ASSERT_EQ(::pipe(release), 0);
    const pid_t holder = ::fork();
    if (holder == 0) {
        const int fd = ::open((foreign + "/" + kWorkFolderLock).c_str(), O_RDONLY);
        const char ok = fd >= 0 && ::flock(fd, LOCK_EX) == 0 ? 'y' : 'n';
        (void)!::write(ready[1], &ok, 1);
        char end;
        (void)!::read(release[0], &end, 1);
        ::_exit(0);
    }
    char ok = 0;
    ASSERT_EQ(::read(ready[0], &ok, 1), 1);
    ASSERT_EQ(ok, 'y');
    // Without a lock file: kept while young (a run between making it and
    // locking it, or an earlier version's), removed once a day old.
    const std::string young = parent.file("wavoryx-" + std::to_string(gone) + "-12345-young0");
    const std::string old = parent.file("wavoryx-" + std::to_string(gone) + "-12345-old000");
    makeFolderWithFile(young);
    makeFolderWithFile(old);
    const struct timeval twoDaysAgo[2] = {{::time(nullptr) - 2 * 86400, 0}, {::time(nullptr) - 2 * 86400, 0}};
    ASSERT_EQ(::utimes(old.c_str(), twoDaysAgo), 0);
    const std::string older = parent.file("wavoryx-Ab12Cd");  // not of the form
    makeFolderWithFile(older);
    // A link with the form of a stale folder is not a folder: never followed.
    const std::string elsewhere = parent.file("elsewhere");
    makeFolderWithFile(elsewhere);
    wvtest::writeFile(elsewhere + "/" + kWorkFolderLock, "", 0);
    const std::string link = parent.file("wavoryx-" + std::to_string(gone) + "-12345-linked");
    ASSERT_EQ(::symlink(elsewhere.c_str(), link.c_str()), 0);
    // A file with such a name is not a working folder either.
    const std::string file = parent.file("wavoryx-" + std::to_string(gone) + "-12345-file00");
    wvtest::writeFile(file, "x", 1);

    EXPECT_EQ(removeStaleWorkFolders(parent.path()), 2);
    EXPECT_FALSE(wvtest::fileExists(dead));
    EXPECT_FALSE(wvtest::fileExists(old));
    EXPECT_TRUE(wvtest::fileExists(foreign + "/1.pcm"));
    EXPECT_TRUE(wvtest::fileExists(young + "/1.pcm"));
    EXPECT_TRUE(isFolder(older));
    EXPECT_TRUE(wvtest::fileExists(elsewhere + "/1.pcm"));
    EXPECT_TRUE(wvtest::fileExists(file));
    EXPECT_EQ(removeStaleWorkFolders(parent.path() + "/missing"), 0);

    // Once its run has ended, the foreign folder goes too.
    ASSERT_EQ(::write(release[1], "x", 1), 1);
    int status = 0;
    ::waitpid(holder, &status, 0);
    EXPECT_EQ(removeStaleWorkFolders(parent.path()), 1);
    EXPECT_FALSE(wvtest::fileExists(foreign));
    for (int fd : {ready[0], ready[1], release[0], release[1]}) ::close(fd);
}

TEST(WorkFoldersTest, AMadeFolderStaysUntilItsLockIsLetGo) {
    TempDir parent;
    std::string folder;
    const int lock = makeWorkFolder(parent.path(), folder);
    ASSERT_GE(lock, 0);
    wvtest::writeFile(folder + "/1.pcm", "pcm", 3);
    EXPECT_EQ(removeStaleWorkFolders(parent.path()), 0);
    EXPECT_TRUE(wvtest::fileExists(folder + "/1.pcm"));
    ::close(lock);
    EXPECT_EQ(removeStaleWorkFolders(parent.path()), 1);
    EXPECT_FALSE(wvtest::fileExists(folder));
}
