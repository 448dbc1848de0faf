// An endpoint over a SOCK_SEQPACKET connection to a simulated modem in another process. Every
// packet carries 8 bytes in front, node and port: the destination when sent, the source when
// received.
#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/uio.h>

#include <atomic>

#include "descriptor.h"
#include "environment.h"
#include "qcci/endpoint.h"
#include "qmi_client.h"
#include "unix_address.h"

namespace qmi {
namespace {

using std::chrono::microseconds;

constexpr uint32_t kNode = 1;
constexpr size_t kBufferBytes = sizeof(Address) + kMaxPacketBytes;

class UnixEndpoint final : public Endpoint {
 public:
  explicit UnixEndpoint(Descriptor socket)
      : socket_(std::move(socket)), buffer_(new uint8_t[kBufferBytes]) {}

  int send(Address to, std::span<const uint8_t> packet, timing::Deadline deadline) override {
    iovec parts[] = {{&to, sizeof to}, {const_cast<uint8_t*>(packet.data()), packet.size()}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    while (sendmsg(socket_.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
      if (errno != EAGAIN && errno != EINTR) return errno;
      if (timing::Clock::now() >= deadline) return ETIMEDOUT;
      pollfd room{socket_.get(), POLLOUT, 0};
      poll_until(&room, 1, deadline);
    }
    return 0;
  }

  Received receive(Address& source, std::span<const uint8_t>& packet,
                   timing::Deadline deadline) override {
    for (;;) {
      const bool waits = wait_until(deadline);
      const ssize_t n =
          recv(socket_.get(), buffer_.get(), kBufferBytes, MSG_TRUNC | (waits ? 0 : MSG_DONTWAIT));
      if (n == 0) return Received::Closed;
      if (n < 0) {
        if (errno == EAGAIN && !waits) return Received::TimedOut;
        if (errno != EAGAIN && errno != EINTR) return Received::Closed;
        continue;
      }
      const auto size = static_cast<size_t>(n);
      source = kNowhere;
      packet = {};
      if (size >= sizeof source && size <= kBufferBytes) {
        memcpy(&source, buffer_.get(), sizeof source);
        packet = {buffer_.get() + sizeof source, size - sizeof source};
      }
      return Received::Packet;
    }
  }

  void interrupt() override { shutdown(socket_.get(), SHUT_RD); }
  int descriptor() const override { return socket_.get(); }
  Address name_service() const override { return {kNode, kControlPort}; }

 private:
  // Makes the next receive wait until `deadline`; false when that has passed. The time-out is the
  // socket's own, which costs no call as long as requests with the same time-out follow each other.
  bool wait_until(timing::Deadline deadline) {
    constexpr microseconds kNear{1000};
    if (deadline == timing::kPast) return false;
    microseconds left{0};  // to the socket: without limit
    if (deadline != timing::kNever) {
      left = std::chrono::ceil<microseconds>(deadline - timing::Clock::now());
      if (left <= microseconds{0}) return false;
    }
    const bool same = left == time_out_ || (left < time_out_ && time_out_ - left < kNear);
    if (same && (left > kNear || left == time_out_)) return true;
    time_out_ = left;
    const timeval limit{static_cast<time_t>(left.count() / 1'000'000),
                        static_cast<suseconds_t>(left.count() % 1'000'000)};
    setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    return true;
  }

  const Descriptor socket_;
  // Not cleared: of 64 KiB only the pages that packets reach are ever touched.
  const std::unique_ptr<uint8_t[]> buffer_;
  microseconds time_out_{0};  // belongs to the one thread inside `receive`
};

const char* reason(const std::string& path, int error) {
  struct stat status {};
  switch (error) {
    case ENOENT: return "no such socket";
    case EAGAIN: return "no answer";
    case ECONNREFUSED:
      if (stat(path.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode)) return "not a socket";
      return "nobody serves there";
    default: return strerror(error);
  }
}

Opened refuse(const std::string& path, int error, qmi_client_error_type result) {
  static std::atomic_flag said;
  environment::complain_once(said, "TOVI_MODEM=unix:%s: %s", path.c_str(), reason(path, error));
  return {nullptr, result};
}

}  // namespace

Opened open_unix_endpoint(const std::string& path, timing::Deadline deadline) {
  Descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (!socket) return refuse(path, errno, QMI_PORT_NOT_OPEN_ERR);
  const int error = connect_unix_until(socket.get(), path, deadline);
  if (error != 0) return refuse(path, error, QMI_SERVICE_ERR);
  return {std::make_unique<UnixEndpoint>(std::move(socket)), 0};
}

}  // namespace qmi
