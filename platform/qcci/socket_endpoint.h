// What the endpoints made of a socket have in common: waiting for packets and for room.
#pragma once

#include <sys/types.h>

#include "qcci/descriptor.h"
#include "qcci/endpoint.h"

namespace qmi {

class SocketEndpoint : public Endpoint {
 public:
  int send(Address to, std::span<const uint8_t> packet, timing::Deadline deadline) final;
  Received receive(Address& source, std::span<const uint8_t>& packet,
                   timing::Deadline deadline) final;
  void interrupt() final { wake_.set(); }

 protected:
  enum class Taken { Packet, Dropped, Nothing, Closed };

  // One send that does not wait: 0, EAGAIN when the receiver is full, or another errno value.
  virtual int try_send(Address to, std::span<const uint8_t> packet) = 0;

  // One receive that does not wait.
  virtual Taken try_receive(Address& source, std::span<const uint8_t>& packet) = 0;

  // Waits until another send may work.
  virtual void wait_for_room(timing::Deadline deadline);

 private:
  WakeEvent wake_;
};

}  // namespace qmi
