// The ports of a simulated modem in this process: defined by the simulator; a device build has a
// stub that does nothing.
#pragma once

// Sees to it that the modem's ports are in the state folder's device tree and are served. At the
// first call only; what goes wrong is said on standard error.
void open_simulated_ports();
