// The little JSON the studio speaks: request bodies read into a Value tree
// (objects, arrays, numbers, strings, true/false/null), and replies written
// with quote().
#ifndef WAVORYX_CLI_STUDIO_JSON_H
#define WAVORYX_CLI_STUDIO_JSON_H

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace wvstudio {

struct JsonValue {
    enum Kind { kNull, kBool, kNumber, kString, kArray, kObject } kind = kNull;
    bool boolean = false;
    double number = 0.0;
    std::string text;
    std::vector<JsonValue> items;
    std::map<std::string, JsonValue> members;

    // The member `name` of an object, or a null value.
    const JsonValue& operator[](const std::string& name) const;
    bool isNull() const { return kind == kNull; }
    bool isNumber() const { return kind == kNumber; }
    bool isString() const { return kind == kString; }
};

// Parses `text` (one value, nesting at most 32 deep); false on any fault.
bool parseJson(const std::string& text, JsonValue& out);

// `text` as a JSON string, quotes included.
std::string quote(const std::string& text);
// A number as JSON writes it (no exponent for ordinary values).
std::string number(double value);
// {"error": "text"}
std::string errorJson(const std::string& text);

}  // namespace wvstudio

#endif
