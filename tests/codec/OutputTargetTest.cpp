// What an output does to whatever already stands at its name: nothing until
// the output is complete, and never anything to a device or a FIFO.
#include "platform/OutputFile.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>
#include <vector>

#include "TestSupport.h"

namespace {

using wv::OutputFile;

std::set<std::string> namesIn(const wvtest::TempDir& dir) {
    std::set<std::string> names;
    if (DIR* d = opendir(dir.path().c_str())) {
        while (dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") names.insert(name);
        }
        closedir(d);
    }
    return names;
}

void put(OutputFile& out, const std::string& text) {
    ASSERT_EQ(::write(out.fd(), text.data(), text.size()), ssize_t(text.size()));
}

std::string contents(const std::string& path) {
    const auto bytes = wvtest::readFile(path);
    return std::string(bytes.begin(), bytes.end());
}

mode_t modeOf(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

// Restores the process's umask when a test ends.
struct Umask {
    explicit Umask(mode_t mask) : old(::umask(mask)) {}
    ~Umask() { ::umask(old); }
    mode_t old;
};

TEST(OutputTarget, AnAbsentTargetIsCreatedWithTheUmaskAndGoesAgainWhenUnfinished) {
    wvtest::TempDir dir;
    const std::string path = dir.file("out.wav");
    for (mode_t mask : {mode_t(022), mode_t(0)}) {
        Umask umask(mask);
        {
            OutputFile out;
            ASSERT_EQ(out.open(path), 0);
            EXPECT_FALSE(out.replacing());
            EXPECT_EQ(out.writingPath(), path);  // followed under its own name
            EXPECT_EQ(modeOf(path), 0666 & ~mask);
            EXPECT_EQ(::fcntl(out.fd(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
            put(out, "partial");
        }
        EXPECT_TRUE(namesIn(dir).empty()) << "absent stays absent";

        OutputFile out;
        ASSERT_EQ(out.open(path), 0);
        put(out, "whole");
        ASSERT_EQ(out.commit(), 0);
        EXPECT_EQ(contents(path), "whole");
        EXPECT_EQ(modeOf(path), 0666 & ~mask);
        ASSERT_EQ(::unlink(path.c_str()), 0);
    }
}

TEST(OutputTarget, AnExistingFileKeepsItsBytesAndModeUntilTheNewOneIsComplete) {
    wvtest::TempDir dir;
    const std::string path = dir.file("song.wav");
    wvtest::writeFile(path, "old bytes", 9);
    ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
    {
        OutputFile out;
        ASSERT_EQ(out.open(path), 0);
        EXPECT_TRUE(out.replacing());
        EXPECT_NE(out.writingPath(), path);
        EXPECT_EQ(out.writingPath().rfind(path, 0), 0u) << "beside the target: " << out.writingPath();
        put(out, "new");
        EXPECT_EQ(contents(path), "old bytes");
        out.discard();  // cancelled, failed, storage full: all the same
    }
    EXPECT_EQ(contents(path), "old bytes");
    EXPECT_EQ(modeOf(path), 0640u);
    EXPECT_EQ(namesIn(dir), std::set<std::string>{"song.wav"});

    OutputFile out;
    ASSERT_EQ(out.open(path), 0);
    put(out, "new bytes");
    ASSERT_EQ(out.commit(), 0);
    EXPECT_EQ(contents(path), "new bytes");
    EXPECT_EQ(modeOf(path), 0640u) << "the replacement keeps the old file's mode";
    EXPECT_EQ(namesIn(dir), std::set<std::string>{"song.wav"});
}

// A link to a regular file is followed: the file it leads to is replaced
// and the link keeps leading to the new content. A link to nothing is not
// followed into a new file.
TEST(OutputTarget, LinksToFilesAreReplacedThroughAndDanglingLinksRefused) {
    wvtest::TempDir dir;
    const std::string real = dir.file("real.wav");
    const std::string link = dir.file("link.wav");
    wvtest::writeFile(real, "old", 3);
    ASSERT_EQ(::symlink(real.c_str(), link.c_str()), 0);
    OutputFile out;
    ASSERT_EQ(out.open(link), 0);
    put(out, "new");
    ASSERT_EQ(out.commit(), 0);
    struct stat st;
    ASSERT_EQ(::lstat(link.c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ(contents(real), "new");
    EXPECT_EQ(namesIn(dir), (std::set<std::string>{"link.wav", "real.wav"}));

    const std::string dangling = dir.file("dangling.wav");
    ASSERT_EQ(::symlink(dir.file("planted.wav").c_str(), dangling.c_str()), 0);
    OutputFile refused;
    EXPECT_EQ(refused.open(dangling), -ENOENT);
    EXPECT_FALSE(wvtest::fileExists(dir.file("planted.wav")));
    EXPECT_EQ(refused.open(dir.path()), -EISDIR);
}

TEST(OutputTarget, DevicesAndLinksToThemAreWrittenNeverRemovedOrChanged) {
    wvtest::TempDir dir;
    const std::string link = dir.file("null.wav");
    ASSERT_EQ(::symlink("/dev/null", link.c_str()), 0);
    struct stat before;
    ASSERT_EQ(::stat("/dev/null", &before), 0);
    for (const std::string& target : {std::string("/dev/null"), link}) {
        for (bool finish : {false, true}) {
            OutputFile out;
            ASSERT_EQ(out.open(target), 0) << target;
            EXPECT_FALSE(out.replacing());
            EXPECT_TRUE(out.seekable());
            put(out, "into the void");
            if (finish) {
                EXPECT_EQ(out.commit(), 0);
            } else {
                out.discard();
            }
        }
    }
    struct stat after;
    ASSERT_EQ(::stat("/dev/null", &after), 0);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_rdev, before.st_rdev);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(namesIn(dir), std::set<std::string>{"null.wav"});
}

TEST(OutputTarget, AFifoWithAReaderGetsTheBytesAndOneWithoutIsRefusedAtOnce) {
    wvtest::TempDir dir;
    const std::string fifo = dir.file("pipe.wav");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    {
        OutputFile out;
        EXPECT_EQ(out.open(fifo), -ENXIO);  // nobody reads: no wait for one
    }
    const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    OutputFile out;
    ASSERT_EQ(out.open(fifo), 0);
    EXPECT_FALSE(out.seekable());
    put(out, "streamed");
    EXPECT_EQ(out.commit(), 0);
    char got[16] = {};
    EXPECT_EQ(::read(reader, got, sizeof got), 8);
    EXPECT_EQ(std::string(got), "streamed");
    ::close(reader);
    struct stat st;
    ASSERT_EQ(::lstat(fifo.c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST(OutputTarget, AFileThisProcessMayNotWriteIsNotReplaced) {
    if (::geteuid() == 0) GTEST_SKIP() << "root may write any file";
    wvtest::TempDir dir;
    const std::string path = dir.file("locked.wav");
    wvtest::writeFile(path, "mine", 4);
    ASSERT_EQ(::chmod(path.c_str(), 0444), 0);
    OutputFile out;
    EXPECT_EQ(out.open(path), -EACCES);
    EXPECT_EQ(contents(path), "mine");
    EXPECT_EQ(namesIn(dir), std::set<std::string>{"locked.wav"});
}

}  // namespace

// A killed run leaves its ".part" file; the next replacement of the same
// file removes it, but never one a live writer holds (here a lock taken as
// a writer in another process or namespace would hold it), nor anything
// else that merely looks alike.
TEST(OutputTarget, PartFilesOfDeadRunsGoWithTheNextReplacementLiveOnesStay) {
    wvtest::TempDir dir;
    const std::string path = dir.file("song.mp3");
    wvtest::writeFile(path, "old", 3);
    const std::string dead = path + ".4242.0.part", live = path + ".4243.7.part";
    wvtest::writeFile(dead, "dead run", 8);
    wvtest::writeFile(live, "live run", 8);
    const int held = ::open(live.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(held, 0);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);
    const std::vector<std::string> lookAlikes = {path + ".x.0.part", path + ".12.part", dir.file("other.mp3.1.2.part"),
                                                 path + ".1.2.part.keep"};
    for (const std::string& name : lookAlikes) wvtest::writeFile(name, "x", 1);
    ASSERT_EQ(::symlink(dead.c_str(), (path + ".9.9.part").c_str()), 0);

    OutputFile out;
    ASSERT_EQ(out.open(path), 0);
    put(out, "new");
    ASSERT_EQ(out.commit(), 0);
    EXPECT_EQ(contents(path), "new");
    std::set<std::string> expected = {"song.mp3", "song.mp3.4243.7.part", "song.mp3.9.9.part"};
    for (const std::string& name : lookAlikes) expected.insert(name.substr(name.rfind('/') + 1));
    EXPECT_EQ(namesIn(dir), expected);
    EXPECT_EQ(contents(live), "live run");
    ::close(held);

    // Our own part file is locked while we write, so a second writer of the
    // same file leaves it alone.
    OutputFile first, second;
    ASSERT_EQ(first.open(path), 0);
    ASSERT_EQ(second.open(path), 0);
    put(first, "first");
    ASSERT_EQ(first.commit(), 0);
    EXPECT_EQ(contents(path), "first");
}

// Whole: a missing target has no name at all until commit, and then the
// document mode; a failure leaves the folder as it was.
TEST(OutputTarget, WholeShowsNothingAtTheNameUntilCommit) {
    wvtest::TempDir dir;
    const std::string path = dir.file("out.wav");
    Umask umask(027);
    {
        OutputFile out;
        ASSERT_EQ(out.open(path, OutputFile::kCompleteOnly), 0);
        EXPECT_TRUE(out.replacing());
        put(out, "half");
        EXPECT_EQ(namesIn(dir).count("out.wav"), 0u);
    }
    EXPECT_TRUE(namesIn(dir).empty());
    OutputFile out;
    ASSERT_EQ(out.open(path, OutputFile::kCompleteOnly), 0);
    put(out, "whole");
    // Someone writes the name meanwhile: the finished output replaces it.
    wvtest::writeFile(path, "x", 1);
    ASSERT_EQ(out.commit(), 0);
    EXPECT_EQ(contents(path), "whole");
    EXPECT_EQ(modeOf(path), mode_t(0640));
    EXPECT_EQ(namesIn(dir), std::set<std::string>{"out.wav"});
}

// No replace: the finished output takes only a free name; one taken
// meanwhile, or there from the start, keeps its bytes and the output goes.
TEST(OutputTarget, NoReplaceTakesOnlyAFreeName) {
    wvtest::TempDir dir;
    const int flags = OutputFile::kCompleteOnly | OutputFile::kNoReplace;
    const std::string path = dir.file("out.wav");
    {
        OutputFile out;
        ASSERT_EQ(out.open(path, flags), 0);
        put(out, "mine");
        ASSERT_EQ(out.commit(), 0);
        EXPECT_EQ(contents(path), "mine");
    }
    {
        OutputFile out;
        ASSERT_EQ(out.open(path, flags), 0);
        put(out, "second");
        EXPECT_EQ(out.commit(), -EEXIST);
        EXPECT_EQ(contents(path), "mine");
    }
    const std::string later = dir.file("later.wav");
    OutputFile out;
    ASSERT_EQ(out.open(later, flags), 0);
    put(out, "late");
    wvtest::writeFile(later, "theirs", 6);
    EXPECT_EQ(out.commit(), -EEXIST);
    EXPECT_EQ(contents(later), "theirs");
    EXPECT_EQ(namesIn(dir), (std::set<std::string>{"out.wav", "later.wav"}));
}
