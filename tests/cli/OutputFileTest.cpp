// Where outputs go: same-file detection, what a target is, and how a
// finished file replaces it without the target ever being lost.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>

#include <algorithm>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "OutputFile.h"
#include "SmallFilesystem.h"
#include "TestSupport.h"

using namespace wvcli;
using wvtest::TempDir;

namespace {

void writeText(const std::string& path, const std::string& text) { wvtest::writeFile(path, text.data(), text.size()); }

std::string readText(const std::string& path) {
    const std::vector<char> bytes = wvtest::readFile(path);
    return std::string(bytes.begin(), bytes.end());
}

std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    DIR* dir = ::opendir(folder.c_str());
    while (const dirent* entry = dir != nullptr ? ::readdir(dir) : nullptr) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
    }
    if (dir != nullptr) ::closedir(dir);
    std::sort(names.begin(), names.end());
    return names;
}

struct stat statOf(const std::string& path) {
    struct stat st = {};
    EXPECT_EQ(::stat(path.c_str(), &st), 0) << path;
    return st;
}

OutputTarget examined(const std::string& path) {
    OutputTarget target;
    std::string why;
    EXPECT_TRUE(examineOutput(path, target, why)) << path << ": " << why;
    return target;
}

}  // namespace

TEST(SameFileTest, LinksAndSpellingsOfOneFileAreTheSameFile) {
    TempDir dir;
    writeText(dir.file("a.wav"), "audio");
    writeText(dir.file("copy.wav"), "audio");
    ASSERT_EQ(::link(dir.file("a.wav").c_str(), dir.file("hard.wav").c_str()), 0);
    ASSERT_EQ(::symlink("a.wav", dir.file("soft.wav").c_str()), 0);
    EXPECT_TRUE(isSameFile(dir.file("hard.wav"), dir.file("a.wav")));
    EXPECT_TRUE(isSameFile(dir.file("soft.wav"), dir.file("a.wav")));
    EXPECT_TRUE(isSameFile(dir.path() + "/./a.wav", dir.file("a.wav")));
    // Equal bytes are not the same file, and a missing output clashes with nothing.
    EXPECT_FALSE(isSameFile(dir.file("copy.wav"), dir.file("a.wav")));
    EXPECT_FALSE(isSameFile(dir.file("new.wav"), dir.file("a.wav")));

    const std::vector<std::string> inputs = {dir.file("copy.wav"), dir.file("a.wav")};
    const std::string* clash = sameFileAmong(dir.file("hard.wav"), inputs);
    ASSERT_NE(clash, nullptr);
    EXPECT_EQ(*clash, dir.file("a.wav"));
    EXPECT_EQ(sameFileAmong(dir.file("new.wav"), inputs), nullptr);
}

TEST(ExamineOutputTest, TellsRegularFilesFromDevicesAndRefusesWhatCannotBeWritten) {
    TempDir dir;
    writeText(dir.file("old.wav"), "old");
    ASSERT_EQ(::symlink(dir.file("old.wav").c_str(), dir.file("link.wav").c_str()), 0);
    ASSERT_EQ(::symlink("/dev/null", dir.file("null.wav").c_str()), 0);
    ASSERT_EQ(::mkfifo(dir.file("fifo.wav").c_str(), 0600), 0);
    ASSERT_EQ(::symlink("gone.wav", dir.file("broken.wav").c_str()), 0);

    EXPECT_EQ(examined(dir.file("new.wav")).kind, TargetKind::Absent);
    EXPECT_EQ(examined(dir.file("old.wav")).kind, TargetKind::Regular);
    // A link to a regular file: the file it names is replaced, the link stays.
    const OutputTarget link = examined(dir.file("link.wav"));
    EXPECT_EQ(link.kind, TargetKind::Regular);
    EXPECT_TRUE(isSameFile(link.filePath, dir.file("old.wav")));
    EXPECT_NE(link.filePath, dir.file("link.wav"));
    for (const std::string& special : {std::string("/dev/null"), dir.file("null.wav"), dir.file("fifo.wav")}) {
        EXPECT_EQ(examined(special).kind, TargetKind::Special) << special;
    }

    OutputTarget target;
    std::string why;
    EXPECT_FALSE(examineOutput(dir.path(), target, why));
    EXPECT_EQ(why, "is a folder");
    EXPECT_FALSE(examineOutput(dir.file("broken.wav"), target, why));
    EXPECT_EQ(why, "is a broken link");
    EXPECT_FALSE(examineOutput(dir.file("no/such/out.wav"), target, why));
    EXPECT_NE(why.find("cannot write"), std::string::npos) << why;
}

