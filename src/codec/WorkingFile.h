// WorkingFile: the engine's own PCM files in the working directory.
//
// Contract
// - openLocked() returns a read-write descriptor (close-on-exec) of a file
//   that only this engine uses, holding an exclusive advisory lock (flock)
//   on it, or -1. The file is created with O_EXCL and mode 0600 when the
//   name is free. An existing name is taken over (truncated, mode 0600) only
//   when it is a regular file of this process's user with one link whose
//   lock nobody holds: a stale file that an earlier engine left behind.
//   Anything else at the name (a symlink, a hard link, another user's file,
//   a directory, a FIFO, a file another live engine has locked) is never
//   followed, truncated or shared, and -1 is returned.
// - The lock lives as long as the descriptor (and its duplicates).
// - removeAndClose() unlinks the name only while it still names the file of
//   the descriptor, then closes the descriptor, so a file that somebody put
//   in its place meanwhile is left alone.
#pragma once

#include <string>

namespace wv {
namespace working_file {

int openLocked(const std::string& path);
void removeAndClose(const std::string& path, int fd);

}  // namespace working_file
}  // namespace wv
