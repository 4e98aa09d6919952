// Working folders of killed runs are found by PID and start time, and only
// they are removed.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

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

TEST(WorkFoldersTest, OnlyFoldersOfEndedRunsAreRemoved) {
    TempDir parent;
    const pid_t gone = deadPid();
    ASSERT_EQ(processStartTime(gone), 0u);
    const std::string self = std::to_string(::getpid());
    const std::string started = std::to_string(processStartTime(::getpid()));

    const std::string dead = parent.file("wavoryx-" + std::to_string(gone) + "-12345-abcdef");
    // A reused PID: the process now running under it started at another time.
    const std::string reused = parent.file("wavoryx-" + self + "-1-abcdef");
    const std::string live = parent.file(workFolderPrefix() + "abcdef");
    const std::string older = parent.file("wavoryx-Ab12Cd");  // no PID to go by
    makeFolderWithFile(dead);
    makeFolderWithFile(reused);
    makeFolderWithFile(live);
    makeFolderWithFile(older);
    // A link with the form of a stale folder is not a folder: never followed.
    const std::string elsewhere = parent.file("elsewhere");
    makeFolderWithFile(elsewhere);
    const std::string link = parent.file("wavoryx-" + std::to_string(gone) + "-12345-linked");
    ASSERT_EQ(::symlink(elsewhere.c_str(), link.c_str()), 0);
    // A file with such a name is not a working folder either.
    const std::string file = parent.file("wavoryx-" + std::to_string(gone) + "-12345-file00");
    wvtest::writeFile(file, "x", 1);

    EXPECT_EQ(removeStaleWorkFolders(parent.path()), 2);
    EXPECT_FALSE(wvtest::fileExists(dead));
    EXPECT_FALSE(wvtest::fileExists(reused));
    EXPECT_TRUE(isFolder(live));
    EXPECT_TRUE(wvtest::fileExists(live + "/1.pcm"));
    EXPECT_TRUE(isFolder(older));
    EXPECT_TRUE(wvtest::fileExists(elsewhere + "/1.pcm"));
    EXPECT_TRUE(wvtest::fileExists(file));
    EXPECT_EQ(removeStaleWorkFolders(parent.path() + "/missing"), 0);
}