TEST(CommitOutputTest, AFinishedFileReplacesTheTargetWithTheModeOfANewDocument) {
    TempDir work;
    TempDir out;
    const mode_t saved = ::umask(027);
    for (const char* name : {"new.wav", "old.wav"}) {
        if (std::string(name) == "old.wav") writeText(out.file(name), "the user's bytes");
        writeText(work.file("done.wav"), "finished render");
        ::chmod(work.file("done.wav").c_str(), 0777);  // as the engine makes its files
        std::string why;
        ASSERT_TRUE(commitOutput(work.file("done.wav"), examined(out.file(name)), true, why)) << why;
        EXPECT_EQ(readText(out.file(name)), "finished render");
        EXPECT_EQ(statOf(out.file(name)).st_mode & 0777, mode_t(0640)) << name;
        EXPECT_FALSE(wvtest::fileExists(work.file("done.wav")));
    }
    // A private file stays private when it is replaced.
    ::chmod(out.file("old.wav").c_str(), 0600);
    writeText(work.file("done.wav"), "second render");
    std::string why;
    ASSERT_TRUE(commitOutput(work.file("done.wav"), examined(out.file("old.wav")), true, why)) << why;
    EXPECT_EQ(readText(out.file("old.wav")), "second render");
    EXPECT_EQ(statOf(out.file("old.wav")).st_mode & 0777, mode_t(0600));
    ::umask(saved);
    EXPECT_EQ(namesIn(out.path()), (std::vector<std::string>{"new.wav", "old.wav"}));
}

TEST(CommitOutputTest, ALinkKeepsPointingAtItsFileWhichGetsTheNewBytes) {
    TempDir work;
    TempDir out;
    writeText(out.file("real.wav"), "old");
    ASSERT_EQ(::symlink("real.wav", out.file("link.wav").c_str()), 0);
    writeText(work.file("done.wav"), "new");
    std::string why;
    ASSERT_TRUE(commitOutput(work.file("done.wav"), examined(out.file("link.wav")), true, why)) << why;
    struct stat st;
    ASSERT_EQ(::lstat(out.file("link.wav").c_str(), &st), 0);
    EXPECT_TRUE(S_ISLNK(st.st_mode));
    EXPECT_EQ(readText(out.file("real.wav")), "new");
}

TEST(CommitOutputTest, DevicesAndFifosGetTheBytesAndKeepTheirNode) {
    TempDir work;
    TempDir out;
    writeText(work.file("done.wav"), "rendered bytes");
    ASSERT_EQ(::symlink("/dev/null", out.file("null.wav").c_str()), 0);
    const struct stat before = statOf("/dev/null");
    for (const std::string& path : {std::string("/dev/null"), out.file("null.wav")}) {
        std::string why;
        ASSERT_TRUE(commitOutput(work.file("done.wav"), examined(path), true, why)) << why;
        const struct stat after = statOf(path);
        EXPECT_TRUE(S_ISCHR(after.st_mode));
        EXPECT_EQ(after.st_mode, before.st_mode);
        EXPECT_EQ(after.st_rdev, before.st_rdev);
    }
    // The finished file stays for the caller; a device is no place to move it.
    EXPECT_TRUE(wvtest::fileExists(work.file("done.wav")));

    ASSERT_EQ(::mkfifo(out.file("pipe").c_str(), 0600), 0);
    std::string heard;
    std::thread reader([&] { heard = readText(out.file("pipe")); });
    std::string why;
    const bool ok = commitOutput(work.file("done.wav"), examined(out.file("pipe")), true, why);
    reader.join();
    EXPECT_TRUE(ok) << why;
    EXPECT_EQ(heard, "rendered bytes");
    struct stat st;
    ASSERT_EQ(::lstat(out.file("pipe").c_str(), &st), 0);
    EXPECT_TRUE(S_ISFIFO(st.st_mode));
}

