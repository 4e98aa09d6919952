#include "WaveformPicture.h"

#include <png.h>
#include <unistd.h>

#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>

namespace wvcli {
namespace {

const char* const kEighths[9] = {" ", "\u2581", "\u2582", "\u2583", "\u2584", "\u2585", "\u2586", "\u2587", "\u2588"};

struct Rgb {
    png_byte r, g, b;
};
constexpr Rgb kBackground = {250, 250, 250};
constexpr Rgb kWave = {32, 96, 192};
constexpr Rgb kAxis = {180, 180, 180};

void fillRow(std::vector<png_byte>& row, const std::vector<uint8_t>& peaks, int y, int height) {
    const int middle = height / 2;
    for (size_t x = 0; x < peaks.size(); ++x) {
        // Half-height of the bar in pixels; a sound peak never vanishes.
        int half = peaks[x] * middle / 255;
        if (half == 0 && peaks[x] > 0) half = 1;
        Rgb colour = kBackground;
        if (y == middle) colour = kAxis;
        if (y >= middle - half && y <= middle + half && peaks[x] > 0) colour = kWave;
        row[3 * x] = colour.r;
        row[3 * x + 1] = colour.g;
        row[3 * x + 2] = colour.b;
    }
}

// libpng reports errors by longjmp: this function holds no C++ objects
// whose destructors a jump would skip, only what the caller owns.
bool encodePng(FILE* file, const std::vector<uint8_t>& peaks, int height, std::vector<png_byte>& row) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    if (png == nullptr) return false;
    png_infop info = png_create_info_struct(png);
    if (info == nullptr || setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, png_uint_32(peaks.size()), png_uint_32(height), 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < height; ++y) {
        fillRow(row, peaks, y, height);
        png_write_row(png, row.data());
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

}  // namespace

std::vector<std::string> drawTextWaveform(const std::vector<uint8_t>& peaks, int rows) {
    std::vector<std::string> lines(size_t(rows > 0 ? rows : 0));
    const int steps = rows * 8;
    for (uint8_t peak : peaks) {
        int level = (peak * steps + 254) / 255;  // rounded up: quiet peaks stay visible
        for (int line = rows - 1; line >= 0; --line) {
            const int here = level > 8 ? 8 : level;
            lines[size_t(line)] += kEighths[here];
            level -= here;
        }
    }
    return lines;
}

bool writeWaveformPng(const std::string& path, const std::vector<uint8_t>& peaks, int height, std::string& why) {
    FILE* file = std::fopen(path.c_str(), "wbxe");  // created new, close-on-exec
    if (file == nullptr) {
        why = std::string("cannot write (") + std::strerror(errno) + ")";
        return false;
    }
    std::vector<png_byte> row(peaks.size() * 3);
    bool ok = encodePng(file, peaks, height, row);
    ok = (std::fflush(file) == 0) && ok;
    const int savedErrno = errno;
    ok = (std::fclose(file) == 0) && ok;
    if (!ok) {
        why = std::string("write error (") + std::strerror(savedErrno) + ")";
        ::unlink(path.c_str());
    }
    return ok;
}

}  // namespace wvcli
