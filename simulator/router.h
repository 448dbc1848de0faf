// The packet network of the simulated modem: hands out ports, answers lookups, and carries packets
// between clients and services. It stands behind the loopback endpoint and the unix server.
//
// Clients are on node 1, which also has the name service; the modem's services are on node 0.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "mutex.h"
#include "service.h"

namespace sim {

inline constexpr uint32_t kClientNode = 1;
inline constexpr uint32_t kModemNode = 0;

// A client's end of the network.
class Peer {
 public:
  virtual ~Peer() = default;

  // Takes a packet for this client. Called with the router's lock held, so it must not call the
  // router.
  virtual void deliver(qmi::Address source, std::span<const uint8_t> packet) = 0;
};

class Router {
 public:
  explicit Router(std::vector<std::unique_ptr<Service>> services);

  // Gives `peer` a port, from 0x4000 on in order; it stays the caller's until it is detached.
  uint32_t attach(Peer& peer) EXCLUDES(lock_);

  // Takes the port back. Nothing is delivered to its peer any more.
  void detach(uint32_t port) EXCLUDES(lock_);

  // Carries a client's packet; one to nobody is lost.
  void send(uint32_t from_port, qmi::Address to, std::span<const uint8_t> packet) EXCLUDES(lock_);

 private:
  struct Running {
    std::unique_ptr<Service> service;
    uint32_t port;
  };
  struct Attached {
    Peer* peer;
    std::vector<uint32_t> lookups;  // service ids; 0 is any
  };

  void control(Attached& client, std::span<const uint8_t> bytes) REQUIRES(lock_);

  Mutex lock_;  // of the network and of the whole modem behind it
  std::vector<Running> services_ GUARDED_BY(lock_);
  std::map<uint32_t, Attached> clients_ GUARDED_BY(lock_);
  uint32_t next_client_port_ GUARDED_BY(lock_) = 0x4000;
};

// Everything the simulated modem offers, over one state.
class Modem;
std::vector<std::unique_ptr<Service>> make_services(Modem& modem);

}  // namespace sim
