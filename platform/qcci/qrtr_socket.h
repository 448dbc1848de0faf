// A datagram socket of the kernel's QRTR: one port on the phone's packet network.
#pragma once

#include <sys/types.h>

#include <span>

#include "descriptor.h"
#include "qcci/packet.h"

namespace qmi {

class QrtrSocket {
 public:
  // Opens a socket on a free port. False, with errno set, when the kernel refuses; EAFNOSUPPORT
  // means that it has no QRTR.
  bool open();

  int descriptor() const { return socket_.get(); }

  // The name service of the socket's own node.
  Address name_service() const { return {node_, kControlPort}; }

  // One send that does not wait. 0, or an errno value: EAGAIN when the receiver is full (the
  // socket polls writable all the same), ENODEV when nobody owns a local port.
  int send(Address to, std::span<const uint8_t> packet) const;

  // One receive that does not wait. The packet's size, cut to the buffer's; -1 with errno set.
  ssize_t receive(Address& source, std::span<uint8_t> buffer) const;

 private:
  Descriptor socket_;
  uint32_t node_ = 0;
};

}  // namespace qmi
