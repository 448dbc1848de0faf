// Reads the modem's state for its requests, and tells a file that is not there from one that cannot
// be read: nobody can say then what the modem holds, and a request is refused as the modem's own
// failure.
#pragma once

#include <optional>
#include <string>

#include "state_files.h"

namespace sim {

// Thrown where the state cannot be read, caught where a request is answered.
struct StateError {};

// The whole file, or nothing when it is not there.
std::optional<std::string> read_state(const std::string& path,
                                      size_t max_bytes = state_files::kMaxTextBytes);

// The lines of a file of `key=value` lines; none when it is not there.
state_files::KeyValues read_state_values(const std::string& path);

}  // namespace sim
