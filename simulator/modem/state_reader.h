// Reads the modem's state for its requests and locks it for their changes. A file that is not there
// is told from one that cannot be read: nobody can say then what the modem holds, and a request is
// refused as the modem's own failure; so is one for which the state cannot be locked.
#pragma once

#include <optional>
#include <string>

#include "state_files.h"

namespace sim {

// Thrown where the state cannot be read or locked, caught where a request is answered.
struct StateError {};

// The whole file, or nothing when it is not there.
std::optional<std::string> read_state(const std::string& path,
                                      size_t max_bytes = state_files::kMaxTextBytes);

// The lines of a file of `key=value` lines; none when it is not there.
state_files::KeyValues read_state_values(const std::string& path);

// Locks the state for a change. That another process does not let go of it is said once on standard
// error.
state_files::FolderLock lock_state(const std::string& folder);

}  // namespace sim
