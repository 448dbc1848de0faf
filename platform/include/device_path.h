// The phone's file tree. Messages show the device's own path; opening goes through here.
#pragma once

#include <string>

// `path` as it is to be opened on this machine (TOVI_DEVICE_ROOT in front).
std::string velmor_device_path(const char* path);

// The same for a port of the modem, "/dev/...". Where the modem is one inside this process, it
// makes its ports now.
std::string velmor_device_port(const char* path);
