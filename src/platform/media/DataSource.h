// Random access to the bytes of a local file, with 64-bit offsets.
//
// Reads are positional (pread), so one data source may be read from several
// threads at once. The file stays open for the life of the object.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

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

    ~DataSource();
    DataSource(const DataSource&) = delete;
    DataSource& operator=(const DataSource&) = delete;

    // Up to `size` bytes at `offset`; fewer only at the end of the file.
    // Returns the count read (0 at or past the end) or a negative status.
    ssize_t readAt(int64_t offset, void* data, size_t size);
    // The file's size in bytes, taken now (a growing file is seen growing).
    status_t getSize(int64_t* size);
    const std::string& path() const { return mPath; }

private:
    DataSource(int fd, std::string path) : mFd(fd), mPath(std::move(path)) {}

    const int mFd;
    const std::string mPath;
};

}  // namespace wv
