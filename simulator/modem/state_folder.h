// Making, checking and emptying the state folder of the simulated modem.
#pragma once

#include <string>

namespace sim {

// Makes sure that `folder` holds a modem's state, with factory content when it is new, and with
// what the factory content has gained since an earlier build made it. False, with `problem` in
// words, when that cannot be done.
bool prepare_state_folder(const std::string& folder, std::string& problem);

// Removes all that `folder` holds, but for its lock file; a new one has nothing to remove. False,
// with `problem` in words, when it is no state folder or a server uses it.
bool empty_state_folder(const std::string& folder, std::string& problem);

}  // namespace sim
