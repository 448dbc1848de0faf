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
  int descriptor() const final { return socket_.get(); }

 protected:
  enum class Taken { Packet, Dropped, Nothing, Closed };

  explicit SocketEndpoint(Descriptor socket) : socket_(std::move(socket)) {}

  // One send that does not wait: 0, EAGAIN when the receiver is full, or another errno value.
  virtual int try_send(Address to, std::span<const uint8_t> packet) = 0;

  // One receive that does not wait.
  virtual Taken try_receive(Address& source, std::span<const uint8_t>& packet) = 0;

 private:
  Descriptor socket_;
  WakeEvent wake_;
};

}  // namespace qmi
