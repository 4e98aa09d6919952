// The wavoryx command run beside the engine with one standard descriptor
// closed (as `0<&-`, `1>&-` or `2>&-` would): the command must reopen it on
// /dev/null before anything else, so that no output file takes its number
// and no progress or message text lands in an output. Each run cuts the
// first second of the canonical WAV source, from a named file, to standard
// output, or from standard input fed by a process that then sends endless
// zeros (the load streams it and ends after the second); the output must
// hold exactly those frames, and the run's working folder must be empty.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>

#include "SoakDriver.h"

namespace soak {
namespace {

// One second of the 44.1 kHz stereo source, after its 44-byte header.
constexpr size_t kHeaderBytes = 44;
constexpr size_t kSecondBytes = 44100 * 4;

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

bool isEmptyFolder(const std::string& path) {
    for (const std::string& name : listDir(path)) {
        if (name != "." && name != "..") return false;
    }
    return true;
}

// A child that writes `source` and then zeros to `out` until the reader goes.
pid_t startFeeder(const std::string& source, int out, int otherEnd) {
    const pid_t pid = ::fork();
    if (pid != 0) return pid;
    ::close(otherEnd);
    ::signal(SIGPIPE, SIG_DFL);
    const int in = ::open(source.c_str(), O_RDONLY);
    char block[65536];
    ssize_t n;
    while (in >= 0 && (n = ::read(in, block, sizeof block)) > 0) {
        if (::write(out, block, size_t(n)) != n) ::_exit(0);
    }
    std::memset(block, 0, sizeof block);
    while (::write(out, block, sizeof block) > 0) {
    }
    ::_exit(0);
}

}  // namespace

void Driver::startCommand() {
    std::string source;
    for (const Source& s : mSources) {
        if (s.inPlace) source = s.path;
    }
    if (source.empty()) return;
    CommandJob& job = mCommand;
    job = CommandJob();
    job.closed = randInt(0, 2);
    job.variant = randInt(0, 2);
    // A closed descriptor leaves that variant nothing to read or write.
    if ((job.variant == 1 && job.closed == 1) || (job.variant == 2 && job.closed == 0)) job.variant = 0;
    const std::string stem = mOptions.dir + "/cmd-" + std::to_string(++mOutputSerial);
    job.work = stem + ".work";
    job.output = stem + ".wav";
    job.errors = stem + ".err";
    job.source = source;
    ::mkdir(job.work.c_str(), 0700);
    std::vector<std::string> args = {mOptions.command, "--work-dir", job.work, "-y", "edit"};
    if (job.variant == 2) {
        args.insert(args.end(), {"--", "-@0-1", "-o", job.output});
    } else if (job.variant == 1) {
        args.insert(args.end(), {source + "@0-1", "-o", "-", "--format", "wav"});
    } else {
        args.insert(args.end(), {source + "@0-1", "-o", job.output});
    }
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(&arg[0]);
    argv.push_back(nullptr);
    int feed[2] = {-1, -1};
    if (job.variant == 2 && ::pipe2(feed, O_CLOEXEC) != 0) return;
    if (job.variant == 2) job.feeder = startFeeder(source, feed[1], feed[0]);
    // Opened before the fork: the child only moves descriptors.
    const int in = job.variant == 2 ? feed[0] : ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    const int out = job.variant == 1 ? ::open(job.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600)
                                     : ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    const int err = ::open(job.errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    fault("command with descriptor " + std::to_string(job.closed) + " closed");
    job.start = mLog.now();
    job.pid = ::fork();
    if (job.pid == 0) {
        ::dup2(in, 0);
        ::dup2(out, 1);
        ::dup2(err, 2);
        ::close(job.closed);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    for (int fd : {in, out, err, feed[1]}) {
        if (fd >= 0) ::close(fd);
    }
}

void Driver::pollCommand() {
    CommandJob& job = mCommand;
    if (job.pid <= 0) return;
    int status = 0;
    const pid_t done = ::waitpid(job.pid, &status, WNOHANG);
    if (done == 0 && mLog.now() - job.start < timeout(60)) return;
    const std::string what = "command (variant " + std::to_string(job.variant) + ", descriptor " +
                             std::to_string(job.closed) + " closed)";
    const int before = mViolations;
    if (done == 0) {
        ::kill(job.pid, SIGKILL);
        ::waitpid(job.pid, &status, 0);
        violation(what + " still running after " + std::to_string(int(timeout(60))) + " s");
    } else if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        violation(what + " failed: status " + std::to_string(status) + ": " + readAll(job.errors));
    }
    if (job.feeder > 0) {
        ::kill(job.feeder, SIGKILL);
        ::waitpid(job.feeder, nullptr, 0);
    }
    if (mViolations == before) {
        const std::string got = readAll(job.output);
        const std::string source = readAll(job.source);
        if (got.size() != kHeaderBytes + kSecondBytes ||
            got.compare(kHeaderBytes, kSecondBytes, source, kHeaderBytes, kSecondBytes) != 0) {
            violation(what + ": the output holds " + std::to_string(got.size()) + " bytes, not the first second");
        }
        for (const char* text : {"loading", "writing", "wrote", "wavoryx"}) {
            if (got.find(text) != std::string::npos) violation(what + ": '" + text + "' in the output");
        }
        if (!isEmptyFolder(job.work)) violation(what + ": its working folder is not empty");
    }
    if (mViolations == before) {
        ++mCounters.faultsSurvived;
        count("command closed " + std::to_string(job.closed) + " ok");
    }
    for (const std::string& path : {job.output, job.errors}) ::unlink(path.c_str());
    ::rmdir(job.work.c_str());
    job.pid = 0;
}

}  // namespace soak
