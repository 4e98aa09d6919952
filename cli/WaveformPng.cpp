#include "WaveformPng.h"

#include <cairo.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "WaveformFiles.h"

namespace wvcli {
namespace {

constexpr int kTickLength = 4;
constexpr double kLabelSize = 10;
constexpr int kMinTickSpacing = 70;  // room for "0:00:00" and a gap

void setColour(cairo_t* cr, const Colour& colour) {
    cairo_set_source_rgba(cr, colour.red, colour.green, colour.blue, colour.alpha);
}

void drawWave(cairo_t* cr, const std::vector<int16_t>& minMax, double waveHeight, const PictureStyle& style) {
    const size_t columns = minMax.size() / 2;
    const double centre = waveHeight / 2;
    std::vector<double> top(columns), bottom(columns);
    for (size_t x = 0; x < columns; ++x) {
        top[x] = centre - heightOf(minMax[2 * x + 1], style.scale) * centre;
        bottom[x] = centre - heightOf(minMax[2 * x], style.scale) * centre;
        // A quiet column is at least a pixel high; silence stays empty.
        const bool silent = minMax[2 * x] == 0 && minMax[2 * x + 1] == 0;
        if (!silent && bottom[x] - top[x] < 1) {
            const double middle = (top[x] + bottom[x]) / 2;
            top[x] = middle - 0.5;
            bottom[x] = middle + 0.5;
        }
    }
    // One outline: the maxima left to right, the minima back; columns keep
    // their pixel's width, so vertical edges stay sharp.
    cairo_new_path(cr);
    cairo_move_to(cr, 0, top[0]);
    for (size_t x = 0; x < columns; ++x) {
        cairo_line_to(cr, double(x), top[x]);
        cairo_line_to(cr, double(x + 1), top[x]);
    }
    for (size_t x = columns; x-- > 0;) {
        cairo_line_to(cr, double(x + 1), bottom[x]);
        cairo_line_to(cr, double(x), bottom[x]);
    }
    cairo_close_path(cr);
    setColour(cr, style.wave);
    cairo_fill(cr);
}

void drawAxis(cairo_t* cr, int width, int waveHeight, uint64_t fromMs, uint64_t toMs, const PictureStyle& style) {
    setColour(cr, style.axis);
    cairo_rectangle(cr, 0, waveHeight, width, 1);
    cairo_fill(cr);
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, kLabelSize);
    double labelsEnd = -1;
    for (const TimeTick& tick : timeTicks(fromMs, toMs, width, kMinTickSpacing)) {
        const double x = std::min(std::floor(tick.x), double(width - 1));
        cairo_rectangle(cr, x, waveHeight + 1, 1, kTickLength);
        cairo_fill(cr);
        cairo_text_extents_t extents;
        cairo_text_extents(cr, tick.label.c_str(), &extents);
        // Centred under its tick, kept inside the picture, never over the last.
        const double left = std::max(0.0, std::min(x - extents.x_advance / 2, width - extents.x_advance));
        if (left <= labelsEnd) continue;
        cairo_move_to(cr, left, waveHeight + 1 + kTickLength + kLabelSize);
        cairo_show_text(cr, tick.label.c_str());
        labelsEnd = left + extents.x_advance + 4;
    }
}

cairo_status_t appendToString(void* closure, const unsigned char* data, unsigned int length) {
    static_cast<std::string*>(closure)->append(reinterpret_cast<const char*>(data), length);
    return CAIRO_STATUS_SUCCESS;
}

// The drawing's surface, or null when Cairo could not make one.
cairo_surface_t* drawPicture(const std::vector<int16_t>& minMax, int height, uint64_t fromMs, uint64_t toMs,
                             const PictureStyle& style) {
    const int width = int(minMax.size() / 2);
    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(surface);
        return nullptr;
    }
    cairo_t* cr = cairo_create(surface);
    // The background replaces what is there, alpha and all.
    cairo_set_operator(cr, CAIRO_OPERATOR_SOURCE);
    setColour(cr, style.background);
    cairo_paint(cr);
    cairo_set_operator(cr, CAIRO_OPERATOR_OVER);
    const bool axis = height >= kAxisMinHeight;
    const int waveHeight = axis ? height - kAxisHeight : height;
    Colour centreLine = style.axis;
    centreLine.alpha *= 0.5;
    setColour(cr, centreLine);
    cairo_rectangle(cr, 0, std::floor((waveHeight - 1) / 2.0), width, 1);
    cairo_fill(cr);
    if (width > 0) drawWave(cr, minMax, waveHeight, style);
    if (axis) drawAxis(cr, width, waveHeight, fromMs, toMs, style);
    const bool drawn = cairo_status(cr) == CAIRO_STATUS_SUCCESS;
    cairo_destroy(cr);
    if (!drawn) {
        cairo_surface_destroy(surface);
        return nullptr;
    }
    cairo_surface_flush(surface);
    return surface;
}

}  // namespace

bool drawWaveformPng(const std::vector<int16_t>& minMax, int height, uint64_t fromMs, uint64_t toMs,
                     const PictureStyle& style, std::string& png, std::string& why) {
    cairo_surface_t* surface = drawPicture(minMax, height, fromMs, toMs, style);
    if (surface == nullptr) {
        why = "the picture could not be drawn (too large?)";
        return false;
    }
    png.clear();
    const bool ok = cairo_surface_write_to_png_stream(surface, appendToString, &png) == CAIRO_STATUS_SUCCESS;
    cairo_surface_destroy(surface);
    if (!ok) why = "the picture could not be drawn (too large?)";
    return ok;
}

bool writeWaveformPng(const std::string& path, const std::vector<int16_t>& minMax, int height, uint64_t fromMs,
                      uint64_t toMs, const PictureStyle& style, std::string& why) {
    std::string png;
    return drawWaveformPng(minMax, height, fromMs, toMs, style, png, why) && writeNewFile(path, png, why);
}

}  // namespace wvcli
