// Names of unix sockets.
#pragma once

#include <string>

struct sockaddr_un;

// The address of `path`; false for a path that is empty or too long to be a socket's.
bool make_unix_address(const std::string& path, sockaddr_un& address);

// Connects `socket` to the one at `path`. 0, or an errno value: EINVAL for a path that is no
// socket's.
int connect_unix(int socket, const std::string& path);
