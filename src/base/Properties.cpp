#define WV_LOG_TAG "Properties"
#include "base/Properties.h"

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <string>

#include "base/Log.h"

namespace wv {
namespace {

struct PropertyStore {
    std::mutex lock;
    bool fileRead = false;
    std::map<std::string, std::string> fromFile;
    std::map<std::string, std::string> overrides;
};

PropertyStore& store() {
    static PropertyStore instance;
    return instance;
}

std::string trim(const std::string& text) {
    const char* blanks = " \t\r\n";
    const size_t first = text.find_first_not_of(blanks);
    if (first == std::string::npos) return std::string();
    const size_t last = text.find_last_not_of(blanks);
    return text.substr(first, last - first + 1);
}

// Called with the store's lock held.
void readFileOnce(PropertyStore& s) {
    if (s.fileRead) return;
    s.fileRead = true;
    const char* path = std::getenv("WAVORYX_PROPERTIES");
    if (path == nullptr || *path == '\0') return;
    std::ifstream in(path);
    if (!in) {
        WV_LOGW("cannot read properties file %s", path);
        return;
    }
    std::string line;
    while (std::getline(in, line)) {
        const size_t hash = line.find('#');
        if (hash != std::string::npos) line.erase(hash);
        const size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        std::string key = trim(line.substr(0, equals));
        if (key.empty()) continue;
        s.fromFile[key] = trim(line.substr(equals + 1));
    }
}

int copyOut(char* value, const char* text) {
    const size_t length = std::min(std::strlen(text), size_t(kPropertyValueMax - 1));
    std::memcpy(value, text, length);
    value[length] = '\0';
    return static_cast<int>(length);
}

// The value set for `key`, if any: an override, else the file's.
bool lookUp(const char* key, std::string* value) {
    if (key == nullptr) return false;
    PropertyStore& s = store();
    std::lock_guard<std::mutex> guard(s.lock);
    readFileOnce(s);
    auto found = s.overrides.find(key);
    if (found == s.overrides.end()) {
        found = s.fromFile.find(key);
        if (found == s.fromFile.end()) return false;
    }
    *value = found->second;
    return true;
}

}  // namespace

int property_get(const char* key, char* value, const char* defaultValue) {
    std::string found;
    return copyOut(value, lookUp(key, &found) ? found.c_str() : defaultValue ? defaultValue : "");
}

int32_t property_get_int(const char* key, int32_t defaultValue, int32_t lowest, int32_t highest,
                         bool refuseOutside) {
    std::string found;
    if (!lookUp(key, &found)) return defaultValue;
    const char* value = found.c_str();
    const char* text = value;
    while (*text == ' ' || *text == '\t') ++text;
    char* end = nullptr;
    // Saturates instead of wrapping, so that a huge value is out of range
    // rather than any number at all.
    const long long number = std::strtoll(text, &end, 10);
    const bool notANumber = end == text;
    if (!notANumber && number >= lowest && number <= highest) return static_cast<int32_t>(number);
    const int32_t used =
        notANumber || refuseOutside ? defaultValue : number < lowest ? lowest : highest;
    logPropertyRefused(key, value, notANumber, lowest, highest, std::to_string(used).c_str());
    return used;
}

void logPropertyRefused(const char* key, const char* value, bool notANumber, long long lowest,
                        long long highest, const char* used) {
    WV_LOGW("%s=%s %s (accepted %lld to %lld); using %s", key, value,
            notANumber ? "is not a whole number" : "is out of range", lowest, highest, used);
}

void propertiesReloadForTesting() {
    PropertyStore& s = store();
    std::lock_guard<std::mutex> guard(s.lock);
    s.fileRead = false;
    s.fromFile.clear();
}

}  // namespace wv

extern "C" int wavoryx_set_property(const char* key, const char* value) {
    if (key == nullptr || *key == '\0') return -1;
    if (value != nullptr && std::strlen(value) >= size_t(wv::kPropertyValueMax)) return -1;
    wv::PropertyStore& s = wv::store();
    std::lock_guard<std::mutex> guard(s.lock);
    if (value == nullptr) {
        s.overrides.erase(key);
    } else {
        s.overrides[key] = value;
    }
    return 0;
}
