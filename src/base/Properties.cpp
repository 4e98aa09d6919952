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

}  // namespace

int property_get(const char* key, char* value, const char* defaultValue) {
    PropertyStore& s = store();
    {
        std::lock_guard<std::mutex> guard(s.lock);
        readFileOnce(s);
        if (key != nullptr) {
            auto found = s.overrides.find(key);
            if (found != s.overrides.end()) return copyOut(value, found->second.c_str());
            found = s.fromFile.find(key);
            if (found != s.fromFile.end()) return copyOut(value, found->second.c_str());
        }
    }
    return copyOut(value, defaultValue ? defaultValue : "");
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
