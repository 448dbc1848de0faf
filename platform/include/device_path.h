// The phone's file tree. Messages show the device's own path; opening goes through here.
#pragma once

#include <string>

// `path` as it is to be opened on this machine (TOVI_DEVICE_ROOT in front). A modem inside this
// process makes its state folder, which holds the tree, now.
std::string velmor_device_path(const char* path);

// The same for a port of the modem, "/dev/..."; a modem inside this process makes its ports now.
std::string velmor_device_port(const char* path);
