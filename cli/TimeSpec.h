// Times on the command line, in whole milliseconds.
//
// Accepted forms (no sign, no spaces):
//   90  1.5     seconds with up to three decimals ("2." and ".5" too)
//   2.5s        seconds, the unit named
//   1500ms      whole milliseconds
//   1:02.5      minutes:seconds, seconds below 60, decimals as above
//   1:00:02     hours:minutes:seconds, minutes and seconds below 60
// The largest accepted time is 0xFFFFFFFE ms (about 49.7 days), so every
// parsed value fits the engine's unsigned 32-bit millisecond arguments.
#ifndef WAVORYX_CLI_TIMESPEC_H
#define WAVORYX_CLI_TIMESPEC_H

#include <cstdint>
#include <string>

namespace wvcli {

// How times are written, for help texts.
constexpr const char* kTimeForms = "seconds (90, 1.5, 2.5s), m:ss.fff (1:30), h:mm:ss.fff or ms (1500ms)";

// Parses `text` into `ms`. On failure returns false, leaves `ms` alone and
// sets `why` to a short reason for an error message.
bool parseTimeMs(const std::string& text, uint32_t& ms, std::string& why);

// "m:ss.fff", or "h:mm:ss.fff" from one hour on.
std::string formatTimeMs(uint64_t ms);

// A SOURCE[@FROM-TO] argument: the file, and the range in ms; hasEnd false
// means to the end of the source.
struct SourceRange {
    std::string path;
    uint32_t fromMs = 0;
    uint32_t toMs = 0;
    bool hasEnd = false;
};

// Splits at the last '@' unless the whole text names an existing file
// (which may itself contain '@'). "a.wav", "a.wav@1.5-", "a.wav@-2:00",
// "a.wav@500-1500". An end not after the start is an error.
bool parseSourceRange(const std::string& text, SourceRange& range, std::string& why);

}  // namespace wvcli

#endif
