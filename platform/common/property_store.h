// Where the system properties are: a file in the state folder on a host, behind the system's own
// programs on a device.
#pragma once

#include <string>
#include <utility>

namespace property_store {

// The value; empty when it is unset.
std::string get(const char* key);

// Two values of one moment, for the price of one.
using Pair = std::pair<std::string, std::string>;
Pair get_both(const char* first, const char* second);

// False, with `problem` in words, when the value cannot be stored.
bool set(const char* key, const char* value, std::string& problem);

}  // namespace property_store
