#include "unix_address.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

bool make_unix_address(const std::string& path, sockaddr_un& address) {
  address = {};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path) return false;
  memcpy(address.sun_path, path.data(), path.size());
  return true;
}

int connect_unix(int socket, const std::string& path) {
  sockaddr_un address;
  if (!make_unix_address(path, address)) return EINVAL;
  const auto* name = reinterpret_cast<const sockaddr*>(&address);
  return connect(socket, name, sizeof address) == 0 ? 0 : errno;
}
