#include "unix_address.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
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

int connect_unix_until(int socket, const std::string& path, timing::Deadline deadline) {
  using std::chrono::microseconds;
  const auto left = std::chrono::ceil<microseconds>(deadline - timing::Clock::now());
  if (left <= microseconds{0}) {  // as a time-out, 0 would be no limit, and 1 some milliseconds
    fcntl(socket, F_SETFL, O_NONBLOCK);
    const int error = connect_unix(socket, path);
    fcntl(socket, F_SETFL, 0);
    return error;
  }
  const timeval limit{static_cast<time_t>(left.count() / 1'000'000),
                      static_cast<suseconds_t>(left.count() % 1'000'000)};
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  return connect_unix(socket, path);
}
