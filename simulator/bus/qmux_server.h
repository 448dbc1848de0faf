// Serves a simulated modem as one behind a character device: QMUX frames on a pseudo-terminal, for
// one program at a time. The services whose number has 8 bits are there.
#pragma once

#include <deque>
#include <map>
#include <set>

#include "linked_terminal.h"
#include "network.h"
#include "qcci/qmux_frame.h"

namespace sim {

class QmuxServer final : public Network {
 public:
  QmuxServer(Modem& modem, Behaviour behaviour) : Network(modem, std::move(behaviour)) {}

  // Makes the device, with a link to it. False, with `problem` in words, when that fails.
  bool listen(const std::string& link, std::string& problem) EXCLUDES(lock_);

  // Serves until `stop_descriptor` polls readable.
  void run(int stop_descriptor) EXCLUDES(lock_);

  // Takes the next bytes that came over the device.
  void take(std::span<const uint8_t> bytes) EXCLUDES(lock_);

 private:
  using Bytes = std::vector<uint8_t>;

  void publish(Running& running) override REQUIRES(lock_);
  void withdraw(Running& running) override REQUIRES(lock_);
  void deliver(Running& running, qmi::Address client, std::span<const uint8_t> packet) override
      REQUIRES(lock_);

  void take(const qmi::qmux::Frame& frame) REQUIRES(lock_);
  void control(const qmi::qmux::ControlMessage& request) REQUIRES(lock_);
  uint16_t carry_out(const qmi::qmux::ControlMessage& request, Bytes& answer) REQUIRES(lock_);
  uint16_t allocate(std::span<const uint8_t> whose, Bytes& answer) REQUIRES(lock_);
  uint16_t release(std::span<const uint8_t> whose, Bytes& answer) REQUIRES(lock_);
  Bytes versions() REQUIRES(lock_);
  void revoke_all() REQUIRES(lock_);
  Running* find_running(uint8_t service) REQUIRES(lock_);
  bool is_down() REQUIRES(lock_);
  void send(Bytes frame) REQUIRES(lock_);
  void send_waiting() REQUIRES(lock_);

  LinkedTerminal terminal_;
  qmi::qmux::FrameReader reader_ GUARDED_BY(lock_){qmi::qmux::Sender::Host};
  // A client's address: its service as node, its id as port.
  std::set<qmi::Address> clients_ GUARDED_BY(lock_);
  std::map<uint8_t, uint8_t> last_ids_ GUARDED_BY(lock_);  // by service
  std::deque<Bytes> waiting_ GUARDED_BY(lock_);            // frames; the first may be half sent
  bool has_been_down_ GUARDED_BY(lock_) = false;
  uint32_t next_port_ GUARDED_BY(lock_) = 1;
};

}  // namespace sim
