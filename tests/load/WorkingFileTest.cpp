// The engine's PCM files are its own: whatever else stands at their names
// is never followed, truncated or shared, a stale file of an earlier engine
// is taken over, two live engines on one prefix keep apart, and every
// descriptor the engine holds is close-on-exec.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <string>
#include <vector>

#include "AudioFixtures.h"
#include "LoadTestHelpers.h"

namespace {

using loadtest::LoadRig;
using wvtest::Event;

// A short FLAC source: FLAC is decoded into a PCM file (a canonical WAV
// would be read in place and make none).
class FlacSource {
public:
    FlacSource() {
        const std::string wav = mDir.file("tone.wav");
        if (wvtest::writeToneWav(wav, 44100, 2, 1.0, 440.0) &&
            wvtest::encodeWithFfmpeg(wav, mDir.file("tone.flac"), "-c:a flac")) {
            mPath = mDir.file("tone.flac");
        }
    }
    const std::string& path() const { return mPath; }

private:
    wvtest::TempDir mDir;
    std::string mPath;
};

struct stat lstatOf(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) st.st_ino = 0;
    return st;
}

std::string contentOf(const std::string& path) {
    const std::vector<char> bytes = wvtest::readFile(path);
    return std::string(bytes.begin(), bytes.end());
}

// The descriptors this process has open now.
std::set<int> openDescriptors() {
    std::set<int> fds;
    if (DIR* dir = ::opendir("/proc/self/fd")) {
        while (dirent* entry = ::readdir(dir)) {
            if (entry->d_name[0] != '.') fds.insert(std::atoi(entry->d_name));
        }
        ::closedir(dir);
    }
    return fds;
}

TEST(WorkingFile, AnythingPlantedAtThePcmNameIsRefusedAndLeftAlone) {
    FlacSource source;
    if (source.path().empty()) GTEST_SKIP() << "ffmpeg command missing";
    wvtest::TempDir elsewhere;
    const std::string victim = elsewhere.file("victim.txt");
    wvtest::writeFile(victim, "precious", 8);
    const std::string dangling = elsewhere.file("never-made");

    struct Plant {
        const char* what;
        std::function<void(const std::string&)> make;
    };
    const std::vector<Plant> plants = {
        {"symlink to a file", [&](const std::string& at) { ASSERT_EQ(::symlink(victim.c_str(), at.c_str()), 0); }},
        {"dangling symlink", [&](const std::string& at) { ASSERT_EQ(::symlink(dangling.c_str(), at.c_str()), 0); }},
        {"hard link to a file", [&](const std::string& at) { ASSERT_EQ(::link(victim.c_str(), at.c_str()), 0); }},
        {"FIFO", [](const std::string& at) { ASSERT_EQ(::mkfifo(at.c_str(), 0600), 0); }},
        {"directory", [](const std::string& at) { ASSERT_EQ(::mkdir(at.c_str(), 0700), 0); }},
    };
    for (const Plant& plant : plants) {
        SCOPED_TRACE(plant.what);
        LoadRig rig;
        // A fresh engine's first item is 1.
        const std::string at = rig.pcmPath(1);
        plant.make(at);
        const struct stat before = lstatOf(at);
        const int id = rig.engine().loadFile(source.path().c_str());
        ASSERT_EQ(id, 1);
        ASSERT_TRUE(rig.waitForEnd(id));
        EXPECT_EQ(rig.eventsOf(id), (std::vector<Event>{{0, id, 4}}));
        rig.engine().removePcm(id);
        rig.destroyEngine();
        const struct stat after = lstatOf(at);
        EXPECT_EQ(after.st_ino, before.st_ino);
        EXPECT_EQ(after.st_mode, before.st_mode);
        EXPECT_EQ(contentOf(victim), "precious");
        EXPECT_FALSE(wvtest::fileExists(dangling));
    }
}

TEST(WorkingFile, AnotherUsersFileIsNotTakenOver) {
    FlacSource source;
    if (source.path().empty()) GTEST_SKIP() << "ffmpeg command missing";
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to make a file of another user";
    LoadRig rig;
    const std::string at = rig.pcmPath(1);
    wvtest::writeFile(at, "theirs", 6);
    ASSERT_EQ(::chown(at.c_str(), 65534, 65534), 0);
    const int id = rig.engine().loadFile(source.path().c_str());
    ASSERT_TRUE(rig.waitForEnd(id));
    EXPECT_EQ(rig.eventsOf(id), (std::vector<Event>{{0, id, 4}}));
    rig.engine().removePcm(id);
    rig.destroyEngine();
    EXPECT_EQ(contentOf(at), "theirs");
}

