// OutputFile: the file a job produces for the client (a render, its
// waveform file, a recording, the `file:` output device's WAV), opened so
// that nothing that already exists is lost to a job that does not finish.
//
// What open() does with the target:
// - Nothing there: the target itself is created, O_EXCL, mode 0666 less the
//   umask. Readers can follow the output under its own name while it grows.
// - A regular file (or a symbolic link to one): it must be writable by this
//   process. The data go to a new file beside it (the link's final target
//   for a link), "<file>.<pid>.<n>.part", created O_EXCL with the old file's
//   permission bits; commit() renames that over the file, so the old bytes
//   stay until the new ones are complete. A link stays a link to the new
//   content.
// - Anything else (character device, FIFO, or a link to one): opened and
//   written as it is; never created, removed, renamed over or chmod'ed. A
//   FIFO without a reader is refused rather than waited for.
// - A dangling link, a directory, a socket: refused.
// Every descriptor is close-on-exec, and a link is never followed into a
// name this object creates.
//
// A ".part" file is locked (flock) by its writer from its creation until it
// has been renamed or removed. One that a killed process left behind is
// unlocked: the next open() that replaces the same file removes such
// leftovers (regular files of this user, one link, named "<file>.<digits>.
// <digits>.part"). A lock, unlike a process id, means the same in every
// PID namespace that shares the file system.
//
// discard() (also the destructor of an uncommitted file) closes the file and
// removes what open() created (the new target or the ".part" file), after
// checking that the name still leads to the very file it made; the target
// is then as it was before open().
//
// Placement flags (open's `flags`, 0 for all of the above):
// - kCompleteOnly: nothing appears at the target's name before commit():
//   a missing target gets a ".part" file beside it too, created with the
//   mode of a new document (0666 less the umask); commit() flushes it to
//   the storage (fsync) before the rename.
// - kNoReplace (with kCompleteOnly): commit() puts the file at the target
//   only while that name is free (a no-replace rename, a hard link where
//   the file system has no such rename) and fails with -EEXIST otherwise,
//   whatever was there when open() looked.
//
// One thread at a time uses an OutputFile.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

namespace wv {

class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    static constexpr int kCompleteOnly = 1;
    static constexpr int kNoReplace = 2;

    // 0, or -errno (nothing is then created or changed).
    int open(const std::string& target, int flags = 0);
    // Closes the file and makes it the target: 0, or -errno after which the
    // file is discarded. A second call returns 0.
    int commit();
    void discard();

    int fd() const { return mFd; }
    bool isOpen() const { return mFd >= 0; }
    // Whether the descriptor can seek (false for a FIFO or a terminal).
    bool seekable() const { return mSeekable; }
    // True while the data go to a ".part" file rather than to the target.
    bool replacing() const { return mKind == Kind::Temporary; }
    // The name the data reach now (the ".part" file while replacing).
    const std::string& writingPath() const { return mWriting; }
    const std::string& target() const { return mTarget; }

private:
    enum class Kind { None, Created, Temporary, Direct };

    int openNew(const std::string& target);
    // Opens a ".part" file for `file`: with the permissions of `old`, the
    // file it replaces, or those of a new document when there is none.
    int openPart(const std::string& file, const struct stat* old);
    // Puts the closed ".part" file at mReplace: 0 or -errno.
    int place();
    int openExisting(const std::string& target);
    // Removes mWriting when it still names the file this object created.
    void removeMade();
    void closeLock();

    Kind mKind = Kind::None;
    int mFlags = 0;
    int mFd = -1;
    int mLockFd = -1;  // holds the ".part" file's lock while mFd closes
    bool mSeekable = false;
    dev_t mDev = 0;
    ino_t mIno = 0;
    std::string mTarget;   // as the caller named it
    std::string mReplace;  // the regular file a ".part" file is renamed over
    std::string mWriting;
};

// Writes `size` bytes of `data` as the output `path` (see OutputFile, with
// its placement `flags`) and commits it: 0, or -errno (-ENOSPC when the
// storage took less than all; -EEXIST when kNoReplace found the name
// taken). On failure the target is as it was.
int writeWholeOutput(const std::string& path, const void* data, size_t size, int flags);

}  // namespace wv
