// One client of one server: an endpoint of its own, the requests in flight on it, its callbacks.
//
// Locks of the library, in the order they are taken: the directory's; a client's or a notifier's;
// a lane's; those of the reading thread, the callback threads, the signals and the handles, which
// are leaves. The program's own locks are taken before all of them, none is held over a callback.
#pragma once

#include <memory>
#include <vector>

#include "qcci/callback_lane.h"
#include "qcci/channel.h"
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

class ServiceClient final : public HandleTarget, public Channel, public ServiceWatcher {
 public:
  ServiceClient(qmi_client_type handle, qmi_idl_service_object_type service, Address server,
                qmi_client_ind_cb ind_cb, void* ind_cb_data)
      : HandleTarget(handle, service),
        server_(server),
        ind_cb_(ind_cb),
        ind_cb_data_(ind_cb_data) {}

  // Opens the endpoint and begins to watch the server. Once, before anything else.
  qmi_client_error_type start() EXCLUDES(lock_);

  qmi_client_error_type set_error_cb(qmi_client_error_cb error_cb, void* cb_data) override
      EXCLUDES(lock_);
  qmi_client_error_type send_sync(uint16_t message, const void* req, unsigned int req_len,
                                  void* resp, unsigned int resp_len,
                                  unsigned int time_out_ms) override EXCLUDES(lock_);
  void release() override EXCLUDES(lock_);
  bool on_service(bool there, const Server& server) override EXCLUDES(lock_);

 private:
  // A request in flight; lives on the stack of the thread that waits for its response.
  struct Pending {
    const Message& response;
    void* resp;
    uint16_t transaction;
    std::vector<uint8_t> asked = {};  // the request's body, while there is a trace
    bool done = false;
    qmi_client_error_type result = QMI_NO_ERR;
  };

  void on_packet(Address source, std::span<const uint8_t> packet) override REQUIRES(lock_);
  void on_closed() override REQUIRES(lock_);
  Pending* find_pending(const Header& header) REQUIRES(lock_);
  void trace_arrived(std::span<const uint8_t> packet) REQUIRES(lock_);
  void on_response(const Header& header, std::span<const uint8_t> packet) REQUIRES(lock_);
  void on_indication(const Header& header, std::span<const uint8_t> body) REQUIRES(lock_);
  void service_gone() REQUIRES(lock_);
  void post_error() REQUIRES(lock_);
  uint16_t next_transaction() REQUIRES(lock_);
  qmi_client_error_type exchange(const Message& request, const void* req, Pending& pending,
                                 timing::Deadline deadline) REQUIRES(lock_);

  const Address server_;
  const qmi_client_ind_cb ind_cb_;
  void* const ind_cb_data_;
  const std::shared_ptr<CallbackLane> lane_ = std::make_shared<CallbackLane>();

  qmi_client_error_cb error_cb_ GUARDED_BY(lock_) = nullptr;
  void* error_cb_data_ GUARDED_BY(lock_) = nullptr;
  std::vector<Pending*> pending_ GUARDED_BY(lock_);
  std::vector<uint8_t> request_ GUARDED_BY(lock_);  // the packet being sent
  uint16_t last_transaction_ GUARDED_BY(lock_) = 0;
  bool gone_ GUARDED_BY(lock_) = false;
  bool released_ GUARDED_BY(lock_) = false;
};

// Watches a service for the program: sets a signal and calls a callback when servers come and go.
class Notifier final : public HandleTarget, public ServiceWatcher {
 public:
  // `signal` is called on every change, on whichever thread learned of it.
  Notifier(qmi_client_type handle, qmi_idl_service_object_type service,
           std::function<void()> signal)
      : HandleTarget(handle, service), signal_(std::move(signal)) {}

  qmi_client_error_type set_notify_cb(qmi_client_notify_cb notify_cb, void* cb_data) override
      EXCLUDES(lock_);
  void release() override { lane_->close(); }
  bool on_service(bool there, const Server& server) override EXCLUDES(lock_);

 private:
  void post(bool there) REQUIRES(lock_);

  const std::function<void()> signal_;
  const std::shared_ptr<CallbackLane> lane_ = std::make_shared<CallbackLane>();
  Mutex lock_;
  qmi_client_notify_cb notify_cb_ GUARDED_BY(lock_) = nullptr;
  void* cb_data_ GUARDED_BY(lock_) = nullptr;
  int servers_ GUARDED_BY(lock_) = 0;
};

}  // namespace qmi
