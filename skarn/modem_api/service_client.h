// What the four clients of the statistics framework have in common: connecting with retries,
// suspending and resuming around a restart of the service, indications, release.
//
// Each client is one object of this class with a description of its own, and a set of named
// functions that do no more than call it. The log shows their names, also where shared code does
// the work. Callbacks run on threads of the QMI library, suspending and resuming on short threads
// of their own; a release may come at any time, and what is under way then ends without a trace.
#pragma once

#include <atomic>

#include "modem_api/modem_api.h"
#include "mutex.h"
#include "qmi_client.h"
#include "utilities/velmor_log.h"

class ServiceClient {
 public:
  // How one client differs from the others.
  struct Description {
    int client_type;
    qmi_idl_service_object_type (*service)();
    qmi_client_ind_cb indication;
    qmi_client_error_cb service_down;
    qmi_client_notify_cb service_up;  // null: it does not recover by itself
    // Names in the log: of connecting, and of the thread that suspends.
    const char* connect_name;
    const char* suspend_name;
    // What follows each attempt to connect (its handle is null after a failed one), and what
    // follows a successful one besides; null for nothing.
    void (*after_attempt)(qmi_client_type handle);
    void (*after_connect)(qmi_client_type handle);
    // Hands a decoded indication to the caller's event callback. False for one it does not know;
    // null: it knows none.
    bool (*handle_indication)(unsigned int msg_id, const void* decoded,
                              modem_api_event_cb event_cb);
  };

  explicit constexpr ServiceClient(const Description& description) : is_(description) {}

  // Forgets everything.
  void reset() EXCLUDES(lock_);
  void set_status_callback(modem_api_status_report_cb status_cb) EXCLUDES(lock_);

  // Connects for the first time: status 1, then 3 or, with false, 2.
  bool init(modem_api_event_cb event_cb, Speaker speaker = Speaker::here()) EXCLUDES(lock_);

  // Disconnects: status 0. Nothing of this life runs any more afterwards, unless this is called
  // from it; where the client is just connecting again, that takes up to a second. A status
  // callback must not release a client that is being released.
  void release() EXCLUDES(lock_);

  // The transport result of a request; QMI_PORT_NOT_OPEN_ERR while there is no connection.
  int send(unsigned int msg_id, void* req, unsigned int req_len, void* resp, unsigned int resp_len)
      EXCLUDES(lock_);

  void on_indication(qmi_client_type handle, unsigned int msg_id, const void* buf, unsigned int len,
                     Speaker speaker = Speaker::here()) EXCLUDES(lock_);
  void on_service_down(qmi_client_error_type error, Speaker speaker = Speaker::here())
      EXCLUDES(lock_);
  void on_service_up(qmi_client_notify_event_type event) EXCLUDES(lock_);

 private:
  struct State {
    qmi_client_type handle;    // null while not connected
    qmi_client_type notifier;  // null unless the service is waited for
    modem_api_event_cb event_cb;
    modem_api_status_report_cb status_cb;
  };

  // One life lasts from a reset or a release to the next. What belongs to an earlier one reports
  // nothing and leaves nothing in the record.
  using Life = unsigned int;

  // One half of a recovery: it takes a handle out of the record, reports `status` and goes on with
  // `run` on a thread of its own, which owns the handle.
  struct Recovery {
    qmi_client_type State::*slot;
    void (ServiceClient::*run)(qmi_client_type taken, Life life);
    int status;
    int status_without_thread;
  };

  Life life() EXCLUDES(lock_);
  void report(int status, Life life) EXCLUDES(lock_);
  // Puts a handle, or null, into `slot`. False when its life is over: the handle is released.
  bool keep(qmi_client_type handle, qmi_client_type State::*slot, Life life) EXCLUDES(lock_);

  // Connects and reports `good` or `bad`.
  bool connect_and_report(Life life, int good, int bad) EXCLUDES(lock_);
  // At most 10 attempts, a second after each that failed. The handle, or null.
  qmi_client_type connect(Life life) EXCLUDES(lock_);

  void begin(const Recovery& recovery) EXCLUDES(lock_);
  void end_recovery();
  void suspend(qmi_client_type handle, Life life) EXCLUDES(lock_);
  void resume(qmi_client_type notifier, Life life) EXCLUDES(lock_);

  const Description is_;
  Mutex lock_;  // held over no call out
  State state_ GUARDED_BY(lock_){};
  Life life_ GUARDED_BY(lock_) = 0;
  std::atomic<int> recoveries_{0};  // that are under way
};
