#include "qcci/qrtr_socket.h"

#include <errno.h>
#include <sys/socket.h>
// After sys/socket.h, which it needs.
#include <linux/qrtr.h>

namespace qmi {
namespace {

sockaddr_qrtr socket_address(Address address) {
  sockaddr_qrtr out{};
  out.sq_family = AF_QIPCRTR;
  out.sq_node = address.node;
  out.sq_port = address.port;
  return out;
}

}  // namespace

bool QrtrSocket::open() {
  socket_ = Descriptor(socket(AF_QIPCRTR, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_qrtr own{};
  socklen_t size = sizeof own;
  if (!socket_ || getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&own), &size) != 0) {
    return false;
  }
  node_ = own.sq_node;
  return true;
}

int QrtrSocket::send(Address to, std::span<const uint8_t> packet) const {
  const sockaddr_qrtr address = socket_address(to);
  // Any other flag is refused.
  if (sendto(socket_.get(), packet.data(), packet.size(), MSG_DONTWAIT,
             reinterpret_cast<const sockaddr*>(&address), sizeof address) >= 0) {
    return 0;
  }
  return errno == ENOSPC || errno == EINTR ? EAGAIN : errno;
}

ssize_t QrtrSocket::receive(Address& source, std::span<uint8_t> buffer) const {
  sockaddr_qrtr address{};
  socklen_t size = sizeof address;
  const ssize_t n = recvfrom(socket_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT,
                             reinterpret_cast<sockaddr*>(&address), &size);
  const bool known = size == sizeof address && address.sq_family == AF_QIPCRTR;
  source = known ? Address{address.sq_node, address.sq_port} : kNowhere;
  return n;
}

}  // namespace qmi
