#include "velmor_diag.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include "device_path.h"
#include "qcci/descriptor.h"
#include "timing.h"
#include "unix_address.h"

namespace {

constexpr const char* kPort = "/dev/diag";

constexpr unsigned int kSendMs = 1000;  // where no time-out is given

// The port, with the command sent to it before `deadline`; no descriptor on failure.
qmi::Descriptor send_command(const unsigned char* cmd, unsigned int cmd_len,
                             timing::Deadline deadline) {
  qmi::Descriptor port(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const std::string path = velmor_device_port(kPort);
  const auto in_time = [&] { return timing::Clock::now() < deadline; };
  int error;
  while ((error = connect_unix(port.get(), path)) == EAGAIN && in_time()) {
    usleep(1000);  // too many clients are waiting to be let in
  }
  if (error != 0) return qmi::Descriptor();
  while (send(port.get(), cmd, cmd_len, MSG_NOSIGNAL) < 0) {
    if (errno != EAGAIN || !in_time()) return qmi::Descriptor();
    pollfd room{port.get(), POLLOUT, 0};
    qmi::poll_until(&room, 1, deadline);
  }
  return port;
}

int send_with_result(const unsigned char* cmd, unsigned int cmd_len, unsigned int time_out_ms,
                     unsigned char* rsp, unsigned int* rsp_len) {
  const qmi::Descriptor port = send_command(cmd, cmd_len, timing::peer_deadline(time_out_ms));
  if (!port || !timing::wait_readable(port.get(), time_out_ms)) return -1;
  const ssize_t n = recv(port.get(), rsp, *rsp_len, 0);
  if (n <= 0) return -1;
  *rsp_len = static_cast<unsigned int>(n);
  return 0;
}

int send_without_result(const unsigned char* cmd, unsigned int cmd_len) {
  return send_command(cmd, cmd_len, timing::peer_deadline(kSendMs)) ? 0 : -1;
}

}  // namespace

int velmor_diag_cmd_send_with_result_by_callback_mode(const unsigned char* cmd,
                                                      unsigned int cmd_len,
                                                      unsigned int time_out_ms, unsigned char* rsp,
                                                      unsigned int* rsp_len) {
  return send_with_result(cmd, cmd_len, time_out_ms, rsp, rsp_len);
}

int velmor_diag_cmd_send_with_result_by_dci_mode(const unsigned char* cmd, unsigned int cmd_len,
                                                 unsigned int time_out_ms, unsigned char* rsp,
                                                 unsigned int* rsp_len) {
  return send_with_result(cmd, cmd_len, time_out_ms, rsp, rsp_len);
}

int velmor_diag_cmd_send_without_result_by_callback_mode(const unsigned char* cmd,
                                                         unsigned int cmd_len) {
  return send_without_result(cmd, cmd_len);
}

int velmor_diag_cmd_send_without_result_by_dci_mode(const unsigned char* cmd,
                                                    unsigned int cmd_len) {
  return send_without_result(cmd, cmd_len);
}
