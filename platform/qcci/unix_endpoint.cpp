// An endpoint over a SOCK_SEQPACKET connection to a simulated modem in another process. Every
// packet carries 8 bytes in front, node and port: the destination when sent, the source when
// received.
#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>

#include "qcci/socket_endpoint.h"
#include "qmi_client.h"

namespace qmi {
namespace {

constexpr uint32_t kNode = 1;
constexpr size_t kBufferBytes = sizeof(Address) + kMaxPacketBytes;

class UnixEndpoint final : public SocketEndpoint {
 public:
  explicit UnixEndpoint(Descriptor socket)
      : socket_(std::move(socket)), buffer_(new uint8_t[kBufferBytes]) {}

  int descriptor() const override { return socket_.get(); }
  Address name_service() const override { return {kNode, kControlPort}; }

 private:
  int try_send(Address to, std::span<const uint8_t> packet) override {
    iovec parts[] = {{&to, sizeof to}, {const_cast<uint8_t*>(packet.data()), packet.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    if (sendmsg(socket_.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) return 0;
    return errno == EINTR ? EAGAIN : errno;
  }

  Taken try_receive(Address& source, std::span<const uint8_t>& packet) override {
    const ssize_t n = recv(socket_.get(), buffer_.get(), kBufferBytes, MSG_DONTWAIT | MSG_TRUNC);
    if (n < 0) return errno == EAGAIN || errno == EINTR ? Taken::Nothing : Taken::Closed;
    if (n == 0) return Taken::Closed;
    const auto size = static_cast<size_t>(n);
    if (size < sizeof source || size > kBufferBytes) return Taken::Dropped;
    memcpy(&source, buffer_.get(), sizeof source);
    packet = {buffer_.get() + sizeof source, size - sizeof source};
    return Taken::Packet;
  }

  const Descriptor socket_;
  // Not cleared: of 64 KiB only the pages that packets reach are ever touched.
  const std::unique_ptr<uint8_t[]> buffer_;
};

}  // namespace

Opened open_unix_endpoint(const char* path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const size_t length = strlen(path);
  if (length >= sizeof address.sun_path) return {nullptr, QMI_PORT_NOT_OPEN_ERR};
  memcpy(address.sun_path, path, length);
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (!socket) return {nullptr, QMI_PORT_NOT_OPEN_ERR};
  if (connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    return {nullptr, QMI_SERVICE_ERR};
  }
  return {std::make_unique<UnixEndpoint>(std::move(socket)), 0};
}

}  // namespace qmi
