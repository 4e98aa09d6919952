#define WV_LOG_TAG "MediaLayer"
#include "platform/media/MetaData.h"

#include <cinttypes>

#include "base/Log.h"

namespace wv {

const char* const MEDIA_MIMETYPE_AUDIO_RAW = "audio/raw";

const MetaData::Entry* MetaData::lookup(uint32_t key) const {
    for (const Entry& entry : mEntries) {
        if (entry.key == key) return &entry;
    }
    return nullptr;
}

MetaData::Entry& MetaData::slot(uint32_t key, Type type) {
    for (Entry& entry : mEntries) {
        if (entry.key == key) {
            entry.type = type;
            return entry;
        }
    }
    mEntries.push_back(Entry{key, type, 0, std::string()});
    return mEntries.back();
}

bool MetaData::remove(uint32_t key) {
    for (auto it = mEntries.begin(); it != mEntries.end(); ++it) {
        if (it->key == key) {
            mEntries.erase(it);
            return true;
        }
    }
    return false;
}

void MetaData::setInt32(uint32_t key, int32_t value) { slot(key, Type::INT32).number = value; }

void MetaData::setInt64(uint32_t key, int64_t value) { slot(key, Type::INT64).number = value; }

void MetaData::setCString(uint32_t key, const char* value) {
    slot(key, Type::CSTRING).text = value ? value : "";
}

bool MetaData::findInt32(uint32_t key, int32_t* value) const {
    const Entry* entry = lookup(key);
    if (entry == nullptr || entry->type != Type::INT32) return false;
    *value = static_cast<int32_t>(entry->number);
    return true;
}

bool MetaData::findInt64(uint32_t key, int64_t* value) const {
    const Entry* entry = lookup(key);
    if (entry == nullptr || entry->type != Type::INT64) return false;
    *value = entry->number;
    return true;
}

bool MetaData::findCString(uint32_t key, const char** value) const {
    const Entry* entry = lookup(key);
    if (entry == nullptr || entry->type != Type::CSTRING) return false;
    *value = entry->text.c_str();
    return true;
}

void MetaData::dumpToLog() const {
    for (const Entry& entry : mEntries) {
        const char name[5] = {char(entry.key >> 24), char(entry.key >> 16), char(entry.key >> 8),
                              char(entry.key), '\0'};
        switch (entry.type) {
            case Type::INT32:
                WV_LOGI("%s: int32_t(%d)", name, static_cast<int32_t>(entry.number));
                break;
            case Type::INT64:
                WV_LOGI("%s: int64_t(%" PRId64 ")", name, entry.number);
                break;
            case Type::CSTRING:
                WV_LOGI("%s: string(%s)", name, entry.text.c_str());
                break;
        }
    }
}

}  // namespace wv
