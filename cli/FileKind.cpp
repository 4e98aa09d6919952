#include "FileKind.h"

#include <wavoryx/platform.h>

namespace wvcli {

std::string fileKind(const std::string& path) {
    std::string name(64, '\0');
    int length = wavoryx_file_format(path.c_str(), &name[0], unsigned(name.size()), nullptr);
    // A long extension stands for the kind: asked again with room for it.
    if (length >= int(name.size())) {
        name.assign(size_t(length) + 1, '\0');
        length = wavoryx_file_format(path.c_str(), &name[0], unsigned(name.size()), nullptr);
    }
    if (length < 0) return "unknown";
    name.resize(size_t(length));
    return name;
}

bool statesVariableRate(const std::string& path) {
    char name[8];
    int variable = 0;
    return wavoryx_file_format(path.c_str(), name, sizeof name, &variable) >= 0 && variable != 0;
}

}  // namespace wvcli
