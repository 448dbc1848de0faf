// The endpoint whose other end is a simulated modem in the same process. A request is answered
// while it is being sent, on the sender's thread; the answer waits in the endpoint's inbox.
#include <deque>

#include "descriptor.h"
#include "device_ports.h"
#include "environment.h"
#include "modem.h"
#include "mutex.h"
#include "qcci/endpoint.h"
#include "qmi_client.h"
#include "router.h"
#include "simulated_device.h"

namespace sim {
namespace {

class LoopbackEndpoint final : public qmi::Endpoint, private Peer {
 public:
  explicit LoopbackEndpoint(Router& router) : router_(router), port_(router.attach(*this)) {}
  ~LoopbackEndpoint() override { router_.detach(port_); }

  int send(qmi::Address to, std::span<const uint8_t> packet, timing::Deadline) override {
    router_.send(port_, to, packet);
    return 0;
  }

  Received receive(qmi::Address& source, std::span<const uint8_t>& packet,
                   timing::Deadline deadline) override EXCLUDES(lock_) {
    bool interrupted = false;
    for (bool may_wait = true;;) {
      if (take(source, packet)) return Received::Packet;
      if (interrupted) return Received::Closed;
      if (!may_wait || timing::Clock::now() >= deadline) return Received::TimedOut;
      pollfd fds[] = {{arrived_.descriptor(), POLLIN, 0}, {interrupted_.descriptor(), POLLIN, 0}};
      may_wait = qmi::poll_until(fds, 2, deadline) != 0;
      interrupted = fds[1].revents != 0;
    }
  }

  void interrupt() override { interrupted_.set(); }
  int descriptor() const override { return arrived_.descriptor(); }
  qmi::Address name_service() const override { return {kClientNode, qmi::kControlPort}; }

 private:
  struct Packet {
    qmi::Address source;
    std::vector<uint8_t> bytes;
  };

  void deliver(qmi::Address source, std::span<const uint8_t> packet) override EXCLUDES(lock_) {
    MutexLock hold(lock_);
    if (inbox_.empty()) arrived_.set();
    inbox_.push_back({source, {packet.begin(), packet.end()}});
  }

  bool take(qmi::Address& source, std::span<const uint8_t>& packet) EXCLUDES(lock_) {
    MutexLock hold(lock_);
    if (inbox_.empty()) return false;
    current_ = std::move(inbox_.front());
    inbox_.pop_front();
    if (inbox_.empty()) arrived_.clear();
    source = current_.source;
    packet = current_.bytes;
    return true;
  }

  Router& router_;
  qmi::WakeEvent arrived_;  // set while the inbox holds anything
  qmi::WakeEvent interrupted_;
  Mutex lock_;
  std::deque<Packet> inbox_ GUARDED_BY(lock_);
  Packet current_;  // belongs to the one thread inside `receive`
  const uint32_t port_;
};

// The modem of this process. Never destroyed: threads of the QMI library may still use it while the
// process exits.
struct EmbeddedModem {
  Modem& modem;
  Router router;
};

// Null when its state cannot be used.
EmbeddedModem* embedded_modem() {
  static EmbeddedModem* const embedded = []() -> EmbeddedModem* {
    const std::string* folder = environment::needed_state_folder();
    if (folder == nullptr) return nullptr;
    std::string problem;
    auto modem = Modem::open(*folder, problem);
    auto behaviour = modem != nullptr ? Behaviour::from(environment::sim_faults(), *modem, problem)
                                      : std::nullopt;
    if (!behaviour) {
      environment::complain("the simulated modem: %s", problem.c_str());
      return nullptr;
    }
    Modem& lasting = *modem.release();
    auto* made = new EmbeddedModem{lasting, Router(lasting, std::move(*behaviour))};
    made->router.keep_time_on_a_thread();
    return made;
  }();
  return embedded;
}

}  // namespace
}  // namespace sim

namespace qmi {

Opened open_loopback_endpoint() {
  sim::EmbeddedModem* embedded = sim::embedded_modem();
  if (embedded == nullptr) return {nullptr, QMI_PORT_NOT_OPEN_ERR};
  return {std::make_unique<sim::LoopbackEndpoint>(embedded->router), 0};
}

}  // namespace qmi

void open_simulated_device() {
  sim::embedded_modem();
}

void open_simulated_ports() {
  sim::EmbeddedModem* embedded = sim::embedded_modem();
  if (embedded == nullptr) return;
  static sim::DevicePorts ports(embedded->modem);
  [[maybe_unused]] static const bool opened = [] {
    std::string problem;
    const auto outcome = ports.open(sim::DevicePorts::Owner::Command, problem);
    // A server of the same state has them already: then they are used.
    using Outcome = sim::DevicePorts::Outcome;
    if (outcome == Outcome::Open || outcome == Outcome::HasServer) return true;
    environment::complain("the simulated modem's ports: %s", problem.c_str());
    return false;
  }();
}
