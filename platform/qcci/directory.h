// The process's view of which services run where. It keeps one endpoint for the name service and
// one standing lookup for each service anybody asked for, and tells watchers what comes and goes.
#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "qcci/channel.h"
#include "qmi_client.h"

namespace qmi {

struct Server {
  Address address;
  uint32_t instance;  // instance number << 8 | IDL major version
};

class ServiceWatcher {
 public:
  virtual ~ServiceWatcher() = default;

  // A server of the service has come or gone. Called with the directory's lock held, so it must
  // not ask the directory anything. False: this watcher need not be told again.
  virtual bool on_service(bool there, const Server& server) = 0;
};

class Directory final : public Channel {
 public:
  // The one of the process; never destroyed.
  static Directory& instance();

  // The running servers of the service's version, the first to be taken first. 0, QMI_SERVICE_ERR
  // when there is none, or QMI_PORT_NOT_OPEN_ERR.
  qmi_client_error_type list(const qmi_idl_service_object& service, std::vector<Server>& servers)
      EXCLUDES(lock_);

  // Waits until a server of the service runs; `instance` QMI_CLIENT_INSTANCE_ANY takes the first.
  // 0, QMI_TIMEOUT_ERR, or QMI_PORT_NOT_OPEN_ERR.
  qmi_client_error_type find(const qmi_idl_service_object& service, uint32_t instance,
                             uint32_t time_out_ms, Server& server) EXCLUDES(lock_);

  // Tells `watcher` about servers of the service from now on, for as long as it lives; about those
  // that run already if `tell_now`. False when no modem can be reached at all.
  bool watch(const qmi_idl_service_object& service, std::weak_ptr<ServiceWatcher> watcher,
             bool tell_now) EXCLUDES(lock_);

  // Whether a server of the service still has that address.
  bool runs(const qmi_idl_service_object& service, Address address) EXCLUDES(lock_);

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

  void on_packet(Address source, std::span<const uint8_t> packet) override REQUIRES(lock_);
  void on_closed() override REQUIRES(lock_);

  Service& service_of(uint32_t id) REQUIRES(lock_);
  qmi_client_error_type connect(timing::Deadline deadline) REQUIRES(lock_);
  bool ask(Service& service) REQUIRES(lock_);
  void give_up(Service& service) REQUIRES(lock_);
  qmi_client_error_type refresh(Service& service) REQUIRES(lock_);
  void server_came(Service& service, const Server& server) REQUIRES(lock_);
  void server_left(Service& service, Address address) REQUIRES(lock_);
  void tell(Service& service, bool there, const Server& server) REQUIRES(lock_);
  void retry_soon() REQUIRES(lock_);
  void retry() EXCLUDES(lock_);

  std::deque<Service> services_ GUARDED_BY(lock_);     // a deque: references stay valid
  std::deque<uint32_t> unanswered_ GUARDED_BY(lock_);  // lookups in the order of their end markers
  bool waited_to_connect_ GUARDED_BY(lock_) = false;   // the full time, in vain
  bool retry_planned_ GUARDED_BY(lock_) = false;
};

}  // namespace qmi
