// A tiny tmpfs mounted in a fresh temporary directory, for tests of what the
// engine does when the storage fills up. Mounting needs root; when it is not
// possible the object stays unmounted and skipReason() says why, so a test
// can do:
//     wvtest::SmallFilesystem fs(256 * 1024);
//     if (!fs.mounted()) GTEST_SKIP() << fs.skipReason();
// The destructor unmounts the filesystem and removes the directory.
#pragma once

#include <cstddef>
#include <string>

#include "TestSupport.h"

namespace wvtest {

class SmallFilesystem {
public:
    // `bytes` is the filesystem's capacity; tmpfs rounds it up to pages.
    explicit SmallFilesystem(size_t bytes);
    ~SmallFilesystem();
    SmallFilesystem(const SmallFilesystem&) = delete;
    SmallFilesystem& operator=(const SmallFilesystem&) = delete;

    bool mounted() const { return mMounted; }
    const std::string& skipReason() const { return mSkipReason; }
    const std::string& path() const { return mDir.path(); }
    std::string prefix() const { return mDir.prefix(); }
    std::string file(const std::string& name) const { return mDir.file(name); }

    // Writes zeros to file `name` until the filesystem is full; returns the
    // bytes written. Removing the file frees them again.
    long long fill(const std::string& name);
    // Free bytes as the filesystem reports them.
    long long freeBytes() const;
    // Fills file "filler" (made anew) so that exactly `bytes`, a multiple
    // of the page size, stay free: true when they do.
    bool leaveFree(long long bytes);

private:
    TempDir mDir;
    bool mMounted = false;
    std::string mSkipReason;
};

}  // namespace wvtest
