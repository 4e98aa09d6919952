#define WV_LOG_TAG "Platform"
#include "platform/LazyLibraries.h"

#include <dlfcn.h>

#include "base/CheckSites.h"
#include "base/Log.h"

namespace wv {

namespace {
constexpr int kMaxLibraries = 8;
}

LazyLibraries::LazyLibraries(const char* const* sonames, void (*onLoaded)())
    : mSonames(sonames), mOnLoaded(onLoaded) {}

bool LazyLibraries::load() {
    std::call_once(mOnce, [this] {
        for (int i = 0; mSonames[i] != nullptr; ++i) {
            WV_CHECK_AT(Check::kLazyLibrarySlots, i < kMaxLibraries);
            mHandles[i] = dlopen(mSonames[i], RTLD_NOW | RTLD_GLOBAL);
            if (mHandles[i] == nullptr) {
                const char* why = dlerror();
                WV_LOGE("cannot load %s: %s", mSonames[i], why != nullptr ? why : "unknown error");
                mFailed = true;
                return;
            }
        }
        mLoaded.store(true, std::memory_order_release);
        if (mOnLoaded != nullptr) mOnLoaded();
    });
    return !mFailed;
}

bool LazyLibraries::presentInProcess() const {
    for (int i = 0; mSonames[i] != nullptr; ++i) {
        if (void* handle = dlopen(mSonames[i], RTLD_NOW | RTLD_NOLOAD)) {
            dlclose(handle);  // only drops the count RTLD_NOLOAD added
            return true;
        }
    }
    return false;
}

void* LazyLibraries::symbol(const char* name) {
    if (!load()) return nullptr;
    return lookUp(name);
}

void* LazyLibraries::lookUp(const char* name) const {
    for (int i = 0; mSonames[i] != nullptr && mHandles[i] != nullptr; ++i) {
        if (void* address = dlsym(mHandles[i], name)) return address;
    }
    return nullptr;
}

void* LazyLibraries::symbolOrDie(const char* name) {
    void* address = symbol(name);
    if (address == nullptr) {
        WV_FATAL_AT(Check::kLazyLibrarySymbol, "%s is missing from %s and its companions", name,
                    mSonames[0]);
    }
    return address;
}

}  // namespace wv
