#include "StandardInput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "Interrupt.h"
#include "Session.h"

namespace wvcli {
namespace {

constexpr size_t kBlock = 1 << 16;
// Enough of the start to tell the formats that stream apart.
constexpr size_t kSniffBytes = 12;
// How often the passing thread looks whether it must stop.
constexpr int kPollMs = 100;

// Only one run of the command reads standard input, and only its main
// thread sets these up.
std::string gSpooled;
uint64_t gMaxBytes = kDefaultMaxInputBytes;
std::string gMaxShown = kDefaultMaxInputSize;
bool gStreamWanted = false;
std::string gStreamKind;
int gStreamRead = -1;  // the engine's end of the pipe, until it is taken
std::thread gPasser;
std::atomic<bool> gStopPassing{false};

std::string failure(int error) {
    if (error == ENOSPC || error == EDQUOT) return "cannot keep standard input: storage full";
    return "cannot keep standard input (" + std::string(std::strerror(error)) + ")";
}

std::string readFailure(int error) { return "cannot read standard input (" + std::string(std::strerror(error)) + ")"; }

// Writes all of [data, data + size) to `out`; false with errno set.
bool writeAll(int out, const char* data, size_t size) {
    for (size_t done = 0; done < size;) {
        const ssize_t w = ::write(out, data + done, size - done);
        if (w < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        done += size_t(w);
    }
    return true;
}

// Appends what standard input holds to `out`, `head` first; "" when done,
// else the reason ("-" for a signal).
std::string copyInput(int out, const std::vector<char>& head) {
    uint64_t total = head.size();
    if (total > gMaxBytes) return "-limit";
    if (!writeAll(out, head.data(), head.size())) return failure(errno);
    std::vector<char> block(kBlock);
    for (;;) {
        if (interruptSignal() != 0) return "-";
        const ssize_t n = ::read(STDIN_FILENO, block.data(), block.size());
        if (n == 0) return "";
        if (n < 0) {
            if (errno == EINTR) continue;
            return readFailure(errno);
        }
        total += uint64_t(n);
        if (total > gMaxBytes) return "-limit";
        if (!writeAll(out, block.data(), size_t(n))) return failure(errno);
    }
}

// The first bytes of standard input, up to kSniffBytes (fewer only at its
// end); false with the reason ("-" for a signal).
bool sniff(std::vector<char>& head, std::string& why) {
    head.resize(kSniffBytes);
    size_t got = 0;
    while (got < kSniffBytes) {
        if (interruptSignal() != 0) {
            why = "-";
            return false;
        }
        const ssize_t n = ::read(STDIN_FILENO, head.data() + got, kSniffBytes - got);
        if (n == 0) break;
        if (n < 0) {
            if (errno == EINTR) continue;
            why = readFailure(errno);
            return false;
        }
        got += size_t(n);
    }
    head.resize(got);
    return true;
}

// The container of a stream's first bytes when its parser reads it front
// to back, else "".
std::string streamingKind(const std::vector<char>& head) {
    const auto starts = [&](size_t at, const char* text) {
        const size_t n = std::strlen(text);
        return head.size() >= at + n && std::memcmp(head.data() + at, text, n) == 0;
    };
    if (starts(0, "RIFF") && starts(8, "WAVE")) return "WAV";
    if (starts(0, "fLaC")) return "FLAC";
    if (starts(0, "OggS")) return "Ogg";
    if (starts(0, "ID3")) return "MP3";
    if (head.size() >= 2 && uint8_t(head[0]) == 0xFF && (uint8_t(head[1]) & 0xE0) == 0xE0) {
        // Layer bits 00 with the MPEG-4/2 sync: ADTS AAC.
        return (uint8_t(head[1]) & 0xF6) == 0xF0 ? "AAC" : "MP3";
    }
    return "";
}

// Waits until `fd` is ready for `events`; false when told to stop, or on
// an ending signal: the stream's end then ends a load waiting for it.
bool waitReady(int fd, short events) {
    for (;;) {
        if (gStopPassing.load() || interruptSignal() != 0) return false;
        struct pollfd p = {fd, events, 0};
        const int n = ::poll(&p, 1, kPollMs);
        if (n > 0) return true;
        if (n < 0 && errno != EINTR) return false;
    }
}

// Writes `size` bytes to the non-blocking `out`; false when told to stop
// or the reader went.
bool passOn(int out, const char* data, size_t size) {
    for (size_t done = 0; done < size;) {
        if (!waitReady(out, POLLOUT)) return false;
        const ssize_t w = ::write(out, data + done, size - done);
        if (w < 0) {
            if (errno == EINTR || errno == EAGAIN) continue;
            return false;
        }
        done += size_t(w);
    }
    return true;
}

// The thread between standard input and the engine's pipe: the head read
// to tell the format, then every byte as it comes. Closing `out` is the
// stream's end for the engine.
void passStandardInput(int out, std::vector<char> head) {
    if (passOn(out, head.data(), head.size())) {
        std::vector<char> block(kBlock);
        while (waitReady(STDIN_FILENO, POLLIN)) {
            const ssize_t n = ::read(STDIN_FILENO, block.data(), block.size());
            if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            if (n <= 0 || !passOn(out, block.data(), size_t(n))) break;
        }
    }
    ::close(out);
}

bool startStream(std::vector<char> head) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        reportError("-", readFailure(errno));
        return false;
    }
    ::fcntl(ends[1], F_SETFL, ::fcntl(ends[1], F_GETFL) | O_NONBLOCK);
    gStreamRead = ends[0];
    gStopPassing.store(false);
    gPasser = std::thread(passStandardInput, ends[1], std::move(head));
    return true;
}

bool spool(const std::string& workDir, const std::vector<char>& head) {
    const std::string path = workDir + "standard-input";
    const int out = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (out < 0) {
        reportError("-", failure(errno));
        return false;
    }
    std::string why = copyInput(out, head);
    if (::close(out) != 0 && why.empty()) why = failure(errno);
    if (!why.empty()) {
        ::unlink(path.c_str());
        if (why == "-limit") {
            reportError("-", "standard input is larger than --max-input-size " + gMaxShown +
                                 " (a format that must be kept whole to be read; raise the limit or pass a file)");
        } else if (why != "-") {
            reportError("-", why);
        }
        return false;
    }
    gSpooled = path;
    return true;
}

}  // namespace

