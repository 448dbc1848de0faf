// Serves a simulated modem on the kernel's QRTR. The kernel is the network and the name service;
// each service has a socket, and so a port, of its own.
#pragma once

#include <deque>
#include <map>
#include <set>

#include "network.h"
#include "qcci/qrtr_socket.h"

namespace sim {

class QrtrServer final : public Network {
 public:
  QrtrServer(Modem& modem, Behaviour behaviour) : Network(modem, std::move(behaviour)) {}

  // Registers the services. False, with `problem` in words, when the kernel refuses.
  bool listen(std::string& problem) EXCLUDES(lock_);

  // Serves until `stop_descriptor` polls readable.
  void run(int stop_descriptor) EXCLUDES(lock_);

 private:
  void publish(Running& running) override REQUIRES(lock_);
  void withdraw(Running& running) override REQUIRES(lock_);
  void deliver(Running& running, qmi::Address client, std::span<const uint8_t> packet) override
      REQUIRES(lock_);

  void receive(Running& running) REQUIRES(lock_);
  int send(uint32_t service, qmi::Address to, std::span<const uint8_t> packet) REQUIRES(lock_);
  void send_waiting() REQUIRES(lock_);

  struct Waiting {
    uint32_t service;
    qmi::Address client;
    std::vector<uint8_t> packet;
  };

  std::map<uint32_t, qmi::QrtrSocket> sockets_ GUARDED_BY(lock_);  // by service id
  std::deque<Waiting> waiting_ GUARDED_BY(lock_);                  // for clients that had no room
  std::set<uint32_t> forgotten_
      GUARDED_BY(lock_);  // services that a new name service does not know
  int registration_error_ GUARDED_BY(lock_) = 0;
  uint32_t next_port_ GUARDED_BY(lock_) = 1;
};

}  // namespace sim
