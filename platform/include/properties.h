// The system properties: on a host the file properties in the state folder, on a device those that
// its getprop and setprop programs know; they are asked for again after a second.
#pragma once

#include <string>

// Room for a property's value and its NUL.
inline constexpr int PROPERTY_VALUE_MAX = 92;

// Copies the value of `key`, or `default_value` (null: the empty string) when it is unset or empty,
// with a NUL into `value`, which has PROPERTY_VALUE_MAX bytes. The length of what was copied.
int property_get(const char* key, char* value, const char* default_value);

// Sets `key`. 0; -1, said once a process on standard error, when the name or the value is not
// possible (see property_problem) or cannot be stored.
int property_set(const char* key, const char* value);

// Why `key` and `value` cannot be a property of a host, in words, or null when they can.
const char* property_problem(const std::string& key, const std::string& value);
