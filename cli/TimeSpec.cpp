#include "TimeSpec.h"

#include <sys/stat.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <vector>

#include "StandardInput.h"

namespace wvcli {
namespace {

constexpr uint64_t kMaxMs = 0xFFFFFFFEull;

// Digits only, at most 12 of them (keeps every product below 2^64).
bool parseDigits(const std::string& text, uint64_t& value) {
    if (text.empty() || text.size() > 12) return false;
    value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') return false;
        value = value * 10 + uint64_t(c - '0');
    }
    return true;
}

// "S", "S.f", "S.ff", "S.fff", "S." or ".f" as milliseconds; more decimals
// (as sox and ffmpeg take) round to the nearest millisecond, a half up.
// `wholeSeconds` gets S.
bool parseSeconds(const std::string& text, uint64_t& ms, uint64_t& wholeSeconds) {
    const size_t dot = text.find('.');
    uint64_t whole = 0;
    if (dot == std::string::npos) {
        if (!parseDigits(text, whole)) return false;
        ms = whole * 1000;
        wholeSeconds = whole;
        return true;
    }
    const std::string intPart = text.substr(0, dot);
    const std::string fraction = text.substr(dot + 1);
    if (intPart.empty() && fraction.empty()) return false;
    if (!intPart.empty() && !parseDigits(intPart, whole)) return false;
    uint64_t frac = 0;
    for (size_t i = 0; i < fraction.size(); ++i) {
        const char c = fraction[i];
        if (c < '0' || c > '9') return false;
        if (i < 3) frac = frac * 10 + uint64_t(c - '0');
        if (i == 3 && c >= '5') ++frac;  // after the three places, so 0.9995 gives 1000
    }
    for (size_t i = fraction.size(); i < 3; ++i) frac *= 10;
    ms = whole * 1000 + frac;
    wholeSeconds = whole;
    return true;
}

std::vector<std::string> splitColons(const std::string& text) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t colon = text.find(':', start);
        parts.push_back(text.substr(start, colon - start));
        if (colon == std::string::npos) return parts;
        start = colon + 1;
    }
}

bool exists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

// Where the last effect suffix of `text` starts (its ':'), and which key it
// has; npos when it ends in none. A fade's time may hold ':' itself, so
// the suffix is found by its key, not by the last ':'.
size_t lastEffectSuffix(const std::string& text, std::string& key) {
    static const char* const kKeys[] = {"gain=", "fade=", "fade-in=", "fade-out="};
    for (size_t colon = text.rfind(':'); colon != std::string::npos && colon > 0; colon = text.rfind(':', colon - 1)) {
        for (const char* candidate : kKeys) {
            if (text.compare(colon + 1, std::string(candidate).size(), candidate) == 0) {
                key = candidate;
                return colon;
            }
        }
    }
    return std::string::npos;
}

// The name of the first ":name=" in `text` that is no effect key
// ("a.wav@1-2:foo=1" holds foo); empty when there is none.
std::string unknownEffect(const std::string& text) {
    for (size_t colon = text.find(':'); colon != std::string::npos; colon = text.find(':', colon + 1)) {
        size_t end = colon + 1;
        while (end < text.size() && (std::isalnum(static_cast<unsigned char>(text[end])) || text[end] == '-' ||
                                     text[end] == '_')) {
            ++end;
        }
        if (end == colon + 1 || end == text.size() || text[end] != '=') continue;
        if (!std::isalpha(static_cast<unsigned char>(text[colon + 1]))) continue;
        return text.substr(colon + 1, end - colon - 1);
    }
    return std::string();
}

// Applies one "key=value" effect to `range`.
bool applyEffect(const std::string& whole, const std::string& key, const std::string& value, SourceRange& range,
                 std::string& why) {
    const std::string name = key.substr(0, key.size() - 1);
    if (name == "gain") {
        if (range.gainMillibels) {
            why = "'" + whole + "': gain is given twice";
            return false;
        }
        int32_t millibels = 0;
        if (!parseGainMillibels(value, millibels, why)) {
            why = "'" + whole + "': gain=" + why;
            return false;
        }
        range.gainMillibels = millibels;
        return true;
    }
    uint32_t ms = 0;
    if (!parseTimeMs(value, ms, why)) {
        why = "'" + whole + "': " + name + "='" + value + "' is not a time (use seconds as 0.5, m:ss.fff or 500ms)";
        return false;
    }
    const bool in = name != "fade-out";
    const bool out = name != "fade-in";
    if ((in && range.fadeInMs) || (out && range.fadeOutMs)) {
        why = "'" + whole + "': " + (in && range.fadeInMs ? "the fade-in" : "the fade-out") + " is given twice";
        return false;
    }
    if (in) range.fadeInMs = ms;
    if (out) range.fadeOutMs = ms;
    return true;
}

}  // namespace

bool parseDecimal(const std::string& text, double& value) {
    size_t i = 0;
    bool negative = false;
    if (i < text.size() && (text[i] == '-' || text[i] == '+')) negative = text[i++] == '-';
    double whole = 0;
    double scale = 0;  // the place of the next fraction digit once past the point
    int digits = 0;
    for (; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '.' && scale == 0) {
            scale = 0.1;
        } else if (c >= '0' && c <= '9' && digits < 15) {
            ++digits;
            if (scale == 0) {
                whole = whole * 10 + (c - '0');
            } else {
                whole += (c - '0') * scale;
                scale /= 10;
            }
        } else {
            return false;
        }
    }
    if (digits == 0) return false;
    value = negative ? -whole : whole;
    return true;
}

