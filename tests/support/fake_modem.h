// A modem for tests that says exactly what a test tells it to, byte for byte, at a unix socket.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "descriptor.h"
#include "mutex.h"
#include "qcci/packet.h"

namespace testing_support {

using Bytes = std::vector<uint8_t>;
using Replies = std::vector<Bytes>;

// "00 01ff" to bytes; blanks do not count.
Bytes bytes(const std::string& hex);
std::string hex(std::span<const uint8_t> bytes);

// A QMI packet: header and body.
Bytes packet(qmi::Kind kind, uint16_t transaction, uint16_t message, const Bytes& body);

class FakeModem {
 public:
  // What to send back for one request packet, in this order.
  using Handler = std::function<Replies(const Bytes& request)>;

  explicit FakeModem(std::string path) : path_(std::move(path)) { start(); }
  ~FakeModem() { stop(); }

  // Listens, or hangs up on everybody.
  void start();
  void stop();

  // Announces or withdraws a server of a service; `instance` is the whole word of the lookup.
  void add_service(uint32_t service, uint32_t port, uint32_t instance = 1);
  void remove_service(uint32_t port);

  void on_request(Handler handler);
  // Lookups that were not answered get their end markers, late, before the next answer.
  void answer_lookups(bool yes);

  // Sends everybody what is no packet, too short and too long, as fast as it is taken.
  void flood() { floods_ = true; }

  // Sends a packet from a service's port to everybody who has sent it a request.
  void send(uint32_t port, const Bytes& packet);

  // The requests that came so far.
  std::vector<Bytes> requests();

 private:
  struct Server {
    uint32_t service;
    uint32_t instance;
  };
  struct Connection {
    qmi::Descriptor socket;
    std::vector<uint32_t> lookups;
    int owed_markers = 0;
    std::vector<uint32_t> talked_to;  // ports
  };

  void run();
  void receive(Connection& connection);
  void lookup(Connection& connection, uint32_t service) REQUIRES(lock_);
  void announce(qmi::Control command, uint32_t port, const Server& server) REQUIRES(lock_);

  const std::string path_;
  std::thread thread_;
  qmi::WakeEvent stop_;
  qmi::Descriptor listener_;
  std::atomic<bool> floods_ = false;

  Mutex lock_;
  std::map<uint32_t, Server> servers_ GUARDED_BY(lock_);  // by port
  std::vector<std::unique_ptr<Connection>> connections_ GUARDED_BY(lock_);
  Handler handler_ GUARDED_BY(lock_);
  bool answer_lookups_ GUARDED_BY(lock_) = true;
  std::vector<Bytes> requests_ GUARDED_BY(lock_);
};

}  // namespace testing_support
