#include "velmor_diag.h"

#include <sys/socket.h>

#include "device_path.h"
#include "qcci/descriptor.h"
#include "timing.h"
#include "unix_address.h"

namespace {

constexpr const char* kPort = "/dev/diag";

// The port, with the command sent to it; no descriptor on failure.
qmi::Descriptor send_command(const unsigned char* cmd, unsigned int cmd_len) {
  qmi::Descriptor port(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
  if (connect_unix(port.get(), velmor_device_port(kPort)) != 0 ||
      send(port.get(), cmd, cmd_len, MSG_NOSIGNAL) != static_cast<ssize_t>(cmd_len)) {
    return qmi::Descriptor();
  }
  return port;
}

int send_with_result(const unsigned char* cmd, unsigned int cmd_len, unsigned int time_out_ms,
                     unsigned char* rsp, unsigned int* rsp_len) {
  const qmi::Descriptor port = send_command(cmd, cmd_len);
  if (!port) return -1;
  if (!timing::wait_readable(port.get(), time_out_ms)) return -1;
  const ssize_t n = recv(port.get(), rsp, *rsp_len, MSG_DONTWAIT);
  if (n <= 0) return -1;
  *rsp_len = static_cast<unsigned int>(n);
  return 0;
}

int send_without_result(const unsigned char* cmd, unsigned int cmd_len) {
  return send_command(cmd, cmd_len) ? 0 : -1;
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
