// Runs a fuzz target over saved inputs, for the regression tests: every
// file named on the command line, and every file inside each directory
// named. A target that finds a fault aborts, which fails the test.
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

void collect(const std::string& path, std::vector<std::string>* files) {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) return;
    if (!S_ISDIR(st.st_mode)) {
        files->push_back(path);
        return;
    }
    DIR* dir = ::opendir(path.c_str());
    if (dir == nullptr) return;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || name[0] == '.') continue;
        collect(path + "/" + name, files);
    }
    ::closedir(dir);
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) collect(argv[i], &files);
    std::sort(files.begin(), files.end());
    for (const std::string& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        std::printf("replaying %s (%zu bytes)\n", file.c_str(), bytes.size());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("%zu inputs replayed\n", files.size());
    return 0;
}