// Outputs the command makes in memory (pictures, data files) go through the
// engine's placement: on another file system than the working folder too.
TEST(WriteOutputTest, OnAnotherFileSystemTheOutputReplacesOnlyWhenWholeAndAFullDiskChangesNothing) {
    wvtest::SmallFilesystem fs(64 * 1024);
    if (!fs.mounted()) GTEST_SKIP() << fs.skipReason();
    writeText(fs.file("kept.wav"), "the user's bytes");
    ::chmod(fs.file("kept.wav").c_str(), 0600);
    std::string why;
    ASSERT_TRUE(writeOutput("finished", examined(fs.file("kept.wav")), why)) << why;
    EXPECT_EQ(readText(fs.file("kept.wav")), "finished");
    EXPECT_EQ(statOf(fs.file("kept.wav")).st_mode & 0777, mode_t(0600));
    EXPECT_EQ(namesIn(fs.path()), std::vector<std::string>{"kept.wav"});

    // Larger than the whole file system: the write fails part way.
    writeText(fs.file("kept.wav"), "the user's bytes");
    const std::string big(256 * 1024, 'x');
    EXPECT_FALSE(writeOutput(big, examined(fs.file("kept.wav")), why));
    EXPECT_EQ(why, "storage full");
    EXPECT_EQ(readText(fs.file("kept.wav")), "the user's bytes");
    EXPECT_EQ(namesIn(fs.path()), std::vector<std::string>{"kept.wav"});
}

TEST(CommitOutputTest, AFileThatAppearsAtAFreeNameIsKeptUnlessTheLastWriterWins) {
    wvtest::SmallFilesystem fs(1024 * 1024);
    TempDir work;
    TempDir out;
    std::vector<std::string> folders{out.path()};
    if (fs.mounted()) folders.push_back(fs.path());  // written there by the engine, too
    for (const std::string& folder : folders) {
        const bool beside = folder == out.path();  // a finished file on the same file system
        const std::string target = folder + "/same.mp3";
        const OutputTarget examinedFree = examined(target);
        writeText(target, "precious");
        writeText(work.file("done.mp3"), "render");
        std::string why;
        EXPECT_FALSE(beside ? commitOutput(work.file("done.mp3"), examinedFree, true, why)
                            : writeOutput("render", examinedFree, why))
            << folder;
        EXPECT_NE(why.find("appeared"), std::string::npos) << why;
        EXPECT_EQ(readText(target), "precious") << folder;
        EXPECT_EQ(namesIn(folder), std::vector<std::string>{"same.mp3"});
        // -y: the last writer wins.
        OutputTarget agreed = examinedFree;
        agreed.lastWriterWins = true;
        ASSERT_TRUE(beside ? commitOutput(work.file("done.mp3"), agreed, true, why)
                           : writeOutput("render", agreed, why))
            << why;
        EXPECT_EQ(readText(target), "render") << folder;
        EXPECT_EQ(namesIn(folder), std::vector<std::string>{"same.mp3"});
        ::unlink(target.c_str());
    }
}

TEST(CommitOutputTest, AMissingFinishedFileLeavesTheTargetAsItWas) {
    TempDir work;
    TempDir out;
    writeText(out.file("kept.wav"), "the user's bytes");
    std::string why;
    EXPECT_FALSE(commitOutput(work.file("none.wav"), examined(out.file("kept.wav")), true, why));
    EXPECT_FALSE(why.empty());
    EXPECT_EQ(readText(out.file("kept.wav")), "the user's bytes");
    EXPECT_EQ(namesIn(out.path()), std::vector<std::string>{"kept.wav"});
}

TEST(FreshNameTest, KeepsTheExtensionAndNeverNamesAnExistingFile) {
    TempDir dir;
    const std::regex withExtension(std::regex_replace(dir.path(), std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)") +
                                   R"(/keep\.recording-[a-z0-9]{6}\.wav)");
    const std::string name = freshNameBeside(dir.file("keep.wav"), "recording");
    EXPECT_TRUE(std::regex_match(name, withExtension)) << name;
    EXPECT_FALSE(wvtest::fileExists(name));
    // A dot in a folder's name is no extension.
    const std::string bare = freshNameBeside("a.b/take", "recording");
    EXPECT_TRUE(std::regex_match(bare, std::regex(R"(a\.b/take\.recording-[a-z0-9]{6})"))) << bare;
    EXPECT_NE(freshNameBeside(dir.file("keep.wav"), "recording"), name);
}
