#include "FuzzSupport.h"

#include <fcntl.h>
#include <ftw.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <wavoryx/platform.h>

namespace wvfuzz {

void fail(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::fputs("wavoryx fuzz: ", stderr);
    std::vfprintf(stderr, format, args);
    std::fputc('\n', stderr);
    va_end(args);
    std::abort();
}

namespace {

int removeEntry(const char* path, const struct stat*, int, struct FTW*) {
    ::remove(path);
    return 0;
}

int removeInner(const char* path, const struct stat*, int, struct FTW* walk) {
    if (walk->level > 0) ::remove(path);
    return 0;
}

}  // namespace

ScratchDir::ScratchDir() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base && *base ? base : "/tmp") + "/wavoryx-fuzz-XXXXXX";
    if (::mkdtemp(&pattern[0]) == nullptr) fail("cannot make a directory from %s", pattern.c_str());
    mPath = pattern;
}

ScratchDir::~ScratchDir() { ::nftw(mPath.c_str(), removeEntry, 16, FTW_DEPTH | FTW_PHYS); }

void ScratchDir::empty() const { ::nftw(mPath.c_str(), removeInner, 16, FTW_DEPTH | FTW_PHYS); }

bool writeBytes(const std::string& path, const uint8_t* data, size_t size) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    size_t done = 0;
    while (done < size) {
        const ssize_t n = ::write(fd, data + done, size - done);
        if (n <= 0) break;
        done += static_cast<size_t>(n);
    }
    ::close(fd);
    return done == size;
}

bool endsLoad(int code) { return code == 0 || code == 4 || code == 5 || code == 7; }
bool endsRender(int code) { return code == 20 || code == 22 || code == 23 || code == 25; }
bool endsRecording(int code) { return code == 63; }

size_t countEndings(const std::vector<Event>& events, int id, bool (*ends)(int)) {
    size_t n = 0;
    for (const Event& e : events) n += e.id == id && ends(e.code);
    return n;
}

wvtest::EventRecorder& eventLog() {
    static wvtest::EventRecorder* log = new wvtest::EventRecorder();  // never destroyed
    return *log;
}

Engine::Engine(const std::string& workingDir) : mApi(new Wavoryx()) {
    // Fuzzing meets every failure path: their log lines would only slow it.
    wavoryx_set_log_level(WAVORYX_LOG_FATAL + 1);
    mApi->setWorkingDir(workingDir.c_str());
    eventLog();  // made before the first callback can come
    mApi->setCallback(&wvtest::EventRecorder::callback);
    mApi->startThreadLoop(0);
}

Engine::~Engine() {
    mApi->stopThreadLoop();
    delete mApi;
}

Event Engine::waitForEnding(int id, bool (*ends)(int), std::chrono::milliseconds timeout) {
    wvtest::EventRecorder& log = eventLog();
    const auto hasEnded = [&](const std::vector<Event>& events) { return countEndings(events, id, ends) > 0; };
    const bool ended = log.waitFor(hasEnded, timeout);
    if (!ended) fail("the job of item %d did not end within %lld ms", id, (long long)timeout.count());
    Event ending{};
    size_t endings = 0;
    for (const Event& e : log.events()) {
        if (e.id == id && ends(e.code)) {
            if (endings++ == 0) ending = e;
        }
    }
    if (endings != 1) fail("the job of item %d ended %zu times", id, endings);
    return ending;
}

int renderWhole(Engine& engine, int sourceId, const std::string& outPath, int sampleRate, bool stereo) {
    Wavoryx& api = engine.api();
    const int list = api.newClipList();
    if (list <= 0) fail("newClipList gave %d", list);
    api.addClip(list, sourceId, 0, 0xFFFFFFFFu);
    api.setOutputPara(list, outPath.c_str(), ENCODE_WAV);
    api.setEncodePara(list, sampleRate, 0, 0, stereo ? 1 : 0);
    if (api.process(list) != 0) fail("process of list %d refused", list);
    const Event ending = engine.waitForEnding(list, endsRender);
    api.removePcm(list);
    return ending.code;
}

}  // namespace wvfuzz
