// One client of one server: the requests in flight, its callbacks.
#pragma once

#include <memory>
#include <vector>

#include "qcci/callback_lane.h"
#include "qcci/connection.h"
#include "qcci/directory.h"
#include "qmi_client.h"

namespace qmi {

// What a handle stands for.
class HandleTarget {
 public:
  HandleTarget(qmi_client_type handle, qmi_idl_service_object_type service)
      : handle(handle), service(*service) {}
  virtual ~HandleTarget() = default;

  virtual qmi_client_error_type set_error_cb(qmi_client_error_cb, void*) {
    return QMI_INTERNAL_ERR;
  }
  virtual qmi_client_error_type set_notify_cb(qmi_client_notify_cb, void*) {
    return QMI_INTERNAL_ERR;
  }
  virtual qmi_client_error_type send_sync(uint16_t /*message*/, const void* /*req*/,
                                          unsigned int /*req_len*/, void* /*resp*/,
                                          unsigned int /*resp_len*/, unsigned int /*time_out_ms*/) {
    return QMI_INTERNAL_ERR;
  }
  // Ends it: no callback runs any more once this has returned.
  virtual void release() = 0;

  const qmi_client_type handle;
  const qmi_idl_service_object& service;
};

class ServiceClient final : public HandleTarget,
                            private Receiver,
                            public ServiceWatcher,
                            public std::enable_shared_from_this<ServiceClient> {
 public:
  ServiceClient(qmi_client_type handle, qmi_idl_service_object_type service, Address server,
                qmi_client_ind_cb ind_cb, void* ind_cb_data)
      : HandleTarget(handle, service),
        server_(server),
        ind_cb_(ind_cb),
        ind_cb_data_(ind_cb_data) {}

  // Finds its place on a connection and begins to watch the server. Once, before anything else.
  qmi_client_error_type start() EXCLUDES(bus_lock);

  qmi_client_error_type set_error_cb(qmi_client_error_cb error_cb, void* cb_data) override
      EXCLUDES(bus_lock);
  qmi_client_error_type send_sync(uint16_t message, const void* req, unsigned int req_len,
                                  void* resp, unsigned int resp_len,
                                  unsigned int time_out_ms) override EXCLUDES(bus_lock);
  void release() override EXCLUDES(bus_lock);
  bool on_service(bool there, const Server& server) override REQUIRES(bus_lock);

 private:
  // A request in flight; lives on the stack of the thread that waits for its response.
  struct Pending {
    const Message& response;
    void* resp;
    uint16_t transaction = 0;
    std::vector<uint8_t> packet = {};  // the request
    bool done = false;
    qmi_client_error_type result = QMI_NO_ERR;
  };

  void on_packet(std::span<const uint8_t> packet) override REQUIRES(bus_lock);
  void on_closed() override REQUIRES(bus_lock);
  Pending* find_pending(const Header& header) REQUIRES(bus_lock);
  // `header` is null for what is not whole, `decoded` the C structure of an awaited response.
  void show_arrived(const Header* header, std::span<const uint8_t> packet,
                    std::span<const uint8_t> request, const void* decoded) REQUIRES(bus_lock);
  void on_indication(const Header& header, std::span<const uint8_t> body) REQUIRES(bus_lock);
  bool has_own_connection() const REQUIRES(bus_lock);
  void service_gone() REQUIRES(bus_lock);
  void post_error() REQUIRES(bus_lock);
  qmi_client_error_type exchange(const Message& request, const void* req, Pending& pending,
                                 unsigned int time_out_ms) REQUIRES(bus_lock);
  qmi_client_error_type send_and_wait(const Pending& pending, timing::Deadline deadline)
      REQUIRES(bus_lock);

  const Address server_;
  const qmi_client_ind_cb ind_cb_;
  void* const ind_cb_data_;
  const std::shared_ptr<CallbackLane> lane_ = std::make_shared<CallbackLane>();

  std::shared_ptr<Connection> connection_ GUARDED_BY(bus_lock);
  qmi_client_error_cb error_cb_ GUARDED_BY(bus_lock) = nullptr;
  void* error_cb_data_ GUARDED_BY(bus_lock) = nullptr;
  std::vector<Pending*> pending_ GUARDED_BY(bus_lock);
  bool gone_ GUARDED_BY(bus_lock) = false;
  bool released_ GUARDED_BY(bus_lock) = false;
};

// Watches a service for the program: sets a signal and calls a callback when servers come and go.
class Notifier final : public HandleTarget, public ServiceWatcher {
 public:
  // `signal` is called on every change, on whichever thread learned of it.
  Notifier(qmi_client_type handle, qmi_idl_service_object_type service,
           std::function<void()> signal)
      : HandleTarget(handle, service), signal_(std::move(signal)) {}

  qmi_client_error_type set_notify_cb(qmi_client_notify_cb notify_cb, void* cb_data) override
      EXCLUDES(bus_lock);
  void release() override { lane_->close(); }
  bool on_service(bool there, const Server& server) override REQUIRES(bus_lock);

 private:
  void post(bool there) REQUIRES(bus_lock);

  const std::function<void()> signal_;
  const std::shared_ptr<CallbackLane> lane_ = std::make_shared<CallbackLane>();
  qmi_client_notify_cb notify_cb_ GUARDED_BY(bus_lock) = nullptr;
  void* cb_data_ GUARDED_BY(bus_lock) = nullptr;
  int servers_ GUARDED_BY(bus_lock) = 0;
};

}  // namespace qmi
