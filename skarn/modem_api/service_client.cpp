#include "modem_api/service_client.h"

#include <utility>

#include "detached_thread.h"
#include "skarn_common/skarn_mem.h"
#include "timing.h"

namespace {

constexpr uint32_t kConnectMs = 4;
constexpr int kConnectAttempts = 10;
constexpr uint32_t kSendTimeOutMs = 30000;

// The client that this thread is suspending or resuming, or null.
thread_local const ServiceClient* t_recovers;

}  // namespace

void ServiceClient::reset() {
  MutexLock hold(lock_);
  state_ = {};
  ++life_;
}

void ServiceClient::set_status_callback(modem_api_status_report_cb status_cb) {
  MutexLock hold(lock_);
  state_.status_cb = status_cb;
}

ServiceClient::Life ServiceClient::life() {
  MutexLock hold(lock_);
  return life_;
}

void ServiceClient::report(int status, Life life) {
  modem_api_status_report_cb status_cb;
  {
    MutexLock hold(lock_);
    status_cb = life == life_ ? state_.status_cb : nullptr;
  }
  if (status_cb != nullptr) status_cb(is_.client_type, status);
}

bool ServiceClient::keep(qmi_client_type handle, qmi_client_type State::*slot, Life life) {
  {
    MutexLock hold(lock_);
    if (life == life_) {
      state_.*slot = handle;
      return true;
    }
  }
  if (handle != nullptr) qmi_client_release(handle);
  return false;
}

bool ServiceClient::init(modem_api_event_cb event_cb, Speaker speaker) {
  Life life;
  {
    MutexLock hold(lock_);
    state_.event_cb = event_cb;
    life = life_;
  }
  velmor_log(LogLevel::Debug, speaker, "Client connecting to QMI FW");
  report(MODEM_API_CONNECTING, life);
  return connect_and_report(life, MODEM_API_OPERATIONAL, MODEM_API_INIT_FAILED);
}

bool ServiceClient::connect_and_report(Life life, int good, int bad) {
  const qmi_client_type handle = connect(life);
  if (!keep(handle, &State::handle, life)) return false;
  report(handle != nullptr ? good : bad, life);
  if (handle == nullptr) return false;
  // After the report: a service that has left meanwhile is told of at once.
  qmi_client_register_error_cb(handle, is_.service_down, nullptr);
  return true;
}

qmi_client_type ServiceClient::connect(Life life) {
  const Speaker speaker{is_.connect_name};
  const int port = static_cast<int>(QMI_CLIENT_INSTANCE_ANY);
  velmor_log(LogLevel::Debug, speaker, "using port %d", port);
  qmi_client_type handle = nullptr;
  qmi_client_error_type error = QMI_INTERNAL_ERR;
  for (int attempt = 0; attempt < kConnectAttempts && error != QMI_NO_ERR; ++attempt) {
    if (attempt > 0) timing::sleep_s(1);
    if (life != this->life()) return nullptr;  // a release does not wait for the other attempts
    velmor_log(LogLevel::Debug, speaker, "Trying qmi_client_init_instance() try # %d port[%d]",
               attempt, port);
    qmi_client_os_params os_params{};
    error = qmi_client_init_instance(is_.service(), QMI_CLIENT_INSTANCE_ANY, is_.indication,
                                     nullptr, &os_params, kConnectMs, &handle);
    if (is_.after_attempt != nullptr) is_.after_attempt(handle);
  }
  velmor_log(LogLevel::Debug, speaker, "qmi_client_init_instance returned (%d)", error);
  if (error != QMI_NO_ERR) {
    velmor_log(LogLevel::Debug, speaker, "qmi_client_init_instance returned failure(%d)", error);
    return nullptr;
  }
  if (is_.after_connect != nullptr) is_.after_connect(handle);
  return handle;
}

void ServiceClient::release() {
  report(MODEM_API_RELEASED, life());
  qmi_client_type handle, notifier;
  {
    MutexLock hold(lock_);
    handle = std::exchange(state_.handle, nullptr);
    notifier = std::exchange(state_.notifier, nullptr);
    ++life_;
  }
  // What arrived before this is still heard: the record keeps its callbacks until then.
  if (handle != nullptr) qmi_client_release(handle);
  if (notifier != nullptr) qmi_client_release(notifier);
  if (t_recovers != this) {
    for (int running; (running = recoveries_) != 0;) recoveries_.wait(running);
  }
  MutexLock hold(lock_);
  state_ = {};
}

