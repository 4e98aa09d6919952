// System properties: named text settings of the process, looked up by the
// engine at the moment it needs them. Values come from wavoryx_set_property,
// else from the file named by WAVORYX_PROPERTIES, else the caller's default.
#pragma once

#include <cstdint>

namespace wv {

// Longest value, terminating zero included.
constexpr int kPropertyValueMax = 92;

// Copies the value of `key` (or `defaultValue`, or "" when that is null) into
// `value`, which holds kPropertyValueMax bytes. Returns the length copied.
// Safe from any thread.
int property_get(const char* key, char* value, const char* defaultValue);

// The whole number `key` holds, within [lowest, highest]. Read as before
// from its leading digits (a sign allowed; "-3.5" is -3). A value out of the
// range is clamped to its nearer end, or gives `defaultValue` when
// `refuseOutside`; a value that is no number (an empty one too) gives
// `defaultValue`. Either logs one warning naming the key, its value and the
// accepted range. An unset key gives `defaultValue` silently.
int32_t property_get_int(const char* key, int32_t defaultValue, int32_t lowest, int32_t highest,
                         bool refuseOutside = false);

// The warning of a value `key` may not hold: "KEY=VALUE is out of range
// (accepted LOWEST to HIGHEST); using USED", or "is not a whole number" when
// `notANumber`. For readers that parse a value in their own way.
void logPropertyRefused(const char* key, const char* value, bool notANumber, long long lowest,
                        long long highest, const char* used);

// Forgets the properties file's contents so that the next look-up reads it
// again (tests change WAVORYX_PROPERTIES between cases).
void propertiesReloadForTesting();

}  // namespace wv
