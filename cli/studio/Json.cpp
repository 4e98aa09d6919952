#include "studio/Json.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace wvstudio {

const JsonValue& JsonValue::operator[](const std::string& name) const {
    static const JsonValue kNone;
    if (kind != kObject) return kNone;
    auto it = members.find(name);
    return it == members.end() ? kNone : it->second;
}

namespace {

class Parser {
public:
    explicit Parser(const std::string& text) : mText(text) {}

    bool parse(JsonValue& out) {
        if (!value(out, 0)) return false;
        space();
        return mAt == mText.size();
    }

private:
    void space() {
        while (mAt < mText.size() && (mText[mAt] == ' ' || mText[mAt] == '\t' || mText[mAt] == '\n' ||
                                      mText[mAt] == '\r')) {
            ++mAt;
        }
    }
    bool word(const char* w) {
        size_t n = 0;
        while (w[n] != '\0') ++n;
        if (mText.compare(mAt, n, w) != 0) return false;
        mAt += n;
        return true;
    }
    bool value(JsonValue& out, int depth) {
        if (depth > 32) return false;
        space();
        if (mAt >= mText.size()) return false;
        const char c = mText[mAt];
        if (c == '{') return object(out, depth);
        if (c == '[') return array(out, depth);
        if (c == '"') {
            out.kind = JsonValue::kString;
            return string(out.text);
        }
        if (word("true")) {
            out.kind = JsonValue::kBool;
            out.boolean = true;
            return true;
        }
        if (word("false")) {
            out.kind = JsonValue::kBool;
            return true;
        }
        if (word("null")) return true;
        return numberValue(out);
    }
    bool numberValue(JsonValue& out) {
        const char* begin = mText.c_str() + mAt;
        if (*begin != '-' && (*begin < '0' || *begin > '9')) return false;
        char* end = nullptr;
        const double v = std::strtod(begin, &end);
        if (end == begin || !std::isfinite(v)) return false;
        mAt += static_cast<size_t>(end - begin);
        out.kind = JsonValue::kNumber;
        out.number = v;
        return true;
    }
    bool hex4(unsigned& code) {
        if (mAt + 4 > mText.size()) return false;
        code = 0;
        for (int i = 0; i < 4; ++i) {
            const char h = mText[mAt++];
            code <<= 4;
            if (h >= '0' && h <= '9') code |= unsigned(h - '0');
            else if (h >= 'a' && h <= 'f') code |= unsigned(h - 'a' + 10);
            else if (h >= 'A' && h <= 'F') code |= unsigned(h - 'A' + 10);
            else return false;
        }
        return true;
    }
    static void utf8(unsigned code, std::string& out) {
        if (code < 0x80) {
            out += char(code);
        } else if (code < 0x800) {
            out += char(0xC0 | (code >> 6));
            out += char(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            out += char(0xE0 | (code >> 12));
            out += char(0x80 | ((code >> 6) & 0x3F));
            out += char(0x80 | (code & 0x3F));
        } else {
            out += char(0xF0 | (code >> 18));
            out += char(0x80 | ((code >> 12) & 0x3F));
            out += char(0x80 | ((code >> 6) & 0x3F));
            out += char(0x80 | (code & 0x3F));
        }
    }
    bool string(std::string& out) {
        ++mAt;  // the opening quote
        while (mAt < mText.size()) {
            const char c = mText[mAt++];
            if (c == '"') return true;
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (c != '\\') {
                out += c;
                continue;
            }
            if (mAt >= mText.size()) return false;
            const char e = mText[mAt++];
            switch (e) {
                case '"': out += '"'; break;
                case '\\': out += '\\'; break;
                case '/': out += '/'; break;
                case 'b': out += '\b'; break;
                case 'f': out += '\f'; break;
                case 'n': out += '\n'; break;
                case 'r': out += '\r'; break;
                case 't': out += '\t'; break;
                case 'u': {
                    unsigned code = 0;
                    if (!hex4(code)) return false;
                    if (code >= 0xD800 && code < 0xDC00) {
                        unsigned low = 0;
                        if (!word("\\u") || !hex4(low) || low < 0xDC00 || low >= 0xE000) return false;
                        code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
                    } else if (code >= 0xDC00 && code < 0xE000) {
                        return false;
                    }
                    // A NUL would cut names where the system reads them.
                    if (code == 0) return false;
                    utf8(code, out);
                    break;
                }
                default: return false;
            }
        }
        return false;
    }
    bool array(JsonValue& out, int depth) {
        ++mAt;
        out.kind = JsonValue::kArray;
        space();
        if (mAt < mText.size() && mText[mAt] == ']') {
            ++mAt;
            return true;
        }
        for (;;) {
            out.items.emplace_back();
            if (!value(out.items.back(), depth + 1)) return false;
            space();
            if (mAt >= mText.size()) return false;
            if (mText[mAt] == ']') {
                ++mAt;
                return true;
            }
            if (mText[mAt++] != ',') return false;
        }
    }
    bool object(JsonValue& out, int depth) {
        ++mAt;
        out.kind = JsonValue::kObject;
        space();
        if (mAt < mText.size() && mText[mAt] == '}') {
            ++mAt;
            return true;
        }
        for (;;) {
            space();
            if (mAt >= mText.size() || mText[mAt] != '"') return false;
            std::string name;
            if (!string(name)) return false;
            space();
            if (mAt >= mText.size() || mText[mAt++] != ':') return false;
            if (!value(out.members[name], depth + 1)) return false;
            space();
            if (mAt >= mText.size()) return false;
            if (mText[mAt] == '}') {
                ++mAt;
                return true;
            }
            if (mText[mAt++] != ',') return false;
        }
    }

    const std::string& mText;
    size_t mAt = 0;
};

}  // namespace

bool parseJson(const std::string& text, JsonValue& out) {
    out = JsonValue();
    return Parser(text).parse(out);
}

std::string quote(const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
        switch (c) {
            case '"': out += "\\\""; break;
            case '\\': out += "\\\\"; break;
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\u%04x", static_cast<unsigned>(c));
                    out += buf;
                } else {
                    out += c;
                }
        }
    }
    return out + "\"";
}

std::string number(double value) {
    if (!std::isfinite(value)) return "null";
    char buf[32];
    if (value == std::floor(value) && std::fabs(value) < 1e15) {
        std::snprintf(buf, sizeof buf, "%.0f", value);
    } else {
        std::snprintf(buf, sizeof buf, "%.6g", value);
    }
    return buf;
}

std::string errorJson(const std::string& text) { return "{\"error\":" + quote(text) + "}"; }

}  // namespace wvstudio
