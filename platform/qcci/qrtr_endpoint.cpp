// An endpoint on the kernel's QRTR: a real modem, or a simulated one that serves there.
#include <errno.h>
#include <string.h>

#include "environment.h"
#include "qcci/endpoint.h"
#include "qcci/qrtr_socket.h"
#include "qmi_client.h"

namespace qmi {
namespace {

class QrtrEndpoint final : public Endpoint {
 public:
  explicit QrtrEndpoint(QrtrSocket socket)
      : socket_(std::move(socket)), buffer_(new uint8_t[kMaxPacketBytes]) {}

  int send(Address to, std::span<const uint8_t> packet, timing::Deadline deadline) override {
    for (;;) {
      const int error = socket_.send(to, packet);
      if (error == ENETRESET) interrupt();  // it will not be said again to whoever receives
      if (error != EAGAIN) return error;
      if (timing::Clock::now() >= deadline) return ETIMEDOUT;
      timing::sleep_ms(1);  // that the receiver has room again is not seen by poll
    }
  }

  Received receive(Address& source, std::span<const uint8_t>& packet,
                   timing::Deadline deadline) override {
    bool interrupted = false;
    for (bool waits = deadline > timing::Clock::now();;) {
      if (waits) {
        pollfd fds[] = {{socket_.descriptor(), POLLIN, 0}, {interrupted_.descriptor(), POLLIN, 0}};
        waits = poll_until(fds, 2, deadline) != 0;
        interrupted = fds[1].revents != 0;
      }
      const ssize_t n = socket_.receive(source, {buffer_.get(), kMaxPacketBytes});
      if (n >= 0) {
        packet = {buffer_.get(), static_cast<size_t>(n)};
        return Received::Packet;
      }
      if (interrupted || (errno != EAGAIN && errno != EINTR)) return Received::Closed;
      if (!waits) return Received::TimedOut;
    }
  }

  void interrupt() override { interrupted_.set(); }
  int descriptor() const override { return socket_.descriptor(); }
  Address name_service() const override { return socket_.name_service(); }

 private:
  const QrtrSocket socket_;
  WakeEvent interrupted_;
  // Not cleared: of 64 KiB only the pages that packets reach are ever touched.
  const std::unique_ptr<uint8_t[]> buffer_;
};

}  // namespace

Opened open_qrtr_endpoint() {
  QrtrSocket socket;
  if (!socket.open()) {
    const int error = errno;
    static std::atomic_flag said;
    environment::complain_once(said,
                               error == EAFNOSUPPORT
                                   ? "TOVI_MODEM=qrtr: this kernel has no QRTR (%s)"
                                   : "TOVI_MODEM=qrtr: %s",
                               strerror(error));
    return {nullptr, QMI_PORT_NOT_OPEN_ERR};
  }
  return {std::make_unique<QrtrEndpoint>(std::move(socket)), 0};
}

}  // namespace qmi
