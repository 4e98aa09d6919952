#include "StandardInput.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "Interrupt.h"
#include "Session.h"

namespace wvcli {
namespace {

constexpr size_t kBlock = 1 << 16;

// Only one run of the command spools, and only its main thread asks.
std::string gSpooled;

std::string failure(int error) {
    if (error == ENOSPC || error == EDQUOT) return "cannot keep standard input: storage full";
    return "cannot keep standard input (" + std::string(std::strerror(error)) + ")";
}

// Copies fd 0 into `out`; "" when done, else the reason ("-" for a signal).
std::string copyInput(int out) {
    std::vector<char> block(kBlock);
    for (;;) {
        if (interruptSignal() != 0) return "-";
        const ssize_t n = ::read(STDIN_FILENO, block.data(), block.size());
        if (n == 0) return "";
        if (n < 0) {
            if (errno == EINTR) continue;
            return "cannot read standard input (" + std::string(std::strerror(errno)) + ")";
        }
        for (ssize_t done = 0; done < n;) {
            const ssize_t w = ::write(out, block.data() + done, size_t(n - done));
            if (w < 0) {
                if (errno == EINTR) continue;
                return failure(errno);
            }
            done += w;
        }
    }
}

}  // namespace

bool namesStandardInput(const std::vector<std::string>& paths) {
    for (const std::string& path : paths) {
        if (path == "-") return true;
    }
    return false;
}

bool spoolStandardInput(const std::string& workDir) {
    if (::isatty(STDIN_FILENO) != 0) {
        reportError("-", "standard input is a terminal; pipe audio into it or name a file");
        return false;
    }
    const std::string path = workDir + "standard-input";
    const int out = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (out < 0) {
        reportError("-", failure(errno));
        return false;
    }
    std::string why = copyInput(out);
    if (::close(out) != 0 && why.empty()) why = failure(errno);
    if (!why.empty()) {
        if (why != "-") reportError("-", why);
        return false;
    }
    gSpooled = path;
    return true;
}

std::string inputFile(const std::string& path) { return path == "-" && !gSpooled.empty() ? gSpooled : path; }

}  // namespace wvcli
