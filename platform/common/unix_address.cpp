#include "unix_address.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

#include <algorithm>

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
  // 0 would be no limit.
  const auto left =
      std::max(std::chrono::ceil<microseconds>(deadline - timing::Clock::now()), microseconds{1});
  const timeval limit{static_cast<time_t>(left.count() / 1'000'000),
                      static_cast<suseconds_t>(left.count() % 1'000'000)};
  setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  return connect_unix(socket, path);
}
