// System properties: named text settings of the process, looked up by the
// engine at the moment it needs them. Values come from wavoryx_set_property,
// else from the file named by WAVORYX_PROPERTIES, else the caller's default.
#pragma once

namespace wv {

// Longest value, terminating zero included.
constexpr int kPropertyValueMax = 92;

// Copies the value of `key` (or `defaultValue`, or "" when that is null) into
// `value`, which holds kPropertyValueMax bytes. Returns the length copied.
// Safe from any thread.
int property_get(const char* key, char* value, const char* defaultValue);

// Forgets the properties file's contents so that the next look-up reads it
// again (tests change WAVORYX_PROPERTIES between cases).
void propertiesReloadForTesting();

}  // namespace wv
