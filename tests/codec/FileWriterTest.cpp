// The file writer's contract: finished files stay, unfinished ones go, and a
// short write holds exactly the unwritten tail for one retry.
#include "codec/FileWriter.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "SmallFilesystem.h"
#include "TestSupport.h"

namespace {

using wv::FileWriter;

std::vector<char> pattern(size_t size, unsigned seed) {
    std::vector<char> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 31 + seed * 7 + i / 251) & 0xFF);
    return bytes;
}

std::vector<char> concat(std::vector<char> a, const std::vector<char>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

TEST(FileWriter, FinishedFileIsKeptWithoutWarning) {
    wvtest::TempDir dir;
    wvtest::LogCapture log;
    const std::string path = dir.file("kept.pcm");
    const auto data = pattern(5000, 1);
    {
        FileWriter writer(path.c_str());
        ASSERT_TRUE(writer.isOpen());
        EXPECT_EQ(writer.checkStatus(), FileWriter::WRITE_OK);
        EXPECT_EQ(writer.write(data.data(), 5000), FileWriter::WRITE_OK);
        writer.finishWrite();
        EXPECT_TRUE(writer.isFinished());
        // A finished file takes no more data.
        EXPECT_EQ(writer.checkStatus(), FileWriter::WRITE_ERROR);
    }
    EXPECT_EQ(wvtest::readFile(path), data);
    EXPECT_TRUE(log.lines().empty());
}

TEST(FileWriter, UnfinishedFileIsRemovedWithWarning) {
    wvtest::TempDir dir;
    wvtest::LogCapture log;
    const std::string path = dir.file("partial.mp3");
    {
        FileWriter writer(nullptr);
        EXPECT_FALSE(writer.isOpen());
        ASSERT_EQ(writer.openFile(path.c_str()), 0);
        EXPECT_EQ(writer.write("abc", 3), FileWriter::WRITE_OK);
        EXPECT_TRUE(wvtest::fileExists(path));
    }
    EXPECT_FALSE(wvtest::fileExists(path));
    EXPECT_TRUE(log.contains("delete unfinished file " + path, "WavoryxPriv"));
}

TEST(FileWriter, OpenFailureIsReportedAndLeavesWriterInError) {
    wvtest::TempDir dir;
    wvtest::LogCapture log;
    const std::string path = dir.file("missing/dir/out.wav");
    FileWriter writer(nullptr);
    EXPECT_EQ(writer.openFile(path.c_str()), FileWriter::OPEN_FAILED);
    EXPECT_TRUE(log.contains("file " + path + " open failed error: No such file or directory"));
    EXPECT_EQ(writer.checkStatus(), FileWriter::WRITE_ERROR);
    EXPECT_EQ(writer.write("x", 1), FileWriter::WRITE_ERROR);
    EXPECT_EQ(writer.heldLength(), 0u);

    // The constructor's own open failure is silent to the caller but the same.
    FileWriter constructed(path.c_str());
    EXPECT_EQ(constructed.checkStatus(), FileWriter::WRITE_ERROR);
}

TEST(FileWriter, OpenCreatesNewAndReopenKeepsThePreviousFile) {
    wvtest::TempDir dir;
    const std::string taken = dir.file("taken.pcm");
    const std::string first = dir.file("first.pcm");
    const std::string second = dir.file("second.pcm");
    wvtest::writeFile(taken, "old contents that are longer", 28);
    const mode_t oldMask = ::umask(022);
    {
        // An existing name, or a link to one, is never truncated.
        FileWriter refused(nullptr);
        EXPECT_EQ(refused.openFile(taken.c_str()), FileWriter::OPEN_FAILED);
        ASSERT_EQ(::symlink(taken.c_str(), dir.file("link.pcm").c_str()), 0);
        EXPECT_EQ(refused.openFile(dir.file("link.pcm").c_str()), FileWriter::OPEN_FAILED);
        EXPECT_EQ(wvtest::fileSize(taken), 28);

        FileWriter writer(first.c_str());
        EXPECT_EQ(wvtest::fileSize(first), 0);
        EXPECT_EQ(writer.write("new", 3), FileWriter::WRITE_OK);
        ASSERT_EQ(writer.openFile(second.c_str()), 0);
        EXPECT_EQ(writer.path(), second);
        struct stat st;
        ASSERT_EQ(::stat(second.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 0777, 0644u);
    }
    ::umask(oldMask);
    // Switching files closes the old one without removing it; only the file
    // open at destruction is unfinished.
    EXPECT_EQ(wvtest::readFile(first), std::vector<char>({'n', 'e', 'w'}));
    EXPECT_FALSE(wvtest::fileExists(second));
}

TEST(FileWriter, SeekRewritesInPlaceAndReachesBeyondFourGigabytes) {
    wvtest::TempDir dir;
    const std::string path = dir.file("seek.wav");
    FileWriter writer(path.c_str());
    ASSERT_EQ(writer.write("0123456789", 10), FileWriter::WRITE_OK);
    EXPECT_EQ(writer.seek(2), 2);
    ASSERT_EQ(writer.write("ab", 2), FileWriter::WRITE_OK);
    const int64_t far = (int64_t(5) << 30) + 3;
    EXPECT_EQ(writer.seek(far), far);
    EXPECT_EQ(writer.seek(0), 0);
    writer.finishWrite();
    EXPECT_EQ(std::string(wvtest::readFile(path).data(), 10), "01ab456789");
}

// A FIFO whose write side is made non-blocking gives real short writes and
// real write errors on demand.
class FifoWriter : public ::testing::Test {
protected:
    void SetUp() override {
        mPath = mDir.file("fifo");
        ASSERT_EQ(::mkfifo(mPath.c_str(), 0600), 0);
        mReadFd = ::open(mPath.c_str(), O_RDONLY | O_NONBLOCK);
        ASSERT_GE(mReadFd, 0);
        // openFile() creates new files only: the FIFO is opened here.
        const int writeFd = ::open(mPath.c_str(), O_WRONLY | O_CLOEXEC);
        ASSERT_GE(writeFd, 0);
        mWriter.adopt(writeFd, mPath.c_str());
        ASSERT_EQ(::fcntl(mWriter.fd(), F_SETFL, O_NONBLOCK), 0);
        mCapacity = ::fcntl(mReadFd, F_SETPIPE_SZ, 16384);
        ASSERT_GE(mCapacity, 16384);
    }
    void TearDown() override {
        if (mReadFd >= 0) ::close(mReadFd);
    }
    std::vector<char> drain() {
        std::vector<char> out;
        char buffer[4096];
        ssize_t n;
        while ((n = ::read(mReadFd, buffer, sizeof buffer)) > 0) out.insert(out.end(), buffer, buffer + n);
        return out;
    }

    wvtest::TempDir mDir;
    std::string mPath;
    int mReadFd = -1;
    int mCapacity = 0;
    FileWriter mWriter;
};

TEST_F(FifoWriter, ShortWriteHoldsTheTailAndRetryDeliversItInOrder) {
    wvtest::LogCapture log;
    const auto head = pattern(mCapacity - 4096, 2);
    const auto block = pattern(12288, 3);
    ASSERT_EQ(mWriter.write(head.data(), head.size()), FileWriter::WRITE_OK);
    ASSERT_EQ(mWriter.write(block.data(), block.size()), FileWriter::WRITE_STORAGE_FULL);
    const uint32_t held = mWriter.heldLength();
    ASSERT_GT(held, 0u);
    ASSERT_LT(held, block.size());
    EXPECT_TRUE(log.contains("pcm should write 12288 but write return " + std::to_string(block.size() - held)));

    auto received = drain();
    EXPECT_EQ(received.size(), head.size() + block.size() - held);
    EXPECT_EQ(mWriter.checkStatus(), FileWriter::WRITE_OK);
    EXPECT_EQ(mWriter.heldLength(), 0u);
    log.clear();
    // Nothing held: no second write.
    EXPECT_EQ(mWriter.checkStatus(), FileWriter::WRITE_OK);
    EXPECT_TRUE(log.lines().empty());
    received = concat(received, drain());
    EXPECT_EQ(received, concat(head, block));
}

TEST_F(FifoWriter, OtherWriteErrorsEndTheJob) {
    wvtest::LogCapture log;
    const auto fill = pattern(mCapacity, 4);
    ASSERT_EQ(mWriter.write(fill.data(), fill.size()), FileWriter::WRITE_OK);
    // Full pipe, non-blocking: EAGAIN is not a lack of space.
    EXPECT_EQ(mWriter.write("more", 4), FileWriter::WRITE_ERROR);
    EXPECT_TRUE(log.contains("pcm should write 4 but write return -1"));
    EXPECT_TRUE(log.contains("write file " + mPath + " failed with error " + std::strerror(EAGAIN)));
    EXPECT_EQ(mWriter.heldLength(), 0u);
}

// Real storage exhaustion on a tiny tmpfs.
class FullStorage : public ::testing::Test {
protected:
    void SetUp() override {
        if (!mFs.mounted()) GTEST_SKIP() << mFs.skipReason();
    }
    // Leaves exactly `bytes` (a multiple of the page size) free.
    void leaveFree(long long bytes) { ASSERT_TRUE(mFs.leaveFree(bytes)) << bytes << " bytes free asked"; }
    wvtest::SmallFilesystem mFs{256 * 1024};
};

TEST_F(FullStorage, NoSpaceAtAllHoldsEverythingAndRemovesTheFile) {
    wvtest::LogCapture log;
    const std::string path = mFs.file("out.pcm");
    const auto data = pattern(4096, 6);
    {
        FileWriter writer(path.c_str());
        leaveFree(0);
        EXPECT_EQ(writer.checkStatus(), FileWriter::WRITE_OK);
        EXPECT_EQ(writer.write(data.data(), 4096), FileWriter::WRITE_STORAGE_FULL);
        EXPECT_EQ(writer.heldLength(), 4096u);
        EXPECT_TRUE(log.contains("pcm should write 4096 but write return -1"));
        EXPECT_EQ(writer.checkStatus(), FileWriter::WRITE_STORAGE_FULL);
        EXPECT_EQ(writer.heldLength(), 4096u);
    }
    EXPECT_FALSE(wvtest::fileExists(path));
    EXPECT_TRUE(log.contains("delete unfinished file " + path));
}

TEST_F(FullStorage, RetriesDeliverTheTailPieceByPieceAsSpaceIsFreed) {
    const std::string path = mFs.file("out.pcm");
    const auto first = pattern(3000, 7);
    const auto second = pattern(20000, 8);
    FileWriter writer(path.c_str());
    ASSERT_EQ(writer.write(first.data(), first.size()), FileWriter::WRITE_OK);
    // 3000 bytes sit in the file's first page; one more page is free.
    leaveFree(4096);
    ASSERT_EQ(writer.write(second.data(), second.size()), FileWriter::WRITE_STORAGE_FULL);
    const uint32_t afterFirst = writer.heldLength();
    EXPECT_EQ(afterFirst, second.size() - (8192 - first.size()));

    leaveFree(8192);
    EXPECT_EQ(writer.checkStatus(), FileWriter::WRITE_STORAGE_FULL);
    EXPECT_EQ(writer.heldLength(), afterFirst - 8192);

    ASSERT_EQ(::remove(mFs.file("filler").c_str()), 0);
    EXPECT_EQ(writer.checkStatus(), FileWriter::WRITE_OK);
    EXPECT_EQ(writer.heldLength(), 0u);
    writer.finishWrite();
    EXPECT_EQ(wvtest::readFile(path), concat(first, second));
}

}  // namespace
