#include "accept_client.h"

#include <errno.h>
#include <sys/resource.h>
#include <sys/socket.h>

namespace sim {
namespace {

constexpr rlim_t kOwnDescriptors = 8;  // what requests and the ports use at once, with room

// The lowest free descriptor is given out first, so a high one tells that few are left.
bool is_one_of_the_last(int descriptor) {
  rlimit limit{};
  return getrlimit(RLIMIT_NOFILE, &limit) == 0 &&
         static_cast<rlim_t>(descriptor) + kOwnDescriptors >= limit.rlim_cur;
}

}  // namespace

qmi::Descriptor accept_client(int listener, int flags) {
  qmi::Descriptor client(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | flags));
  if (client && !is_one_of_the_last(client.get())) return client;
  const bool try_later = !client && errno != ECONNABORTED && errno != EINTR && errno != EWOULDBLOCK;
  if (!try_later) {
    client = qmi::Descriptor();
    errno = EAGAIN;
  }
  return client;
}

}  // namespace sim
