// The device tree of a simulated modem in this process, and its state folder: defined by the
// simulator; a device build has stubs that do nothing. What goes wrong while the device is opened
// is said once on standard error.
#pragma once

#include <string>

// Whether `folder` may be written into: it holds a modem's state, or nothing yet. False, with
// `problem` in words, for one of somebody's own or of another version.
bool is_simulated_state(const std::string& folder, std::string& problem);

// Sees to it that the device tree is there.
void open_simulated_device();

// Sees to it that the modem's ports are in it and are served.
void open_simulated_ports();
