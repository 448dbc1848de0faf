// The calls of qmi_client.h: the table of handles, and the signals notifiers set.
#include "qmi_client.h"

#include <algorithm>
#include <map>
#include <utility>

#include "qcci/directory.h"
#include "qcci/observer.h"
#include "qcci/qmi_codec.h"
#include "qcci/service_client.h"

namespace {

using qmi::HandleTarget;

class Handles {
 public:
  static Handles& instance() {
    static auto* handles = new Handles;  // outlives main: callbacks may still run at exit
    return *handles;
  }

  qmi_client_type reserve() {
    MutexLock hold(lock_);
    return reinterpret_cast<qmi_client_type>(++last_);
  }
  void put(qmi_client_type handle, std::shared_ptr<HandleTarget> target) {
    MutexLock hold(lock_);
    targets_[handle] = {std::move(target), false};
  }
  // What the handle stands for; null when it is unknown or being released.
  std::shared_ptr<HandleTarget> get(qmi_client_type handle) {
    MutexLock hold(lock_);
    const auto found = targets_.find(handle);
    return found != targets_.end() && !found->second.released ? found->second.target : nullptr;
  }
  // The same, but still there for the last callbacks of a handle that is being released.
  std::shared_ptr<HandleTarget> get_for_callback(qmi_client_type handle) {
    MutexLock hold(lock_);
    const auto found = targets_.find(handle);
    return found != targets_.end() ? found->second.target : nullptr;
  }
  // Begins a release; null for all but the first.
  std::shared_ptr<HandleTarget> retire(qmi_client_type handle) {
    MutexLock hold(lock_);
    const auto found = targets_.find(handle);
    if (found == targets_.end() || std::exchange(found->second.released, true)) return nullptr;
    return found->second.target;
  }
  void erase(qmi_client_type handle) {
    MutexLock hold(lock_);
    targets_.erase(handle);
  }

 private:
  struct Entry {
    std::shared_ptr<HandleTarget> target;
    bool released;
  };
  Mutex lock_;
  uintptr_t last_ GUARDED_BY(lock_) = 0;
  std::map<qmi_client_type, Entry> targets_ GUARDED_BY(lock_);
};

// Signals are numbered like handles, so that the caller's block holds no pointer.
class Signals {
 public:
  static Signals& instance() {
    static auto* signals = new Signals;
    return *signals;
  }

  uint32_t make() {
    MutexLock hold(lock_);
    set_.push_back(false);
    return static_cast<uint32_t>(set_.size());
  }
  void set(uint32_t signal) {
    MutexLock hold(lock_);
    set_[signal - 1] = true;
    changed_.notify_all();
  }
  void wait_and_clear(uint32_t signal, timing::Deadline deadline) {
    MutexLock hold(lock_);
    const bool known = signal >= 1 && signal <= set_.size();
    while (!(known && set_[signal - 1]) && changed_.wait_until(lock_, deadline)) {
    }
    if (known) set_[signal - 1] = false;
  }

 private:
  Mutex lock_;
  Condition changed_;
  std::vector<bool> set_ GUARDED_BY(lock_);
};

const qmi::Message* find_message(qmi_idl_service_object_type service,
                                 qmi_idl_type_of_message_type type, unsigned int msg_id) {
  return service != nullptr ? service->find(static_cast<qmi::Kind>(type), msg_id) : nullptr;
}

qmi_client_error_type opened(qmi_idl_service_object_type service, qmi_client_error_type result)
    REQUIRES(qmi::bus_lock) {
  for (qmi::Observer* observer : qmi::observers()) observer->on_opened(*service, result);
  return result;
}

qmi_client_error_type open_client(qmi_idl_service_object_type service, qmi::Address server,
                                  qmi_client_ind_cb ind_cb, void* ind_cb_data,
                                  qmi_client_type* handle) {
  const qmi_client_type number = Handles::instance().reserve();
  const auto client =
      std::make_shared<qmi::ServiceClient>(number, service, server, ind_cb, ind_cb_data);
  Handles::instance().put(number, client);
  const auto error = client->start();
  {
    MutexLock hold(qmi::bus_lock);
    opened(service, error);
  }
  if (error == QMI_NO_ERR) {
    *handle = number;
  } else {
    qmi_client_release(number);
  }
  return error;
}

}  // namespace

qmi_client_error_type qmi_client_notifier_init(qmi_idl_service_object_type service,
                                               qmi_client_os_params* os_params,
                                               qmi_client_type* notifier) {
  if (notifier != nullptr) *notifier = nullptr;
  if (service == nullptr || os_params == nullptr || notifier == nullptr) return QMI_INTERNAL_ERR;
  if (os_params->signal == 0) os_params->signal = Signals::instance().make();
  const qmi_client_type number = Handles::instance().reserve();
  const auto target = std::make_shared<qmi::Notifier>(
      number, service, [signal = os_params->signal] { Signals::instance().set(signal); });
  {
    MutexLock hold(qmi::bus_lock);
    const bool watched = qmi::Directory::instance().watch(*service, target, true);
    if (opened(service, watched ? QMI_NO_ERR : QMI_PORT_NOT_OPEN_ERR) != QMI_NO_ERR) {
      return QMI_PORT_NOT_OPEN_ERR;
    }
  }
  Handles::instance().put(number, target);
  *notifier = number;
  return QMI_NO_ERR;
}

