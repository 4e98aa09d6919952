// Random access to the bytes of a local file, with 64-bit offsets.
//
// Reads are positional (pread), so one data source may be read from several
// threads at once. The file stays open for the life of the object.
//
// A stream (a pipe, a socket: CreateFromStream) cannot seek: it is read
// once, front to back, as the parsers ask. Its first kStreamHeadBytes stay
// in memory, so that the parsers tried in turn each read the start again;
// past those, a read behind the furthest byte read fails. Its size is
// unknown (getSize fails), and a read waits for the bytes to arrive.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/MediaService.h"

namespace wv {

class DataSource {
public:
    // The container parsers need no registration; kept as the one place a
    // caller states that it is about to detect containers.
    static void RegisterDefaultSniffers();

    // Opens a local path (a "file://" prefix is accepted) for reading.
    // Null when it cannot be opened or is not a regular file (a FIFO, a
    // device or a socket is refused without blocking). `headers` is for
    // network sources and is ignored.
    static std::shared_ptr<DataSource> CreateFromURI(const char* uri,
                                                     const void* headers = nullptr);

    // Takes `fd` (closed with the object), read as a stream from where it
    // stands. Null for a negative fd.
    static std::shared_ptr<DataSource> CreateFromStream(int fd);
    static constexpr size_t kStreamHeadBytes = 1 << 20;

    ~DataSource();
    DataSource(const DataSource&) = delete;
    DataSource& operator=(const DataSource&) = delete;

    // Up to `size` bytes at `offset`; fewer only at the end of the file.
    // Returns the count read (0 at or past the end) or a negative status.
    ssize_t readAt(int64_t offset, void* data, size_t size);
    // The same, but a stream returns what arrived as soon as some did,
    // rather than wait for `size` bytes; a file reads as readAt.
    ssize_t readSomeAt(int64_t offset, void* data, size_t size);
    // The file's size in bytes, taken now (a growing file is seen growing).
    status_t getSize(int64_t* size);
    const std::string& path() const { return mPath; }
    bool isStream() const { return mStream; }

private:
    DataSource(int fd, std::string path, bool stream = false)
        : mFd(fd), mPath(std::move(path)), mStream(stream) {}
    ssize_t readStreamAt(int64_t offset, void* data, size_t size, bool some);
    // Appends up to `size` bytes of the stream to `data` (and to the head
    // while it is short); 0 at its end, negative on an error.
    ssize_t pull(char* data, size_t size);

    const int mFd;
    const std::string mPath;
    const bool mStream;
    std::mutex mStreamLock;
    std::vector<char> mHead;   // the stream's first bytes
    int64_t mStreamRead = 0;   // bytes taken from the stream so far
};

}  // namespace wv
