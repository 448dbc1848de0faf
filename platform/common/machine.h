// What a host and a device do differently, besides the system log and the properties.
#pragma once

#include <string>

namespace machine {

// What an unset TOVI_MODEM means.
extern const char* const kModem;

// Whether TOVI_TIME_SCALE is looked at.
extern const bool kScalesTime;

// What an unset TOVI_DEVICE_ROOT means.
std::string device_root();

// Connects `socket` to the diag router. 0, or an errno value: ECONNREFUSED when none runs.
int connect_diag_router(int socket);

}  // namespace machine
