#include "studio/Takes.h"

#include <unistd.h>

#include <wavoryx/Wavoryx.h>

#include "AudioChoice.h"
#include "LiveLine.h"
#include "studio/EventHub.h"
#include "studio/FileRegistry.h"
#include "studio/Json.h"
#include "studio/Sources.h"
#include "studio/Studio.h"

namespace wvstudio {

namespace {
constexpr int kRate = 44100;
constexpr int kChannels = 1;
constexpr int kMicrophoneSource = 1;
}  // namespace

void Takes::start(HttpReply& reply) {
    std::string why;
    wvcli::AudioChoice input;
    if (!wvcli::chooseAudioInput(input, why)) return fail(reply, 500, why);
    std::lock_guard<std::mutex> guard(mLock);
    if (mId != 0) return fail(reply, 409, "a take is being recorded");
    const int number = mNumber + 1;
    const std::string path = mWorkDir + "take-" + std::to_string(number) + ".wav";
    const int id = mEngine.recordStart(path.c_str(), ENCODE_WAV, kRate, kChannels, 0, kMicrophoneSource, 0);
    if (id <= 0) return fail(reply, 500, "the engine could not record");
    mNumber = number;
    mId = id;
    mPath = path;
    mEnd = false;
    mLevel = 0;
    reply.body = "{\"take\":" + quote("T" + std::to_string(number)) + "}";
}

bool Takes::take(int code, int id, int value) {
    std::lock_guard<std::mutex> guard(mLock);
    if (id != mId || mId == 0 || code < WV_EVENT_RECORD_FAILED || code > WV_EVENT_RECORD_LEVEL) return false;
    if (code == WV_EVENT_RECORD_ENDED || code == WV_EVENT_RECORD_FAILED) {
        mEnd = true;
        mEndValue = code == WV_EVENT_RECORD_FAILED ? -1 : value;
        mEnded.notify_all();
    } else if (code == WV_EVENT_RECORD_LEVEL) {
        mLevel = std::max(mLevel, value);
        const auto now = std::chrono::steady_clock::now();
        // Ten a second are enough for a meter.
        if (now - mTold >= std::chrono::milliseconds(100)) {
            mTold = now;
            const int frames = mEngine.getPcmFrameLength(id);
            const double seconds = frames > 0 ? double(frames) / kRate : 0.0;
            mEvents.publish("level", "{\"take\":" + quote("T" + std::to_string(mNumber)) + ",\"peak_db\":" +
                                         number(wvcli::levelDecibels(mLevel)) + ",\"seconds\":" + number(seconds) + "}");
            mLevel = 0;
        }
    }
    return true;
}

void Takes::stop(const JsonValue& body, HttpReply& reply) {
    std::unique_lock<std::mutex> lock(mLock);
    const std::string name = "T" + std::to_string(mNumber);
    if (mId == 0 || !body["take"].isString() || body["take"].text != name) return fail(reply, 404, "no such take");
    const int id = mId;
    mEngine.recordStop();
    const bool ended = mEnded.wait_for(lock, std::chrono::seconds(10), [this] { return mEnd; });
    mId = 0;
    ::unlink((mPath + ".wave").c_str());
    if (!ended || mEndValue != 0) {
        mEngine.removePcm(id);
        ::unlink(mPath.c_str());
        return fail(reply, 500, "the take could not be written");
    }
    mEngine.removePcm(id);
    const std::string path = mPath;
    const std::string fileName = "take-" + std::to_string(mNumber) + ".wav";
    lock.unlock();
    StudioFile file;
    mFiles.find(mFiles.addFile(fileName, path), file);
    std::string why;
    const int source = mSources.open(file, why);
    if (source <= 0) return fail(reply, 500, why);
    mSources.describe(source, reply.body);
}

void Takes::stopAll() {
    std::lock_guard<std::mutex> guard(mLock);
    if (mId != 0) mEngine.recordStop();
}

}  // namespace wvstudio
