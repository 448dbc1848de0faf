// The process's view of which services run where: one standing lookup for each service anybody
// asked for, over the process's connection to the bus. It tells watchers what comes and goes.
#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "qcci/connection.h"
#include "qcci/observer.h"
#include "qmi_client.h"

namespace qmi {

struct Server {
  Address address;
  uint32_t instance;  // instance number << 8 | IDL major version
};

class ServiceWatcher {
 public:
  virtual ~ServiceWatcher() = default;

  // A server of the service has come or gone. It must not ask the directory anything. False: this
  // watcher need not be told again.
  virtual bool on_service(bool there, const Server& server) REQUIRES(bus_lock) = 0;
};

class Directory final : private Receiver {
 public:
  // The one of the process; never destroyed.
  static Directory& instance();

  // The connection of the process; open once a service was found.
  const std::shared_ptr<Connection>& connection() const { return connection_; }

  // The running servers of the service's version, the first to be taken first. 0, QMI_SERVICE_ERR
  // when there is none, or QMI_PORT_NOT_OPEN_ERR.
  qmi_client_error_type list(const qmi_idl_service_object& service, std::vector<Server>& servers)
      REQUIRES(bus_lock);

  // Waits until a server of the service runs; `instance` QMI_CLIENT_INSTANCE_ANY takes the first.
  // 0, QMI_TIMEOUT_ERR, or QMI_PORT_NOT_OPEN_ERR.
  qmi_client_error_type find(const qmi_idl_service_object& service, uint32_t instance,
                             uint32_t time_out_ms, Server& server) REQUIRES(bus_lock);

  // Tells `watcher` about servers of the service from now on, for as long as it lives; about those
  // that run already if `tell_now`. False when no modem can be reached at all.
  bool watch(const qmi_idl_service_object& service, std::weak_ptr<ServiceWatcher> watcher,
             bool tell_now) REQUIRES(bus_lock);

  // Whether a server of the service still has that address.
  bool runs(const qmi_idl_service_object& service, Address address) REQUIRES(bus_lock);

  // Makes a thread that reads the connection look again at what it waits for: a question is asked
  // only for its answer.
  void stir() REQUIRES(bus_lock);

 private:
  struct Watch {
    uint8_t major_version;
    std::weak_ptr<ServiceWatcher> watcher;
  };
  struct Service {
    uint32_t id;
    bool asked = false;       // a lookup stands
    bool answered = false;    // its first list has arrived
    bool waited_for = false;  // somebody has waited the full time for that list
    std::vector<Server> servers;
    std::vector<Watch> watches;
  };

  Directory() : connection_(std::make_shared<Connection>(static_cast<Receiver*>(this))) {}

  void on_packet(std::span<const uint8_t> packet) override REQUIRES(bus_lock);
  void on_closed() override REQUIRES(bus_lock);
  void on_time() override REQUIRES(bus_lock);

  Service& service_of(uint32_t id) REQUIRES(bus_lock);
  qmi_client_error_type connect(timing::Deadline deadline) REQUIRES(bus_lock);
  bool ask(Service& service) REQUIRES(bus_lock);
  void give_up(Service& service) REQUIRES(bus_lock);
  qmi_client_error_type refresh(Service& service) REQUIRES(bus_lock);
  bool has_room(uint32_t node) REQUIRES(bus_lock);
  void server_came(Service& service, const Server& server) REQUIRES(bus_lock);
  void server_left(Service& service, Address address) REQUIRES(bus_lock);
  void show(const Service& service, Observer::Presence presence) REQUIRES(bus_lock);
  void tell(Service& service, bool there, const Server& server) REQUIRES(bus_lock);
  void retry_soon() REQUIRES(bus_lock);

  const std::shared_ptr<Connection> connection_;
  std::deque<Service> services_ GUARDED_BY(bus_lock);     // a deque: references stay valid
  std::deque<uint32_t> unanswered_ GUARDED_BY(bus_lock);  // lookups, by their end markers' order
  bool waited_to_connect_ GUARDED_BY(bus_lock) = false;   // the full time, in vain
  bool retry_planned_ GUARDED_BY(bus_lock) = false;
};

}  // namespace qmi
