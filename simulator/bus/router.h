// The packet network behind the loopback endpoint and the unix server: hands out ports, answers
// lookups, and carries packets between clients and services.
//
// Clients are on node 1, which also has the name service; the modem's services are on node 0.
#pragma once

#include <map>

#include "network.h"

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

class Router final : public Network {
 public:
  Router(Modem& modem, Behaviour behaviour);

  // Gives `peer` a port, from 0x4000 on in order; it stays the caller's until it is detached.
  uint32_t attach(Peer& peer) EXCLUDES(lock_);

  // Takes the port back. Nothing is delivered to its peer any more.
  void detach(uint32_t port) EXCLUDES(lock_);

  // Carries a client's packet; one to nobody is lost.
  void send(uint32_t from_port, qmi::Address to, std::span<const uint8_t> packet) EXCLUDES(lock_);

 private:
  struct Attached {
    Peer* peer;
    std::vector<uint32_t> lookups;  // service ids; 0 is any
  };

  void publish(Running& running) override REQUIRES(lock_);
  void withdraw(Running& running) override REQUIRES(lock_);
  void deliver(Running& running, qmi::Address client, std::span<const uint8_t> packet) override
      REQUIRES(lock_);

  void control(Attached& client, std::span<const uint8_t> bytes) REQUIRES(lock_);
  void tell(const Attached& client, qmi::Control command, const Running& running) REQUIRES(lock_);
  void tell_watchers(qmi::Control command, const Running& running) REQUIRES(lock_);

  std::map<uint32_t, Attached> clients_ GUARDED_BY(lock_);  // by port
  uint32_t next_client_port_ GUARDED_BY(lock_) = 0x4000;
  uint32_t next_service_port_ GUARDED_BY(lock_) = 1;
};

}  // namespace sim
