// The files the studio may read: those named on the command line and the
// audio files directly inside the folders named there, found once at start
// (and the takes recorded since). The page names them by id only, never by
// path, so no request can reach another file. A link found in a folder is
// taken only when it leads to a regular file inside that same folder.
#ifndef WAVORYX_CLI_STUDIO_FILEREGISTRY_H
#define WAVORYX_CLI_STUDIO_FILEREGISTRY_H

#include <mutex>
#include <string>
#include <vector>

namespace wvstudio {

struct StudioFile {
    std::string id;    // "f0", "f1", ...
    std::string name;  // the file's name as shown
    std::string path;  // resolved, absolute
};

class FileRegistry {
public:
    // Adds what `paths` name; a path that is neither an audio file nor a
    // folder goes into `problems` as "PATH: reason".
    void addPaths(const std::vector<std::string>& paths, std::vector<std::string>& problems);
    // Adds one file (a take); returns its id.
    std::string addFile(const std::string& name, const std::string& path);

    bool find(const std::string& id, StudioFile& out) const;
    std::vector<StudioFile> files() const;
    // Whether exactly one file was named on the command line (the page
    // opens it at once).
    bool singleFile() const { return mSingleFile; }

    // Whether `name` has a known audio suffix.
    static bool isAudioName(const std::string& name);

private:
    mutable std::mutex mLock;
    std::vector<StudioFile> mFiles;
    bool mSingleFile = false;
};

}  // namespace wvstudio

#endif