int ServiceClient::send(unsigned int msg_id, void* req, unsigned int req_len, void* resp,
                        unsigned int resp_len) {
  qmi_client_type handle;
  {
    MutexLock hold(lock_);
    handle = state_.handle;
  }
  return qmi_client_send_msg_sync(handle, msg_id, req, req_len, resp, resp_len, kSendTimeOutMs);
}

void ServiceClient::on_indication(qmi_client_type handle, unsigned int msg_id, const void* buf,
                                  unsigned int len, Speaker speaker) {
  modem_api_event_cb event_cb;
  {
    MutexLock hold(lock_);
    event_cb = state_.event_cb;
  }
  if (event_cb == nullptr) {
    velmor_log(LogLevel::Error, speaker, "Unexpected NULL pointer!");
    return;
  }
  uint32_t decoded_len = 0;
  qmi_idl_get_message_c_struct_len(is_.service(), QMI_IDL_INDICATION, msg_id, &decoded_len);
  if (decoded_len == 0) {
    velmor_log(LogLevel::Error, speaker, "decoded_payload_len(%d) can not <= 0", 0);
    return;
  }
  void* decoded = skarn_malloc_adv(decoded_len, speaker.function, __LINE__);
  if (decoded == nullptr) {
    velmor_log(LogLevel::Error, speaker, "decoded_payload is NULL");
    return;
  }
  const qmi_client_error_type error =
      qmi_client_message_decode(handle, QMI_IDL_INDICATION, msg_id, buf, len, decoded, decoded_len);
  if (error != QMI_NO_ERR) {
    velmor_log(LogLevel::Error, speaker, "Indication decode failed for msg 0x%x with error %d",
               msg_id, error);
  } else {
    velmor_log(LogLevel::Debug, speaker, "Handling indication msg 0x%x", msg_id);
    const bool known =
        is_.handle_indication != nullptr && is_.handle_indication(msg_id, decoded, event_cb);
    if (!known) velmor_log(LogLevel::Error, speaker, "Unknown indication msg %0x", msg_id);
  }
  skarn_free_adv(decoded, speaker.function, __LINE__);
}

void ServiceClient::begin(const Recovery& recovery) {
  qmi_client_type taken;
  Life life;
  {
    MutexLock hold(lock_);
    taken = std::exchange(state_.*recovery.slot, nullptr);
    if (taken == nullptr) return;  // under way already, or released
    life = life_;
    ++recoveries_;  // a release waits from here on
  }
  t_recovers = this;
  report(recovery.status, life);
  const bool started = start_detached_thread([this, run = recovery.run, taken, life] {
    t_recovers = this;
    (this->*run)(taken, life);
    end_recovery();
  });
  if (!started) {
    keep(taken, recovery.slot, life);
    report(recovery.status_without_thread, life);
    end_recovery();
  }
  t_recovers = nullptr;
}

void ServiceClient::end_recovery() {
  if (--recoveries_ == 0) recoveries_.notify_all();
}

void ServiceClient::on_service_down(qmi_client_error_type error, Speaker speaker) {
  velmor_log(LogLevel::Error, speaker, "service down with error %d", error);
  if (is_.service_up == nullptr) return;
  begin({.slot = &State::handle,
         .run = &ServiceClient::suspend,
         .status = MODEM_API_SUSPENDING,
         .status_without_thread = MODEM_API_RELEASED});
}

void ServiceClient::suspend(qmi_client_type handle, Life life) {
  const Speaker speaker{is_.suspend_name};
  qmi_client_release(handle);
  report(MODEM_API_SUSPENDED, life);
  qmi_client_type notifier = nullptr;
  qmi_client_os_params os_params{};
  qmi_client_error_type error = qmi_client_notifier_init(is_.service(), &os_params, &notifier);
  velmor_log(LogLevel::Debug, speaker, "qmi_client_notifier_init return %d", error);
  if (!keep(notifier, &State::notifier, life)) return;
  error = qmi_client_register_notify_cb(notifier, is_.service_up, nullptr);
  velmor_log(LogLevel::Error, speaker, "qmi_client_register_notify_cb %d", error);
}

void ServiceClient::on_service_up(qmi_client_notify_event_type event) {
  if (event != QMI_CLIENT_SERVICE_COUNT_INC) return;
  begin({.slot = &State::notifier,
         .run = &ServiceClient::resume,
         .status = MODEM_API_RESUMING,
         .status_without_thread = MODEM_API_RESUME_FAILED});
}

void ServiceClient::resume(qmi_client_type notifier, Life life) {
  qmi_client_release(notifier);
  connect_and_report(life, MODEM_API_OPERATIONAL, MODEM_API_RESUME_FAILED);
}