qmi_client_error_type qmi_client_get_service_list(qmi_idl_service_object_type service,
                                                  qmi_service_info* list, unsigned int* num_entries,
                                                  unsigned int* num_services) {
  if (service == nullptr || num_entries == nullptr || num_services == nullptr) {
    return QMI_INTERNAL_ERR;
  }
  const unsigned int room = list != nullptr ? *num_entries : 0;
  std::vector<qmi::Server> servers;
  MutexLock hold(qmi::bus_lock);
  const auto error = opened(service, qmi::Directory::instance().list(*service, servers));
  *num_services = static_cast<unsigned int>(servers.size());
  *num_entries = std::min(room, *num_services);
  for (unsigned int i = 0; i < *num_entries; ++i) {
    const qmi::Server& server = servers[i];
    list[i] = {server.address.node, server.address.port, server.instance >> 8};
  }
  return error;
}

void qmi_cci_os_signal_wait(qmi_client_os_params* os_params, unsigned int time_out_ms) {
  const auto deadline = timing::Clock::now() + timing::scaled(time_out_ms);
  Signals::instance().wait_and_clear(os_params != nullptr ? os_params->signal : 0, deadline);
}

qmi_client_error_type qmi_client_init(qmi_service_info* info, qmi_idl_service_object_type service,
                                      qmi_client_ind_cb ind_cb, void* ind_cb_data,
                                      qmi_client_os_params*, qmi_client_type* handle) {
  if (handle != nullptr) *handle = nullptr;
  if (info == nullptr || service == nullptr || handle == nullptr) return QMI_INTERNAL_ERR;
  if (info->port == 0) return QMI_PORT_NOT_OPEN_ERR;
  return open_client(service, {info->node, info->port}, ind_cb, ind_cb_data, handle);
}

qmi_client_error_type qmi_client_init_instance(qmi_idl_service_object_type service,
                                               uint32_t instance, qmi_client_ind_cb ind_cb,
                                               void* ind_cb_data, qmi_client_os_params*,
                                               uint32_t time_out_ms, qmi_client_type* handle) {
  if (handle != nullptr) *handle = nullptr;
  if (service == nullptr || handle == nullptr) return QMI_INTERNAL_ERR;
  qmi::Server server;
  {
    MutexLock hold(qmi::bus_lock);
    const auto error = qmi::Directory::instance().find(*service, instance, time_out_ms, server);
    if (error != QMI_NO_ERR) return opened(service, error);
  }
  return open_client(service, server.address, ind_cb, ind_cb_data, handle);
}

qmi_client_error_type qmi_client_register_error_cb(qmi_client_type handle,
                                                   qmi_client_error_cb error_cb, void* cb_data) {
  const auto target = Handles::instance().get(handle);
  if (target == nullptr) return QMI_PORT_NOT_OPEN_ERR;
  return target->set_error_cb(error_cb, cb_data);
}

qmi_client_error_type qmi_client_register_notify_cb(qmi_client_type notifier,
                                                    qmi_client_notify_cb notify_cb, void* cb_data) {
  const auto target = Handles::instance().get(notifier);
  if (target == nullptr) return QMI_PORT_NOT_OPEN_ERR;
  return target->set_notify_cb(notify_cb, cb_data);
}

qmi_client_error_type qmi_client_send_msg_sync(qmi_client_type handle, unsigned int msg_id,
                                               void* req, unsigned int req_len, void* resp,
                                               unsigned int resp_len, unsigned int time_out_ms) {
  const auto target = Handles::instance().get(handle);
  if (target == nullptr) return QMI_PORT_NOT_OPEN_ERR;
  if (msg_id > UINT16_MAX) return QMI_INTERNAL_ERR;
  return target->send_sync(static_cast<uint16_t>(msg_id), req, req_len, resp, resp_len,
                           time_out_ms);
}

qmi_client_error_type qmi_client_message_decode(qmi_client_type handle,
                                                qmi_idl_type_of_message_type type,
                                                unsigned int msg_id, const void* buf,
                                                unsigned int len, void* c_struct,
                                                unsigned int c_struct_len) {
  const auto target = Handles::instance().get_for_callback(handle);
  if (target == nullptr) return QMI_PORT_NOT_OPEN_ERR;
  const qmi::Message* message = find_message(&target->service, type, msg_id);
  if (message == nullptr || c_struct == nullptr || c_struct_len < message->c_bytes ||
      (buf == nullptr && len > 0)) {
    return QMI_INTERNAL_ERR;
  }
  const std::span body(static_cast<const uint8_t*>(buf), len);
  return qmi::decode(*message, body, c_struct) ? QMI_NO_ERR : QMI_INTERNAL_ERR;
}

qmi_client_error_type qmi_idl_get_message_c_struct_len(qmi_idl_service_object_type service,
                                                       qmi_idl_type_of_message_type type,
                                                       unsigned int msg_id, uint32_t* len) {
  const qmi::Message* message = find_message(service, type, msg_id);
  if (len != nullptr) *len = message != nullptr ? message->c_bytes : 0;
  return message != nullptr && len != nullptr ? QMI_NO_ERR : QMI_INTERNAL_ERR;
}

qmi_client_error_type qmi_client_release(qmi_client_type handle) {
  const auto target = Handles::instance().retire(handle);
  if (target == nullptr) return QMI_PORT_NOT_OPEN_ERR;
  target->release();
  Handles::instance().erase(handle);
  return QMI_NO_ERR;
}
