// Where the command's outputs go, and how a finished output takes its
// place without ever costing the user a file.
//
// A render, a picture or a data file is put in place by the engine itself
// (setOutputMode, Wavoryx::writeOutputFile). What the command moves here is
// a recording made beside its target, and any output bound for a device or
// standard output (made in the private working folder or in memory):
//   - nothing there yet, or a regular file (or a link to one): the finished
//     file, which lies beside it, is renamed onto it (the link's own file,
//     so the link stays), in one step; where nothing was there at the start
//     and replacing was not agreed, only while the name is still free;
//   - anything else (a character device such as /dev/null or /dev/stdout, a
//     FIFO, or a link to one of them): the bytes are written into it; it is
//     never unlinked, renamed over or chmod'ed;
//   - "-": standard output, written as a device; a WAV gets the sizes of a
//     stream of unknown length (0xFFFFFFFF), as other tools write on pipes.
// A failure or an interrupt before the end leaves the target as it was.
#ifndef WAVORYX_CLI_OUTPUTFILE_H
#define WAVORYX_CLI_OUTPUTFILE_H

#include <string>
#include <vector>

namespace wvcli {

// True when both paths exist and are the same file (device and inode, after
// links): a hard link, a symlink or another spelling of one path.
bool isSameFile(const std::string& a, const std::string& b);

// The first of `inputs` that is the same file as `output`, or nullptr.
const std::string* sameFileAmong(const std::string& output, const std::vector<std::string>& inputs);

// "OUT: is the same file as IN" without the "wavoryx: " in front.
std::string sameFileReason(const std::string& input);

enum class TargetKind { Absent, Regular, Special };

struct OutputTarget {
    std::string path;      // as the user named it
    std::string filePath;  // the file a finished output replaces: `path`, or what its links name
    TargetKind kind = TargetKind::Absent;
    bool standardOutput = false;  // "-"; kind is Special
    // -y: a finished output replaces whatever regular file is at filePath
    // by then. Otherwise it replaces only the file that was there when the
    // target was examined (and agreed to be replaced); a file that appears
    // at a free name during the work is left as it is, and the commit fails.
    bool lastWriterWins = false;
};

// What is at `path`, in `target`; false with `why` ("is a folder", "cannot
// write (...)", "is a broken link", "is a terminal" for standard output)
// when nothing can be written there.
bool examineOutput(const std::string& path, OutputTarget& target, std::string& why);

// Moves the finished file `done` onto `target` as described above, giving
// a new file the mode of any new document (0666 less the umask), and a
// replaced file's permissions to what replaces it. When
// `interruptible`, a signal before or while it copies stops it. False with
// `why` ("storage full", "write error (...)", "cannot write (...)" when a
// file beside the target is on another file system, or "" when
// interrupted): the target is unchanged and `done` is still there.
bool commitOutput(const std::string& done, const OutputTarget& target, bool interruptible, std::string& why);

// Writes `bytes` as the output `target` the way commitOutput puts a
// finished file there, through the engine's output placement for a file
// (Wavoryx::writeOutputFile): a signal before or while it writes stops it.
// False with `why` as for commitOutput; the target is then unchanged.
bool writeOutput(const std::string& bytes, const OutputTarget& target, std::string& why);

// Gives `path` the mode of any new document (0666 less the umask), for an
// output the command keeps where the engine wrote it. The engine creates
// its outputs with that mode; this holds it for a kept file whatever made it.
void giveDocumentMode(const std::string& path);

// The folder `path` lies in: "." for a bare name, "/" for one at the root.
std::string folderOf(const std::string& path);

// A name that does not exist now, in the folder of `path`:
// "STEM.TAG-XXXXXX.EXT" (or "NAME.TAG-XXXXXX" without an extension).
std::string freshNameBeside(const std::string& path, const std::string& tag);

}  // namespace wvcli

#endif
