// The private working folders of the command's runs, and the clean-up of
// those left behind by runs that were killed (SIGKILL, a crash, a power
// cut), which may hold hundreds of megabytes of PCM.
//
// A folder is named "wavoryx-PID-START-XXXXXX": the process's id, its start
// time (clock ticks after boot, from /proc/PID/stat) and mkdtemp's letters.
// A folder whose process no longer runs, or whose PID now belongs to a
// process started at another time, is stale. Only folders of that exact
// form, owned by this user, directly in the parent folder, are touched.
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

}  // namespace wvcli

#endif
