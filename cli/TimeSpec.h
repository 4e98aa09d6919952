// Times on the command line, in whole milliseconds.
//
// Accepted forms (no sign, no spaces):
//   90  1.5     seconds, decimals past the third rounded to the nearest
//               millisecond, a half up ("2." and ".5" too)
//   2.5s        seconds, the unit named
//   1500ms      whole milliseconds
//   1:02.5      minutes:seconds, seconds below 60, decimals as above
//   1:00:02     hours:minutes:seconds, minutes and seconds below 60
// The largest accepted time is 0xFFFFFFFE ms (about 49.7 days), so every
// parsed value fits the engine's unsigned 32-bit millisecond arguments.
#ifndef WAVORYX_CLI_TIMESPEC_H
#define WAVORYX_CLI_TIMESPEC_H

#include <cstdint>
#include <optional>
#include <string>

namespace wvcli {

// How times are written, for help texts.
constexpr const char* kTimeForms = "seconds (90, 1.5, 2.5s), m:ss.fff (1:30), h:mm:ss.fff or ms (1500ms)";

// Parses `text` into `ms`. On failure returns false, leaves `ms` alone and
// sets `why` to a short reason for an error message.
bool parseTimeMs(const std::string& text, uint32_t& ms, std::string& why);

// "m:ss.fff", or "h:mm:ss.fff" from one hour on.
std::string formatTimeMs(uint64_t ms);

// The frame a range ending at `ms` ends at in audio of `length` frames at
// `rate` Hz, as the engine counts: ms x rate / 1000, except that an end in
// the last, partial millisecond, or past it, is `length`, which no time in
// whole milliseconds would reach.
uint64_t endFrameAtMs(uint32_t ms, int rate, uint64_t length);

// A decimal number as levels are written: an optional sign, digits and at
// most one point ("-3", "+6", "1.5", "-.5"); no exponent, no spaces, and
// independent of the locale. False for anything else.
bool parseDecimal(const std::string& text, double& value);

// Gains accepted, in dB (the engine's -9600 to +2400 millibels).
constexpr int kLowestGainDb = -96;
constexpr int kHighestGainDb = 24;

// A gain in dB ("-3.5") as millibels, rounded to the nearest one.
bool parseGainMillibels(const std::string& text, int32_t& millibels, std::string& why);

// A SOURCE[@FROM-TO][:KEY=VALUE]... argument: the file, the range in ms
// (hasEnd false means to the end of the source) and the effects of its
// clip, each absent unless given.
struct SourceRange {
    std::string path;
    uint32_t fromMs = 0;
    uint32_t toMs = 0;
    bool hasEnd = false;
    std::optional<int32_t> gainMillibels;
    std::optional<uint32_t> fadeInMs;
    std::optional<uint32_t> fadeOutMs;
};

// Effects of one range, for help texts.
constexpr const char* kRangeEffectForms = ":gain=DB (-96 to 24), :fade=T (in and out), :fade-in=T, :fade-out=T";

// Unless the whole text names an existing file, takes the effect suffixes
// (":gain=", ":fade=", ":fade-in=", ":fade-out=") off its end, then splits
// at the last '@' unless what is left names an existing file (names may
// contain '@' and ':'). "a.wav", "a.wav@1.5-", "a.wav@-2:00",
// "a.wav@500-1500", "a.wav@1:00-2:00:gain=-3:fade=0.5", "a.wav:gain=-3".
// An end not after the start is an error, and so is a key given twice
// (fade= counts as both sides). Text after ':' that is no known key stays
// part of the file name.
bool parseSourceRange(const std::string& text, SourceRange& range, std::string& why);

}  // namespace wvcli

#endif
