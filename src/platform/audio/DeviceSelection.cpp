#include "platform/audio/DeviceSelection.h"

#include <cstdlib>
#include <cstring>

namespace wv {

std::string DeviceSelection::selected() const {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (!mChosen.empty()) return mChosen;
    }
    const char* env = std::getenv(mKinds.environmentVariable);
    if (env == nullptr || *env == '\0') return "auto";
    if (!mKinds.isValid(env)) {
        logPrint(WAVORYX_LOG_WARN, mKinds.logTag, "%s=%s %s; using auto",
                 mKinds.environmentVariable, env, mKinds.environmentRefusal);
        return "auto";
    }
    return env;
}

int DeviceSelection::set(const char* text) {
    // Checked outside the lock: a file: text looks at the file system.
    if (text != nullptr && !mKinds.isValid(text)) return -1;
    std::lock_guard<std::mutex> guard(mLock);
    mChosen = text != nullptr ? text : "";
    return 0;
}

std::string kindArgument(const std::string& text, const char* kind) {
    const size_t kindLength = std::strlen(kind);
    if (text.size() <= kindLength + 1 || text.compare(0, kindLength, kind) != 0 ||
        text[kindLength] != ':') {
        return "";
    }
    return text.substr(kindLength + 1);
}

}  // namespace wv
