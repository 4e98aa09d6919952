#include "studio/FileRegistry.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace wvstudio {

namespace {

std::string realPath(const std::string& path) {
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr), &std::free);
    return resolved ? std::string(resolved.get()) : std::string();
}

std::string baseName(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool isRegular(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

}  // namespace

bool FileRegistry::isAudioName(const std::string& name) {
    static const char* const kSuffixes[] = {".mp3", ".wav", ".flac", ".ogg", ".oga", ".opus", ".m4a", ".aac",
                                            ".mp4", ".wv",  ".aif", ".aiff", ".mka", ".webm", ".wma", ".ape"};
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    for (const char* suffix : kSuffixes) {
        const size_t n = std::strlen(suffix);
        if (lower.size() > n && lower.compare(lower.size() - n, n, suffix) == 0) return true;
    }
    return false;
}

std::string FileRegistry::addFile(const std::string& name, const std::string& path) {
    std::lock_guard<std::mutex> guard(mLock);
    StudioFile file;
    file.id = "f" + std::to_string(mFiles.size());
    file.name = name;
    file.path = path;
    mFiles.push_back(file);
    return file.id;
}

void FileRegistry::addPaths(const std::vector<std::string>& paths, std::vector<std::string>& problems) {
    size_t named = 0;
    for (const std::string& path : paths) {
        struct stat st;
        if (::stat(path.c_str(), &st) != 0) {
            problems.push_back(path + ": " + std::strerror(errno));
            continue;
        }
        const std::string resolved = realPath(path);
        if (S_ISREG(st.st_mode)) {
            addFile(baseName(path), resolved);
            ++named;
            continue;
        }
        if (!S_ISDIR(st.st_mode)) {
            problems.push_back(path + ": neither a file nor a folder");
            continue;
        }
        DIR* dir = ::opendir(resolved.c_str());
        if (dir == nullptr) {
            problems.push_back(path + ": " + std::strerror(errno));
            continue;
        }
        std::vector<std::string> names;
        while (dirent* entry = ::readdir(dir)) {
            const std::string name = entry->d_name;
            if (name.empty() || name[0] == '.' || !isAudioName(name)) continue;
            names.push_back(name);
        }
        ::closedir(dir);
        std::sort(names.begin(), names.end());
        for (const std::string& name : names) {
            // A link may lead anywhere: only one to a file in this folder.
            const std::string target = realPath(resolved + "/" + name);
            if (target.empty() || target.compare(0, resolved.size() + 1, resolved + "/") != 0 ||
                target.find('/', resolved.size() + 1) != std::string::npos || !isRegular(target)) {
                continue;
            }
            addFile(name, target);
        }
    }
    mSingleFile = named == 1 && paths.size() == 1;
}

bool FileRegistry::find(const std::string& id, StudioFile& out) const {
    std::lock_guard<std::mutex> guard(mLock);
    for (const StudioFile& file : mFiles) {
        if (file.id == id) {
            out = file;
            return true;
        }
    }
    return false;
}

std::vector<StudioFile> FileRegistry::files() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mFiles;
}

}  // namespace wvstudio
