#include "qcci/socket_endpoint.h"

#include <errno.h>

namespace qmi {

int SocketEndpoint::send(Address to, std::span<const uint8_t> packet, timing::Deadline deadline) {
  for (;;) {
    const int error = try_send(to, packet);
    if (error != EAGAIN) return error;
    if (timing::Clock::now() >= deadline) return ETIMEDOUT;
    wait_for_room(deadline);
  }
}

void SocketEndpoint::wait_for_room(timing::Deadline deadline) {
  pollfd room{descriptor(), POLLOUT, 0};
  poll_until(&room, 1, deadline);
}

Endpoint::Received SocketEndpoint::receive(Address& source, std::span<const uint8_t>& packet,
                                           timing::Deadline deadline) {
  bool may_wait = deadline > timing::Clock::now();
  for (;;) {
    if (may_wait) {
      pollfd fds[] = {{descriptor(), POLLIN, 0}, {wake_.descriptor(), POLLIN, 0}};
      const int ready = poll_until(fds, 2, deadline);
      if (ready < 0 && errno == EINTR) continue;
      if (fds[1].revents != 0) {
        wake_.clear();
        return Received::Interrupted;
      }
      if (ready <= 0) may_wait = false;
    }
    switch (try_receive(source, packet)) {
      case Taken::Packet: return Received::Packet;
      case Taken::Closed: return Received::Closed;
      case Taken::Dropped: break;
      case Taken::Nothing:
        if (!may_wait) return Received::TimedOut;
        break;
    }
  }
}

}  // namespace qmi
