#include "studio/Exports.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <memory>

#include <wavoryx/Wavoryx.h>

#include "EditTags.h"
#include "Encoding.h"
#include "studio/EventHub.h"
#include "studio/Json.h"
#include "studio/Lists.h"
#include "studio/Studio.h"

namespace wvstudio {

namespace {
// edit's true-peak ceiling when only --normalize is given: -1 dBTP.
constexpr int kTruePeakTenths = -10;

std::string jobJson(const std::string& job) { return "{\"job\":" + quote(job) + "}"; }
}  // namespace

bool Exports::plainName(const std::string& name) {
    return !name.empty() && name[0] != '.' && name.find('/') == std::string::npos &&
           name.find("..") == std::string::npos && name.find('\\') == std::string::npos &&
           name.find('\0') == std::string::npos && name.size() <= 255;
}

void Exports::start(const JsonValue& body, HttpReply& reply) {
    const JsonValue& nameValue = body["name"];
    const std::string name = nameValue.isString() ? nameValue.text : std::string();
    if (!plainName(name)) return fail(reply, 400, "name: a file name without slashes, '..' or a leading dot");
    const JsonValue& formatValue = body["format"];
    static const char* const kFormats[] = {"wav", "mp3", "flac", "opus", "m4a", "ogg"};
    bool knownFormat = false;
    for (const char* format : kFormats) knownFormat = knownFormat || (formatValue.isString() && formatValue.text == format);
    if (!knownFormat) return fail(reply, 400, "format: wav, mp3, flac, opus, m4a or ogg");
    wvcli::EncodingChoice choice;
    choice.format = formatValue.text;
    const JsonValue& bitrate = body["bitrate"];
    if (!bitrate.isNull()) {
        if (!bitrate.isNumber() || bitrate.number < 8 || bitrate.number > 512 || bitrate.number != std::floor(bitrate.number)) {
            return fail(reply, 400, "bitrate: 8 to 512 kbit/s");
        }
        choice.bitrate = int(bitrate.number);
    }
    try {
        wvcli::settleEncoding(choice, name);
    } catch (const std::exception& error) {
        return fail(reply, 400, error.what());
    }
    int lufsTenths = 0;
    const JsonValue& normalize = body["normalize"];
    if (!normalize.isNull()) {
        if (!normalize.isNumber() || normalize.number < -70.0 || normalize.number > -5.0) {
            return fail(reply, 400, "normalize: -70 to -5 LUFS");
        }
        lufsTenths = int(std::lround(normalize.number * 10.0));
    }
    const bool overwrite = body["overwrite"].kind == JsonValue::kBool && body["overwrite"].boolean;
    ListPlan plan;
    std::string why;
    if (!readPlan(body, mSources, plan, why)) return fail(reply, 400, why);

    Job job;
    job.file = name;
    const std::string path = mOutDir + "/" + name;
    if (!wvcli::examineOutput(path, job.target, why)) return fail(reply, 400, name + ": " + why);
    if (job.target.kind == wvcli::TargetKind::Special) return fail(reply, 400, name + ": not a regular file");
    if (job.target.kind != wvcli::TargetKind::Absent && !overwrite) {
        reply.status = 409;
        reply.body = "{\"error\":\"exists\",\"name\":" + quote(name) + "}";
        return;
    }
    // Agreed: the file there now may be replaced, and only that one.
    job.target.lastWriterWins = false;

    const int list = buildList(mEngine, plan, why);
    if (list == 0) return fail(reply, 500, why);
    {
        std::lock_guard<std::mutex> guard(mLock);
        job.name = "J" + std::to_string(mNext++);
    }
    job.rendering = mWorkDir + "export-" + job.name + wvcli::encodingSuffix(choice.type);
    // As edit sets its list's output.
    mEngine.setOutputPara(list, job.rendering.c_str(), choice.type);
    mEngine.setEncodePara(list, 0, choice.bitrate, 0, 0);
    wvcli::applyEncodingOptions(mEngine, list, choice);
    // The first source's tags and the sources' chapters come along, as edit
    // carries them, so that the two write the same file.
    if (!plan.clips.empty() && !wvcli::applyTagOptions(mEngine, list, plan.clips.front().source, {})) {
        return fail(reply, 500, "the engine refused the tags");
    }
    if (lufsTenths != 0) mEngine.setListLoudness(list, lufsTenths, kTruePeakTenths);
    const std::string jobName = job.name;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mJobs[list] = job;
    }
    if (mEngine.process(list) != 0) {
        std::lock_guard<std::mutex> guard(mLock);
        mJobs.erase(list);
        mEngine.removePcm(list);
        return fail(reply, 500, "the engine refused the render");
    }
    reply.status = 202;
    reply.body = jobJson(jobName);
}

