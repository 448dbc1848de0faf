// What every network of the simulated modem has in common: its services run, leave and come back;
// requests are carried out; some things happen later. Where packets go is for the derived classes:
// the router behind loopback and unix endpoints, or the kernel's QRTR.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "exchange.h"
#include "mutex.h"
#include "service.h"

namespace sim {

class Modem;

// How the modem is to behave: its faults, and the seed of its random bytes; and who looks on.
struct Behaviour {
  Faults faults;
  uint32_t seed = 1;
  Witness* witness = nullptr;  // these must outlive the network
  Script* script = nullptr;

  // From TOVI_SIM_SEED, `rules` and the file `faults` in the modem's state folder, which is
  // followed. Nothing, with `problem` in words, when one cannot be used.
  static std::optional<Behaviour> from(const std::string& rules, const Modem& modem,
                                       std::string& problem);
};

class Network {
 public:
  Network(Modem& modem, Behaviour behaviour);
  virtual ~Network() = default;

  // For a server's loop: when to call run_due next, and doing what is due.
  timing::Deadline next_due() EXCLUDES(lock_);
  void run_due() EXCLUDES(lock_);

  // For a modem without a loop: a thread does what is due. It never ends, nor may the network.
  void keep_time_on_a_thread() EXCLUDES(lock_);

 protected:
  struct Running {
    std::unique_ptr<Service> service;
    bool up = false;
    uint32_t port = 0;
    unsigned int outage = 0;  // the last one it was part of
    uint32_t id() const { return service->description().service_id; }
  };

  // Takes up or gives up the service's place in the network. `running.port` is for their use.
  virtual void publish(Running& running) REQUIRES(lock_) = 0;
  virtual void withdraw(Running& running) REQUIRES(lock_) = 0;

  // Hands a packet from a service to a client, if it still exists.
  virtual void deliver(Running& running, qmi::Address client, std::span<const uint8_t> packet)
      REQUIRES(lock_) = 0;

  void start_services() REQUIRES(lock_);
  // Gives a service a new place in the network; its clients are gone.
  void renew(Running& running) REQUIRES(lock_);
  void stop_services() REQUIRES(lock_);
  void request(Running& running, qmi::Address client, std::span<const uint8_t> packet)
      REQUIRES(lock_);
  void forget_client(qmi::Address client) REQUIRES(lock_);
  void service_sought(uint32_t service) REQUIRES(lock_);  // by a client, who is not answered yet

  Mutex lock_;  // of the network and of the services, under those of the QMI library
  std::vector<Running> services_ GUARDED_BY(lock_);

 private:
  struct Later {
    timing::Deadline when;
    std::function<void()> what;
  };

  Exchange exchange(Running& running, qmi::Address client, std::span<const uint8_t> packet)
      REQUIRES(lock_);
  void change(const Change& change) REQUIRES(lock_);
  void start(Running& running) REQUIRES(lock_);
  void set_up(Running& running, bool up) REQUIRES(lock_);
  void go_down(Running& running, const Outage& outage) REQUIRES(lock_);
  void later(uint32_t ms, std::function<void()> what) REQUIRES(lock_);
  void start_thread() REQUIRES(lock_);
  timing::Deadline earliest() REQUIRES(lock_);
  void run_due_locked() REQUIRES(lock_);
  void keep_time() EXCLUDES(lock_);

  unsigned int last_outage_ GUARDED_BY(lock_) = 0;
  Faults faults_ GUARDED_BY(lock_);
  std::minstd_rand random_ GUARDED_BY(lock_);
  Witness* const witness_;
  Script* const script_;
  std::vector<Later> agenda_ GUARDED_BY(lock_);
  Condition agenda_changed_;
  bool own_thread_ GUARDED_BY(lock_) = false;
  bool thread_started_ GUARDED_BY(lock_) = false;
};

}  // namespace sim