bool parseByteSize(const std::string& text, uint64_t& bytes) {
    size_t digits = 0;
    while (digits < text.size() && std::isdigit(static_cast<unsigned char>(text[digits])) != 0) ++digits;
    if (digits == 0 || digits > 19) return false;
    std::string unit = text.substr(digits);
    for (char& c : unit) c = char(std::toupper(static_cast<unsigned char>(c)));
    int shift = 0;
    if (!unit.empty()) {
        const char* kUnits = "KMGT";
        const char* at = std::strchr(kUnits, unit[0]);
        if (at != nullptr && unit[0] != '\0') {
            shift = 10 * int(at - kUnits + 1);
            unit.erase(0, 1);
            if (unit == "IB") unit.clear();
        }
        if (unit == "B") unit.clear();
        if (!unit.empty()) return false;
    }
    const uint64_t value = std::stoull(text.substr(0, digits));
    if (value == 0 || (shift > 0 && value > (UINT64_MAX >> shift))) return false;
    bytes = value << shift;
    return true;
}

void setMaxInputSize(uint64_t bytes, const std::string& shown) {
    gMaxBytes = bytes;
    gMaxShown = shown;
}

bool namesStandardInput(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        if (path == "-") return true;
    }
    return false;
}

void streamStandardInputWhereItCan() { gStreamWanted = true; }

bool spoolStandardInput(const std::string& workDir) {
    if (::isatty(STDIN_FILENO) != 0) {
        reportError("-", "standard input is a terminal; pipe audio into it or name a file");
        return false;
    }
    // A regular file from its start is read where it is: nothing to keep.
    struct stat st;
    if (::fstat(STDIN_FILENO, &st) == 0 && S_ISREG(st.st_mode) && ::lseek(STDIN_FILENO, 0, SEEK_CUR) == 0) {
        gSpooled = "/proc/self/fd/0";
        if (::access(gSpooled.c_str(), R_OK) == 0) return true;
        gSpooled.clear();
    }
    std::vector<char> head;
    std::string why;
    if (!sniff(head, why)) {
        if (why != "-") reportError("-", why);
        return false;
    }
    if (gStreamWanted) {
        gStreamKind = streamingKind(head);
        if (!gStreamKind.empty()) return startStream(std::move(head));
    }
    return spool(workDir, head);
}

std::string inputFile(const std::string& path) { return path == "-" && !gSpooled.empty() ? gSpooled : path; }

bool streamsStandardInput(const std::string& path) { return path == "-" && !gStreamKind.empty() && gSpooled.empty(); }

std::string streamedKind() { return gStreamKind; }

int takeStandardInputStream() {
    const int fd = gStreamRead;
    gStreamRead = -1;
    return fd;
}

void endStandardInputStream() {
    if (gStreamRead >= 0) {
        ::close(gStreamRead);
        gStreamRead = -1;
    }
    if (!gPasser.joinable()) return;
    gStopPassing.store(true);
    gPasser.join();
}

}  // namespace wvcli
