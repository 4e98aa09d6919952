// "-" as an input names standard input, as in other audio tools.
//
// A pipe (or socket, or device) whose first bytes name a format read front
// to back (MP3, ADTS AAC, Ogg, FLAC, WAV) is streamed to the engine when
// the command asked for it (streamStandardInputWhereItCan): a thread
// passes the bytes on as they arrive, so a range of the first second of a
// live stream ends after that second and nothing of it is kept. Any other
// format must be seekable: what arrives is copied into the private working
// folder, at most --max-input-size bytes, and every "-" loads that copy. A
// regular file is loaded where it is. Messages keep saying "-".
#ifndef WAVORYX_CLI_STANDARDINPUT_H
#define WAVORYX_CLI_STANDARDINPUT_H

#include <cstdint>
#include <string>
#include <vector>

namespace wvcli {

// A range of standard input ("-@1-2"), or a name after "--" that begins
// with '-', would be taken for an option by the parser: its dash is hidden
// behind this prefix before parsing (parserWords, CommandWords.h) and taken
// off again where the word arrives.
constexpr char kHiddenDash[] = "\x1f-";

// The most standard input copied into the working folder, by default.
// Only formats that need seeking are copied, and those (MP4, M4A) hold
// about 35 hours of 128 kbit/s audio in 2 GiB, while the folder usually
// lies in $TMPDIR, often memory.
constexpr uint64_t kDefaultMaxInputBytes = uint64_t(2) << 30;
constexpr char kDefaultMaxInputSize[] = "2G";

// Bytes from "2147483648", "512K", "100M", "2G" (binary multiples; a
// lower-case suffix, a trailing "B" or "iB" is accepted). False for
// anything else, 0 included.
bool parseByteSize(const std::string& text, uint64_t& bytes);
// The limit on what is copied (--max-input-size), before the Session opens.
void setMaxInputSize(uint64_t bytes, const std::string& shown);

// Whether `paths` name standard input.
bool namesStandardInput(const std::vector<std::string>& paths);

// Lets this run stream standard input when its format allows (the edit
// command); without it, standard input is always copied.
void streamStandardInputWhereItCan();

// Gets standard input ready in `workDir` (which ends in '/'): streamed,
// copied, or left as the regular file it is. False with one
// "wavoryx: -: ..." line printed: standard input is a terminal, a read or
// write failed (storage full included), it is larger than
// --max-input-size (its copy is removed then), or an ending signal came
// (then nothing is printed; the caller returns its status).
bool spoolStandardInput(const std::string& workDir);

// The file the engine loads for `path`: the copy (or the file) for "-",
// else `path`. "-" itself when standard input is streamed.
std::string inputFile(const std::string& path);

// Whether `path` is standard input, streamed.
bool streamsStandardInput(const std::string& path);
// The container named by the stream's first bytes ("MP3", "FLAC", ...).
std::string streamedKind();
// The descriptor the engine reads the stream from (loadStream), once: -1
// after the first call. The caller closes it once the engine has its own.
int takeStandardInputStream();

// Stops passing standard input on and waits for the thread that does: the
// engine's load then sees its end. Called before the engine goes; does
// nothing when standard input is not streamed.
void endStandardInputStream();

// Ends the stream of standard input when it goes out of scope.
struct StandardInputStreamEnd {
    StandardInputStreamEnd() = default;
    StandardInputStreamEnd(const StandardInputStreamEnd&) = delete;
    StandardInputStreamEnd& operator=(const StandardInputStreamEnd&) = delete;
    ~StandardInputStreamEnd() { endStandardInputStream(); }
};

}  // namespace wvcli

#endif
