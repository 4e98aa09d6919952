#include "platform/audio/DeviceSelection.h"

#include <cstdlib>
#include <cstring>

namespace wv {

std::string DeviceSelection::selected() const {
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (mSet) return mSpec;
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

int DeviceSelection::set(const char* spec) {
    // Checked outside the lock: a file: text looks at the file system.
    if (spec != nullptr && !mKinds.isValid(spec)) return -1;
    std::lock_guard<std::mutex> guard(mLock);
    mSet = spec != nullptr;
    mSpec = spec != nullptr ? spec : "";
    return 0;
}

std::string specArgument(const std::string& spec, const char* kind) {
    const size_t kindLength = std::strlen(kind);
    if (spec.size() <= kindLength + 1 || spec.compare(0, kindLength, kind) != 0 ||
        spec[kindLength] != ':') {
        return "";
    }
    return spec.substr(kindLength + 1);
}

}  // namespace wv
