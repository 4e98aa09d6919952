// The private working folders of the command's runs, and the clean-up of
// those left behind by runs that were killed (SIGKILL, a crash, a power
// cut), which may hold hundreds of megabytes of PCM.
//
// A folder is named "wavoryx-PID-START-XXXXXX" (the process's id, its start
// time in clock ticks after boot, and mkdtemp's letters), which tells a
// person whose it is. Whether its run still lives is told by a lock: the
// run holds an flock on the file "lock" inside it from before it uses the
// folder until it has removed it. A lock holds across PID namespaces (runs
// in containers sharing TMPDIR), where a PID means nothing. A folder whose
// lock nobody holds is stale; one without a lock file (made by an earlier
// version, or this very moment) only once it is a day old. Only folders of
// that exact form, owned by this user, directly in the parent folder, are
// touched.
#ifndef WAVORYX_CLI_WORKFOLDERS_H
#define WAVORYX_CLI_WORKFOLDERS_H

#include <sys/types.h>

#include <cstdint>
#include <string>

namespace wvcli {

// The start time of process `pid`, or 0 when there is no such process.
uint64_t processStartTime(pid_t pid);

// "wavoryx-PID-START-" of this process.
std::string workFolderPrefix();

// The PID and start time of a name "wavoryx-PID-START-XXXXXX"; false for
// any other name.
bool parseWorkFolderName(const std::string& name, pid_t& pid, uint64_t& start);

// Removes the stale folders in `parent`; returns how many.
int removeStaleWorkFolders(const std::string& parent);

// Makes a working folder in `parent` and takes its lock: the descriptor
// that holds it (close-on-exec; closed after the folder is removed), with
// the folder's path in `path`; or -1 with errno set.
int makeWorkFolder(const std::string& parent, std::string& path);

// The name of the lock file inside a working folder.
extern const char kWorkFolderLock[];

}  // namespace wvcli

#endif
