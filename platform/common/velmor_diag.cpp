#include "velmor_diag.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <span>
#include <vector>

#include "descriptor.h"
#include "device_path.h"
#include "machine.h"
#include "timing.h"
#include "unix_address.h"

namespace {

constexpr const char* kPort = "/dev/diag";

constexpr unsigned int kSendMs = 1000;  // where no time-out is given

using Packet = std::span<const unsigned char>;

int connect_port(int socket, const std::string& path) {
  const int error = machine::connect_diag_router(socket);
  return error == 0 || error == EAGAIN ? error : connect_unix(socket, path);
}

// The port, with the command sent to it before `deadline`; no descriptor on failure.
qmi::Descriptor send_command(Packet cmd, timing::Deadline deadline) {
  qmi::Descriptor port(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const std::string path = velmor_device_port(kPort);
  const auto in_time = [&] { return timing::Clock::now() < deadline; };
  int error;
  while ((error = connect_port(port.get(), path)) == EAGAIN && in_time()) {
    usleep(1000);  // too many clients are waiting to be let in
  }
  if (error != 0) return qmi::Descriptor();
  while (send(port.get(), cmd.data(), cmd.size(), MSG_NOSIGNAL) < 0) {
    if (errno != EAGAIN || !in_time()) return qmi::Descriptor();
    pollfd room{port.get(), POLLOUT, 0};
    qmi::poll_until(&room, 1, deadline);
  }
  return port;
}

enum : unsigned char {
  kBadCommand = 0x13,
  kBadParameters = 0x14,
  kBadLength = 0x15,
  kSubsystem = 0x4B,
  kSubsystemVersion2 = 0x80,
};

bool begins_with(Packet packet, Packet start) {
  return packet.size() >= start.size() && std::equal(start.begin(), start.end(), packet.begin());
}

// A modem's answer begins as its command does: with the code, and with a subsystem's number and
// command behind it. One that refuses holds the whole command behind its own code.
bool is_answer(Packet packet, Packet cmd) {
  const bool has_subsystem = cmd[0] == kSubsystem || cmd[0] == kSubsystemVersion2;
  const size_t same = std::min<size_t>(cmd.size(), has_subsystem ? 4 : 1);
  if (begins_with(packet, cmd.first(same))) return true;
  const bool is_refusal =
      packet[0] == kBadCommand || packet[0] == kBadParameters || packet[0] == kBadLength;
  return is_refusal && std::ranges::equal(packet.subspan(1), cmd);
}

// What the modem says goes to every client: answers to the others' commands, and what it logs.
int send_with_result(Packet cmd, unsigned int time_out_ms, unsigned char* rsp,
                     unsigned int* rsp_len) {
  if (cmd.empty()) return -1;
  const timing::Deadline deadline = timing::peer_deadline(time_out_ms);
  const qmi::Descriptor port = send_command(cmd, deadline);
  if (!port) return -1;
  std::vector<unsigned char> room(std::max<size_t>(*rsp_len, cmd.size() + 2));
  do {
    pollfd readable{port.get(), POLLIN, 0};
    if (qmi::poll_until(&readable, 1, deadline) != 1) return -1;
    const ssize_t n = recv(port.get(), room.data(), room.size(), 0);
    if (n <= 0) return -1;
    const Packet packet = Packet(room).first(static_cast<size_t>(n));
    if (is_answer(packet, cmd)) {
      *rsp_len = static_cast<unsigned int>(std::min<size_t>(packet.size(), *rsp_len));
      memcpy(rsp, packet.data(), *rsp_len);
      return 0;
    }
  } while (timing::Clock::now() < deadline);
  return -1;
}

int send_without_result(Packet cmd) {
  return send_command(cmd, timing::peer_deadline(kSendMs)) ? 0 : -1;
}

}  // namespace

int velmor_diag_cmd_send_with_result_by_callback_mode(const unsigned char* cmd,
                                                      unsigned int cmd_len,
                                                      unsigned int time_out_ms, unsigned char* rsp,
                                                      unsigned int* rsp_len) {
  return send_with_result({cmd, cmd_len}, time_out_ms, rsp, rsp_len);
}

int velmor_diag_cmd_send_with_result_by_dci_mode(const unsigned char* cmd, unsigned int cmd_len,
                                                 unsigned int time_out_ms, unsigned char* rsp,
                                                 unsigned int* rsp_len) {
  return send_with_result({cmd, cmd_len}, time_out_ms, rsp, rsp_len);
}

int velmor_diag_cmd_send_without_result_by_callback_mode(const unsigned char* cmd,
                                                         unsigned int cmd_len) {
  return send_without_result({cmd, cmd_len});
}

int velmor_diag_cmd_send_without_result_by_dci_mode(const unsigned char* cmd,
                                                    unsigned int cmd_len) {
  return send_without_result({cmd, cmd_len});
}
