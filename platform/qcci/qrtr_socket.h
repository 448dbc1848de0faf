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

  // One send that does not wait, but for a receiver on another node that has ten packets of this
  // socket unread: the kernel lets nothing end that wait but the receiver, its end or a signal. 0,
  // or an errno value: EAGAIN when the receiver is full (the socket polls writable all the same),
  // ENODEV when nobody owns a local port, ENETRESET as in `receive`.
  int send(Address to, std::span<const uint8_t> packet) const;

  // One receive that does not wait. The packet's size, cut to the buffer's; -1 with errno set.
  // ENETRESET is said once, to either call: a new name service runs, which does not know of this
  // socket.
  ssize_t receive(Address& source, std::span<uint8_t> buffer) const;

 private:
  Descriptor socket_;
  uint32_t node_ = 0;
};

}  // namespace qmi
