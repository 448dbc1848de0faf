// Waits for what other processes hold.
#pragma once

#include <functional>

#include "timing.h"

namespace retry {

// From now on a descriptor that polls readable ends all such waits of the process early.
void end_when_readable(int descriptor);

// Calls `attempt` every few milliseconds until it gives true. False when it has not by `deadline`.
bool until(timing::Deadline deadline, const std::function<bool()>& attempt);

}  // namespace retry
