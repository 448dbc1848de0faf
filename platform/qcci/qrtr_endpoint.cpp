// An endpoint on the kernel's QRTR: a real modem, or a simulated one that serves there.
#include <errno.h>
#include <string.h>

#include "environment.h"
#include "qcci/qrtr_socket.h"
#include "qcci/socket_endpoint.h"
#include "qmi_client.h"

namespace qmi {
namespace {

class QrtrEndpoint final : public SocketEndpoint {
 public:
  explicit QrtrEndpoint(QrtrSocket socket)
      : socket_(std::move(socket)), buffer_(new uint8_t[kMaxPacketBytes]) {}

  int descriptor() const override { return socket_.descriptor(); }
  Address name_service() const override { return socket_.name_service(); }

 private:
  int try_send(Address to, std::span<const uint8_t> packet) override {
    return socket_.send(to, packet);
  }

  // A full receiver is not seen by poll.
  void wait_for_room(timing::Deadline) override { timing::sleep_ms(1); }

  Taken try_receive(Address& source, std::span<const uint8_t>& packet) override {
    const ssize_t n = socket_.receive(source, {buffer_.get(), kMaxPacketBytes});
    if (n < 0) return errno == EAGAIN || errno == EINTR ? Taken::Nothing : Taken::Closed;
    packet = {buffer_.get(), static_cast<size_t>(n)};
    return Taken::Packet;
  }

  const QrtrSocket socket_;
  // Not cleared: of 64 KiB only the pages that packets reach are ever touched.
  const std::unique_ptr<uint8_t[]> buffer_;
};

void say_once(int error) {
  static const bool said = [error] {
    environment::complain(error == EAFNOSUPPORT ? "TOVI_MODEM=qrtr: this kernel has no QRTR (%s)"
                                                : "TOVI_MODEM=qrtr: %s",
                          strerror(error));
    return true;
  }();
  (void)said;
}

}  // namespace

Opened open_qrtr_endpoint() {
  QrtrSocket socket;
  if (!socket.open()) {
    say_once(errno);
    return {nullptr, QMI_PORT_NOT_OPEN_ERR};
  }
  return {std::make_unique<QrtrEndpoint>(std::move(socket)), 0};
}

}  // namespace qmi
