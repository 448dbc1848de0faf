// The device tree of a simulated modem in this process: defined by the simulator; a device build
// has stubs that do nothing. What goes wrong is said once on standard error.
#pragma once

// Sees to it that the device tree is there.
void open_simulated_device();

// Sees to it that the modem's ports are in it and are served.
void open_simulated_ports();