TEST(WorkingFile, IsPrivateAndAStaleOneOfAnEarlierEngineIsTakenOver) {
    FlacSource source;
    if (source.path().empty()) GTEST_SKIP() << "ffmpeg command missing";
    const mode_t oldMask = ::umask(0);
    LoadRig rig;
    const std::string stale = rig.pcmPath(1);
    wvtest::writeFile(stale, "left by an engine that died", 27);
    ::chmod(stale.c_str(), 0644);
    const int first = rig.engine().loadFile(source.path().c_str());
    const int second = rig.engine().loadFile(source.path().c_str());
    ASSERT_TRUE(rig.waitForEnd(first));
    ASSERT_TRUE(rig.waitForEnd(second));
    ::umask(oldMask);
    loadtest::expectCompleteLoad(rig.eventsOf(first), first);
    loadtest::expectCompleteLoad(rig.eventsOf(second), second);
    for (int id : {first, second}) {
        EXPECT_EQ(lstatOf(rig.pcmPath(id)).st_mode & 07777, 0600u) << id;
    }
    EXPECT_EQ(wvtest::readFile(rig.pcmPath(first)), wvtest::readFile(rig.pcmPath(second)));
}

TEST(WorkingFile, TwoLiveEnginesOnOnePrefixDoNotShareFiles) {
    FlacSource source;
    if (source.path().empty()) GTEST_SKIP() << "ffmpeg command missing";
    LoadRig first;
    const int kept = first.engine().loadFile(source.path().c_str());
    ASSERT_TRUE(first.waitForEnd(kept));
    const std::vector<char> audio = wvtest::readFile(first.pcmPath(kept));
    ASSERT_FALSE(audio.empty());
    {
        // The second engine's item 1 has the name of the first's live file.
        LoadRig second(first.workingDir());
        const int id = second.engine().loadFile(source.path().c_str());
        ASSERT_EQ(id, kept);
        ASSERT_TRUE(second.waitForEnd(id));
        EXPECT_EQ(second.eventsOf(id), (std::vector<Event>{{0, id, 4}}));
        second.engine().removePcm(id);
    }
    EXPECT_EQ(wvtest::readFile(first.pcmPath(kept)), audio);
    // Released by its engine, the name is free for the next one.
    first.engine().removePcm(kept);
    ASSERT_TRUE(wvtest::waitUntil([&] { return !wvtest::fileExists(first.pcmPath(kept)); }, std::chrono::seconds(10)));
    LoadRig third(first.workingDir());
    const int again = third.engine().loadFile(source.path().c_str());
    ASSERT_TRUE(third.waitForEnd(again));
    loadtest::expectCompleteLoad(third.eventsOf(again), again);
}

TEST(WorkingFile, EveryDescriptorTheEngineOpensIsCloseOnExec) {
    FlacSource source;
    if (source.path().empty()) GTEST_SKIP() << "ffmpeg command missing";
    const std::set<int> before = openDescriptors();
    LoadRig rig;
    const int loaded = rig.engine().loadFile(source.path().c_str());
    ASSERT_TRUE(rig.waitForEnd(loaded));
    const int list = rig.engine().newClipList();
    rig.engine().addClip(list, loaded, 0, 22050);
    rig.engine().setOutputPara(list, rig.scratch("out.wav").c_str(), ENCODE_WAV);
    rig.engine().process(list);
    ASSERT_TRUE(rig.recorder().waitForCode(22, list));
    // The loaded item still holds its locked PCM file here.
    int checked = 0;
    for (int fd : openDescriptors()) {
        if (before.count(fd) != 0) continue;
        const int flags = ::fcntl(fd, F_GETFD);
        if (flags < 0) continue;  // the directory listing's own descriptor
        ++checked;
        EXPECT_NE(flags & FD_CLOEXEC, 0) << "descriptor " << fd;
    }
    EXPECT_GT(checked, 0);
}

}  // namespace