void Exports::cancel(const JsonValue& body, HttpReply& reply) {
    const JsonValue& job = body["job"];
    std::lock_guard<std::mutex> guard(mLock);
    for (const auto& entry : mJobs) {
        if (job.isString() && entry.second.name == job.text) {
            mEngine.cancelProcess(entry.first);
            reply.body = "{}";
            return;
        }
    }
    fail(reply, 404, "no such job");
}

void Exports::cancelAll() {
    std::lock_guard<std::mutex> guard(mLock);
    for (const auto& entry : mJobs) mEngine.cancelProcess(entry.first);
}

void Exports::finish(int list, Job& job, bool rendered) {
    // The engine's waveform file of the output is the command's to remove.
    ::unlink((job.rendering + ".wave").c_str());
    if (rendered) {
        std::string why;
        if (wvcli::commitOutput(job.rendering, job.target, false, why)) {
            {
                std::lock_guard<std::mutex> guard(mLock);
                mWritten.insert(job.file);
            }
            mEvents.publish("done", "{\"job\":" + quote(job.name) + ",\"name\":" + quote(job.file) +
                                        ",\"url\":" + quote("/api/download?name=" + job.file) + "}");
        } else {
            mEvents.publish("failed", "{\"job\":" + quote(job.name) + ",\"error\":" +
                                          quote(why.empty() ? "stopped" : why) + "}");
        }
    }
    ::unlink(job.rendering.c_str());
    mEngine.removePcm(list);
}

bool Exports::take(int code, int id, int value) {
    std::unique_lock<std::mutex> lock(mLock);
    auto it = mJobs.find(id);
    if (it == mJobs.end()) return false;
    Job& job = it->second;
    switch (code) {
        case WV_EVENT_RENDER_PROGRESS:
            if (value != job.lastPercent) {
                job.lastPercent = value;
                mEvents.publish("progress", "{\"job\":" + quote(job.name) + ",\"percent\":" + std::to_string(value) + "}");
            }
            return true;
        case WV_EVENT_RENDER_DONE:
        case WV_EVENT_RENDER_FAILED:
        case WV_EVENT_RENDER_CANCELLED:
        case WV_EVENT_RENDER_STOPPED: {
            Job ended = job;
            mJobs.erase(it);
            lock.unlock();
            if (code == WV_EVENT_RENDER_CANCELLED) {
                mEvents.publish("cancelled", jobJson(ended.name));
            } else if (code != WV_EVENT_RENDER_DONE) {
                mEvents.publish("failed", "{\"job\":" + quote(ended.name) + ",\"error\":" +
                                              quote(code == WV_EVENT_RENDER_STOPPED ? "storage full or no encoder"
                                                                                    : "the render failed") + "}");
            }
            finish(id, ended, code == WV_EVENT_RENDER_DONE);
            return true;
        }
        default: return true;
    }
}

void Exports::download(const std::string& name, HttpReply& reply) {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (!plainName(name) || mWritten.count(name) == 0) return fail(reply, 404, "no such export");
    }
    const int fd = ::open((mOutDir + "/" + name).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    struct stat st;
    if (fd < 0) return fail(reply, 404, "no such export");
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return fail(reply, 404, "no such export");
    }
    auto file = std::shared_ptr<int>(new int(fd), [](int* f) {
        ::close(*f);
        delete f;
    });
    reply.type = "application/octet-stream";
    reply.headers.emplace_back("Content-Disposition", "attachment; filename=" + quote(name));
    reply.length = uint64_t(st.st_size);
    reply.provider = [file](uint64_t offset, uint64_t size, const HttpWrite& write) {
        char block[65536];
        while (size > 0) {
            const ssize_t n = ::pread(*file, block, size_t(std::min<uint64_t>(size, sizeof block)), off_t(offset));
            if (n <= 0) return false;
            if (!write(block, size_t(n))) return false;
            offset += uint64_t(n);
            size -= uint64_t(n);
        }
        return true;
    };
}

}  // namespace wvstudio