bool parseGainMillibels(const std::string& text, int32_t& millibels, std::string& why) {
    const std::string accepted =
        "use " + std::to_string(kLowestGainDb) + " to " + std::to_string(kHighestGainDb) + " dB (as -3 or 1.5)";
    double db = 0;
    if (!parseDecimal(text, db)) {
        why = "'" + text + "' is not a number of dB: " + accepted;
        return false;
    }
    const long rounded = std::lround(db * 100);
    if (rounded < kLowestGainDb * 100L || rounded > kHighestGainDb * 100L) {
        why = text + " is out of range: " + accepted;
        return false;
    }
    millibels = int32_t(rounded);
    return true;
}

bool parseTimeMs(const std::string& text, uint32_t& ms, std::string& why) {
    why = "'" + text + "' is not a time (use seconds as 90 or 1.5, m:ss.fff, h:mm:ss.fff, 2.5s or 1500ms)";
    const std::vector<std::string> parts = splitColons(text);
    if (parts.size() > 3) return false;
    uint64_t total = 0;
    if (parts.size() == 1) {
        // Seconds, as sox and ffmpeg read a bare number; a unit may be named.
        const bool millis = text.size() > 2 && text.compare(text.size() - 2, 2, "ms") == 0;
        const bool seconds = !millis && text.size() > 1 && text.back() == 's';
        if (millis) {
            if (!parseDigits(text.substr(0, text.size() - 2), total)) return false;
        } else if (uint64_t whole = 0; !parseSeconds(seconds ? text.substr(0, text.size() - 1) : text, total, whole)) {
            return false;
        }
    } else {
        uint64_t seconds = 0;
        uint64_t wholeSeconds = 0;
        if (!parseSeconds(parts.back(), seconds, wholeSeconds) || wholeSeconds >= 60) return false;
        uint64_t minutes = 0;
        if (!parseDigits(parts[parts.size() - 2], minutes)) return false;
        uint64_t hours = 0;
        if (parts.size() == 3) {
            if (!parseDigits(parts[0], hours) || minutes >= 60) return false;
        }
        total = (hours * 60 + minutes) * 60000 + seconds;
    }
    if (total > kMaxMs) {
        why = "'" + text + "' is too long a time";
        return false;
    }
    ms = static_cast<uint32_t>(total);
    why.clear();
    return true;
}

uint64_t endFrameAtMs(uint32_t ms, int rate, uint64_t length) {
    const uint64_t hz = uint64_t(rate > 0 ? rate : 0);
    if ((uint64_t(ms) + 1) * hz > length * 1000) return length;
    return uint64_t(ms) * hz / 1000;
}

std::string formatTimeMs(uint64_t ms) {
    char text[48];
    const uint64_t hours = ms / 3600000;
    const unsigned minutes = unsigned(ms / 60000 % 60);
    const unsigned seconds = unsigned(ms / 1000 % 60);
    const unsigned millis = unsigned(ms % 1000);
    if (hours > 0) {
        std::snprintf(text, sizeof text, "%llu:%02u:%02u.%03u", static_cast<unsigned long long>(hours), minutes,
                      seconds, millis);
    } else {
        std::snprintf(text, sizeof text, "%u:%02u.%03u", minutes, seconds, millis);
    }
    return text;
}

bool parseSourceRange(const std::string& shown, SourceRange& range, std::string& why) {
    range = SourceRange();
    const std::string whole = shown.rfind(kHiddenDash, 0) == 0 ? shown.substr(1) : shown;
    std::string text = whole;
    if (exists(text)) {
        range.path = text;
        return true;
    }
    std::string key;
    // Suffixes come off until what is left names an existing file.
    for (size_t colon = lastEffectSuffix(text, key); colon != std::string::npos;
         colon = exists(text) ? std::string::npos : lastEffectSuffix(text, key)) {
        const std::string value = text.substr(colon + 1 + key.size());
        const std::string unknown = unknownEffect(value);
        if (!unknown.empty()) {
            why = "'" + whole + "': unknown effect " + unknown + " (use " + kRangeEffectForms + ")";
            return false;
        }
        if (!applyEffect(whole, key, value, range, why)) return false;
        text.erase(colon);
    }
    const size_t at = text.rfind('@');
    if (at == std::string::npos || exists(text)) {
        range.path = text;
        return true;
    }
    range.path = text.substr(0, at);
    const std::string bounds = text.substr(at + 1);
    const size_t dash = bounds.find('-');
    if (range.path.empty() || dash == std::string::npos) {
        why = "'" + text + "': a range is written FILE@FROM-TO (either side may be left out)";
        return false;
    }
    const std::string from = bounds.substr(0, dash);
    const std::string to = bounds.substr(dash + 1);
    // Effects that are not known were left in the bounds: name them rather
    // than the time they spoil.
    const auto badBounds = [&] {
        const std::string effect = unknownEffect(bounds);
        if (!effect.empty()) {
            why = "'" + whole + "': unknown effect " + effect + " (use " + kRangeEffectForms + ")";
        }
        return false;
    };
    if (!from.empty() && !parseTimeMs(from, range.fromMs, why)) return badBounds();
    if (!to.empty()) {
        if (!parseTimeMs(to, range.toMs, why)) return badBounds();
        range.hasEnd = true;
        if (range.toMs < range.fromMs) {
            why = "'" + text + "': the range ends before it starts";
            return false;
        }
        if (range.toMs == range.fromMs) {
            why = "'" + text + "': the range is empty";
            return false;
        }
    }
    return true;
}

}  // namespace wvcli
