#include "platform/media/FileFormat.h"

#include <cctype>
#include <cstring>
#include <fstream>

#include <wavoryx/platform.h>

namespace wv {
namespace {

bool startsWith(const std::string& head, size_t at, const char* magic) {
    const size_t n = std::strlen(magic);
    return head.size() >= at + n && head.compare(at, n, magic) == 0;
}

std::string fromExtension(const std::string& path) {
    const size_t dot = path.find_last_of('.');
    const size_t slash = path.find_last_of('/');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash) ||
        dot + 1 == path.size()) {
        return "unknown";
    }
    std::string ext = path.substr(dot + 1);
    for (char& c : ext) c = char(std::toupper(static_cast<unsigned char>(c)));
    return ext;
}

}  // namespace

std::string fileFormatName(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string head(64, '\0');
    in.read(&head[0], std::streamsize(head.size()));
    head.resize(size_t(in.gcount()));

    if (startsWith(head, 0, "RIFF") && startsWith(head, 8, "WAVE")) return "WAV";
    if (startsWith(head, 0, "fLaC")) return "FLAC";
    if (startsWith(head, 0, "#!AMR")) return "AMR";
    if (startsWith(head, 0, "OggS")) {
        if (head.find("OpusHead") != std::string::npos) return "Ogg Opus";
        if (head.find("vorbis") != std::string::npos) return "Ogg Vorbis";
        return "Ogg";
    }
    if (startsWith(head, 4, "ftyp")) return startsWith(head, 8, "3gp") ? "3GP" : "MP4";
    if (startsWith(head, 0, "ID3")) return "MP3";
    // An MPEG audio frame header: 11 sync bits, then layer III.
    if (head.size() >= 2 && static_cast<unsigned char>(head[0]) == 0xFF &&
        (static_cast<unsigned char>(head[1]) & 0xE6) == 0xE2) {
        return "MP3";
    }
    return fromExtension(path);
}

bool mp3StatesVariableRate(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::string head(10, '\0');
    in.read(&head[0], 10);
    if (in.gcount() != 10) return false;
    // An ID3v2 tag comes first: its size is four 7-bit bytes, after the
    // 10-byte header (and a 10-byte footer when flag 0x10 says so).
    std::streamoff first = 0;
    if (startsWith(head, 0, "ID3")) {
        first = 10;
        for (int i = 6; i < 10; ++i) {
            first = (first - 10) * 128 + 10 + (static_cast<unsigned char>(head[i]) & 0x7F);
        }
        if ((static_cast<unsigned char>(head[5]) & 0x10) != 0) first += 10;
    }
    // The first frame's side information is followed by the tag, at most
    // 36 bytes in; "Info" is the same tag written for a constant rate.
    std::string frame(256, '\0');
    in.seekg(first);
    in.read(&frame[0], std::streamsize(frame.size()));
    frame.resize(size_t(in.gcount()));
    if (frame.size() < 4 || static_cast<unsigned char>(frame[0]) != 0xFF) return false;
    const size_t xing = frame.find("Xing");
    return (xing != std::string::npos && xing <= 40) || frame.compare(36, 4, "VBRI") == 0;
}

}  // namespace wv

extern "C" int wavoryx_file_format(const char* path, char* name, unsigned int size,
                                   int* variableRate) {
    if (path == nullptr || name == nullptr || size == 0) return -1;
    const std::string format = wv::fileFormatName(path);
    const size_t n = format.size() < size - 1 ? format.size() : size - 1;
    std::memcpy(name, format.data(), n);
    name[n] = '\0';
    if (variableRate != nullptr) *variableRate = format == "MP3" && wv::mp3StatesVariableRate(path);
    return static_cast<int>(format.size());
}
