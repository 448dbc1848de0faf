#include "modem_api/service_client.h"

#include <utility>

#include "detached_thread.h"
#include "skarn_common/skarn_mem.h"
#include "timing.h"

namespace {

constexpr uint32_t kConnectMs = 4;
constexpr int kConnectAttempts = 10;
constexpr uint32_t kSendTimeOutMs = 30000;

// The client whose recovery this thread is, or null.
thread_local const ServiceClient* t_recovers;

}  // namespace

void ServiceClient::reset() {
  MutexLock hold(lock_);
  state_ = {};
  state_.service = is_.service();
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

bool ServiceClient::init(modem_api_event_cb event_cb, Speaker speaker) {
  const Life mine = life();
  {
    MutexLock hold(lock_);
    state_.event_cb = event_cb;
  }
  velmor_log(LogLevel::Debug, speaker, "Client connecting to QMI FW");
  report(MODEM_API_CONNECTING, mine);
  return connect_and_report(mine, MODEM_API_OPERATIONAL, MODEM_API_INIT_FAILED);
}

bool ServiceClient::connect_and_report(Life life, int good, int bad) {
  {
    MutexLock hold(lock_);
    if (life != life_) return false;
    state_.connecting = true;
    state_.lost = false;
  }
  const bool connected = connect(life);
  report(connected ? good : bad, life);
  bool lost;
  {
    MutexLock hold(lock_);
    if (life != life_) return connected;
    state_.connecting = state_.resuming = false;
    lost = std::exchange(state_.lost, false);
  }
  if (lost) begin_suspend(life);
  return connected;
}

bool ServiceClient::keep(qmi_client_type handle, qmi_client_type State::*slot, Life life) {
  if (handle == nullptr) return false;
  {
    MutexLock hold(lock_);
    if (life == life_) {
      state_.*slot = handle;
      return true;
    }
  }
  qmi_client_release(handle);
  return false;
}

qmi_client_error_type ServiceClient::try_to_connect(Life life) {
  qmi_idl_service_object_type service;
  {
    MutexLock hold(lock_);
    service = state_.service;
  }
  qmi_client_os_params os_params{};
  qmi_client_type handle = nullptr;
  const qmi_client_error_type error = qmi_client_init_instance(
      service, QMI_CLIENT_INSTANCE_ANY, is_.indication, nullptr, &os_params, kConnectMs, &handle);
  const bool kept = keep(handle, &State::handle, life);
  if (is_.after_attempt != nullptr) is_.after_attempt(kept ? handle : nullptr);
  return error;
}

bool ServiceClient::connect(Life life) {
  const Speaker speaker{is_.connect_name};
  const int port = static_cast<int>(QMI_CLIENT_INSTANCE_ANY);
  velmor_log(LogLevel::Debug, speaker, "using port %d", port);
  qmi_client_error_type error = QMI_INTERNAL_ERR;
  for (int attempt = 0; attempt < kConnectAttempts && error != QMI_NO_ERR; ++attempt) {
    if (attempt > 0) timing::sleep_s(1);
    if (life != this->life()) return false;
    velmor_log(LogLevel::Debug, speaker, "Trying qmi_client_init_instance() try # %d port[%d]",
               attempt, port);
    error = try_to_connect(life);
  }
  velmor_log(LogLevel::Debug, speaker, "qmi_client_init_instance returned (%d)", error);
  if (error != QMI_NO_ERR) {
    velmor_log(LogLevel::Debug, speaker, "qmi_client_init_instance returned failure(%d)", error);
    return false;
  }
  if (life != this->life()) return false;
  if (is_.after_connect != nullptr) is_.after_connect();
  qmi_client_type handle;
  {
    MutexLock hold(lock_);
    if (life != life_) return false;
    state_.inited = 1;
    handle = state_.handle;
  }
  qmi_client_register_error_cb(handle, is_.service_down, nullptr);
  return true;
}

void ServiceClient::release() {
  report(MODEM_API_RELEASED, life());
  State last;
  {
    MutexLock hold(lock_);
    last = std::exchange(state_, {});
    ++life_;
  }
  if (last.handle != nullptr) qmi_client_release(last.handle);
  if (last.notifier != nullptr) qmi_client_release(last.notifier);
  if (t_recovers == this) return;
  for (int running; (running = recoveries_) != 0;) recoveries_.wait(running);
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
  qmi_idl_service_object_type service;
  {
    MutexLock hold(lock_);
    event_cb = state_.event_cb;
    service = state_.service;
  }
  if (event_cb == nullptr) {
    velmor_log(LogLevel::Error, speaker, "Unexpected NULL pointer!");
    return;
  }
  uint32_t decoded_len = 0;
  qmi_idl_get_message_c_struct_len(service, QMI_IDL_INDICATION, msg_id, &decoded_len);
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

bool ServiceClient::start_recovery(void (ServiceClient::*body)(Life), Life life) {
  const auto ended = [this] {
    if (--recoveries_ == 0) recoveries_.notify_all();
  };
  ++recoveries_;
  const bool started = start_detached_thread([this, body, life, ended] {
    t_recovers = this;
    (this->*body)(life);
    ended();
  });
  if (!started) ended();
  return started;
}

void ServiceClient::on_service_down(qmi_client_error_type error, Speaker speaker) {
  velmor_log(LogLevel::Error, speaker, "service down with error %d", error);
  if (is_.service_up == nullptr) return;
  Life mine;
  {
    MutexLock hold(lock_);
    mine = life_;
    if (state_.connecting) {
      state_.lost = true;
      return;
    }
  }
  begin_suspend(mine);
}

void ServiceClient::begin_suspend(Life life) {
  report(MODEM_API_SUSPENDING, life);
  if (!start_recovery(&ServiceClient::suspend, life)) report(MODEM_API_RELEASED, life);
}

void ServiceClient::suspend(Life life) {
  const Speaker speaker{is_.suspend_name};
  qmi_client_type handle, notifier;
  qmi_idl_service_object_type service;
  {
    MutexLock hold(lock_);
    if (life != life_) return;
    state_.inited = 0;
    handle = std::exchange(state_.handle, nullptr);
    notifier = state_.notifier;
    service = state_.service;
  }
  if (handle != nullptr) qmi_client_release(handle);
  report(MODEM_API_SUSPENDED, life);
  if (notifier == nullptr) {
    qmi_client_os_params os_params{};
    const qmi_client_error_type error = qmi_client_notifier_init(service, &os_params, &notifier);
    velmor_log(LogLevel::Debug, speaker, "qmi_client_notifier_init return %d", error);
    if (notifier != nullptr && !keep(notifier, &State::notifier, life)) return;
  }
  const qmi_client_error_type error =
      qmi_client_register_notify_cb(notifier, is_.service_up, nullptr);
  velmor_log(LogLevel::Error, speaker, "qmi_client_register_notify_cb %d", error);
}

void ServiceClient::on_service_up(qmi_client_notify_event_type event) {
  if (event != QMI_CLIENT_SERVICE_COUNT_INC) return;
  Life mine;
  {
    MutexLock hold(lock_);
    if (state_.notifier == nullptr || std::exchange(state_.resuming, true)) return;
    mine = life_;
  }
  report(MODEM_API_RESUMING, mine);
  if (start_recovery(&ServiceClient::resume, mine)) return;
  {
    MutexLock hold(lock_);
    state_.resuming = false;
  }
  report(MODEM_API_RESUME_FAILED, mine);
}

void ServiceClient::resume(Life life) {
  qmi_client_type notifier;
  {
    MutexLock hold(lock_);
    if (life != life_) return;
    notifier = std::exchange(state_.notifier, nullptr);
  }
  if (notifier != nullptr) qmi_client_release(notifier);
  connect_and_report(life, MODEM_API_OPERATIONAL, MODEM_API_RESUME_FAILED);
}
