// Names of unix sockets.
#pragma once

#include <string>

#include "timing.h"

struct sockaddr_un;

// The address of `path`; false for a path that is empty or too long to be a socket's.
bool make_unix_address(const std::string& path, sockaddr_un& address);

// Connects `socket` to the one at `path`. 0, or an errno value: EINVAL for a path that is no
// socket's.
int connect_unix(int socket, const std::string& path);

// The same, but not for longer than until `deadline` where the other side has no room for one more:
// EAGAIN then. `socket` blocks, and its sends will wait no longer than this did.
int connect_unix_until(int socket, const std::string& path, timing::Deadline deadline);
