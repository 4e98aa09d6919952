// FileWriter: writes one output file (a decoded PCM file, or the WAV or MP3
// file of an encoder) and copes with a storage that fills up.
//
// Contract
// - A short write is not an error at once: the bytes that did not reach the
//   file are copied to a heap block and held. The next checkStatus() retries
//   them; only if that retry is short again does the caller stop the job.
// - Callers follow one protocol: checkStatus() before every write of new
//   data; on WRITE_OK go on, on WRITE_STORAGE_FULL stop for lack of space, on
//   WRITE_ERROR stop as failed. So at most one remainder is ever retried and
//   new data is never written while a remainder is held.
// - A file that was opened but never finished (finishWrite) is closed and
//   removed by the destructor, so a cancelled or failed job leaves no partial
//   file behind. A finished file is kept.
// - A client's output is opened with openOutput() (see OutputFile): created
//   new, or written beside an existing file and put in its place only by
//   finishOutput(). An unfinished output is discarded by the destructor,
//   which leaves the target as it was.
// - Offsets are 64-bit; files may exceed 2 GiB.
// - Data is written straight from the caller's buffer; memory is allocated
//   only for a remainder after a short write (exactly its size).
// - One thread uses a writer; it takes no locks.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace wv {

class OutputFile;

class FileWriter {
public:
    // Results of write() and checkStatus().
    static constexpr int WRITE_OK = 0;            // all data is in the file
    static constexpr int WRITE_STORAGE_FULL = 1;  // a remainder is held for one retry
    static constexpr int WRITE_ERROR = 2;         // the job must end
    // finishOutput() of an output opened with OutputFile::kNoReplace: the
    // name was taken meanwhile, and the output is discarded.
    static constexpr int WRITE_NAME_TAKEN = 3;
    // Result of openFile() when the file cannot be created.
    static constexpr int OPEN_FAILED = -10;

    // Opens `path` when it is not null; the result of that open is not
    // reported (callers that need it pass null and call openFile()).
    explicit FileWriter(const char* path = nullptr);
    virtual ~FileWriter();
    FileWriter(const FileWriter&) = delete;
    FileWriter& operator=(const FileWriter&) = delete;

    // Closes the current file (keeping it) if one is open, drops any held
    // remainder, then creates `path` new, write-only, with mode 0666 less
    // the umask: an existing name (a symlink included) is refused. 0 on success; OPEN_FAILED,
    // logged "file %s open failed error: %s", otherwise.
    int openFile(const char* path);
    // Opens a client's output (see OutputFile; `flags` are its placement
    // flags). 0, or OPEN_FAILED (logged); nothing is created or changed then.
    int openOutput(const char* path, int flags = 0);
    // Closes an output opened by openOutput() and makes it the target (a
    // file opened by openFile() is just finished). WRITE_OK, or WRITE_ERROR
    // (WRITE_NAME_TAKEN, see above) when it could not be put in place (the
    // output is then discarded).
    int finishOutput();

    // Hands over an output opened by openOutput(), complete but not put in
    // place: the caller commits or discards it. Null for anything else. The
    // writer is finished then.
    std::unique_ptr<OutputFile> releaseOutput();

    // Writes to `fd`, which the writer now owns, as the file `path`. An
    // unfinished adopted file is removed only while `path` still names it
    // (see WorkingFile::removeAndClose).
    void adopt(int fd, const char* path);

    // Writes `length` bytes with one system write. WRITE_OK when all of them
    // reached the file; WRITE_STORAGE_FULL when the storage took only part
    // (or none, ENOSPC) and the rest is now held; WRITE_ERROR on any other
    // failure, including no memory for the remainder.
    int write(const void* data, uint32_t length);

    // WRITE_ERROR when no file is open (never opened, open failed, or
    // finished); WRITE_OK when nothing is held; otherwise retries the held
    // remainder and returns the status of that retry.
    int checkStatus();

    // Sets the file offset from the start of the file; returns the new
    // offset, or -1 on failure.
    int64_t seek(int64_t offset);

    // Closes the file and marks it finished: it is kept by the destructor.
    void finishWrite();

    // Writes `length` bytes at `offset` without moving the file offset and
    // without holding a remainder: WRITE_OK, WRITE_STORAGE_FULL (short or
    // ENOSPC) or WRITE_ERROR.
    int writeAt(int64_t offset, const void* data, uint32_t length);
    // Drops a held remainder: those bytes never reach the file.
    virtual void dropHeld() { releaseHeld(); }
    // False for an output that cannot seek (a FIFO, a terminal).
    bool isSeekable() const;
    // The name the data reach now: the output's ".part" file while an
    // existing file is being replaced, else path().
    std::string writingPath() const;

    const std::string& path() const { return mPath; }
    uint32_t heldLength() const { return mHeldLength; }
    bool isOpen() const { return mFd >= 0; }
    bool isFinished() const { return mFinished; }
    // The open descriptor, or -1.
    int fd() const { return mFd; }

private:
    // One system write of `length` bytes of `data`, which may be the held
    // block itself. On a short write the unwritten tail replaces the held
    // block. `retry` frees the held block once it has reached the file.
    int writeOnce(const uint8_t* data, uint32_t length, bool retry);
    void releaseHeld();
    // Ends whatever file is open (an unfinished output is discarded, a plain
    // file just closed and kept) and drops any held remainder.
    void closeCurrent();

    uint8_t* mHeld = nullptr;  // malloc'd tail of the last short write
    uint32_t mHeldLength = 0;
    std::string mPath;                    // empty until a file is opened
    int mFd = -1;                         // -1 when no file is open
    bool mFinished = false;               // set by finishWrite, cleared by openFile
    bool mAdopted = false;                // the file came from adopt()
    std::unique_ptr<OutputFile> mOutput;  // set by openOutput; owns mFd then
};

}  // namespace wv
