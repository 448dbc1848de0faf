#include <stdint.h>

#include "modem_api/nas/nas_service.h"
#include "utilities/velmor_log.h"
#include "velmor_extend_cmn.h"

void (*g_velmor_nas_release_hook)(bool released);

namespace {

constexpr uint32_t kConnectMs = 5000;

// The client of the request that is running, null between requests.
qmi_client_type qmi_client_ptr;

void velmor_qmi_client_init() {
  VELMOR_LOG_DEBUG("init qmi_client");
  qmi_client_type handle = nullptr;
  qmi_client_os_params os_params{};
  const qmi_client_error_type error = qmi_client_init_instance(
      nas_get_service_object_internal_v01(1, 397, 6), QMI_CLIENT_INSTANCE_ANY,
      velmor_qmi_client_unsol_ind_cb, nullptr, &os_params, kConnectMs, &handle);
  if (error != QMI_NO_ERR) {
    VELMOR_LOG_DEBUG("velmor_qmi_client_init instance failed, qmi_client_error = %d", error);
    return;
  }
  VELMOR_LOG_DEBUG("qmi_svc_client %p", handle);
  if (qmi_client_register_error_cb(handle, velmor_qmi_client_error_cb, nullptr) != QMI_NO_ERR) {
    VELMOR_LOG_DEBUG("qmi_client_register_error_cb failed");
  }
  qmi_client_ptr = handle;
}

void velmor_qmi_client_recovery() {
  VELMOR_LOG_DEBUG("velmor_qmi_client_recovery, qmi_client_ptr %p", qmi_client_ptr);
  if (qmi_client_ptr == nullptr) {
    VELMOR_LOG_DEBUG("qmi_client_ptr is NULL");
    return;
  }
  if (g_velmor_nas_release_hook != nullptr) g_velmor_nas_release_hook(false);
  if (qmi_client_release(qmi_client_ptr) != QMI_NO_ERR) {
    VELMOR_LOG_DEBUG("qmi_client_release failed");
  }
  if (g_velmor_nas_release_hook != nullptr) g_velmor_nas_release_hook(true);
  qmi_client_ptr = nullptr;
}

// Sends on the open client, after opening one. -1 when that cannot be, else the library's result.
int send_on_fresh_client(unsigned int msg_id, void* req, unsigned int req_len, void* resp,
                         unsigned int resp_len, unsigned int time_out_ms, Speaker speaker) {
  const auto refuse = [&](const char* why) {
    velmor_log(LogLevel::Debug, speaker, "%s", why);
    return -1;
  };
  if (req == nullptr) return refuse("qmi_request is NULL");
  if (resp == nullptr) return refuse("qmi_response is NULL");
  if (qmi_client_ptr == nullptr) velmor_qmi_client_init();
  if (qmi_client_ptr == nullptr) return refuse("qmi_client_ptr is NULL");
  const qmi_client_error_type error =
      qmi_client_send_msg_sync(qmi_client_ptr, msg_id, req, req_len, resp, resp_len, time_out_ms);
  if (error != QMI_NO_ERR) {
    velmor_log(LogLevel::Debug, speaker, "qmi_client_send_msg_sync fail, qmi_client_error = %d",
               error);
  }
  return error;
}

}  // namespace

int velmor_send_nas_qmi_req_msg(unsigned int msg_id, void* req, unsigned int req_len, void* resp,
                                unsigned int resp_len, unsigned int time_out_ms) {
  LogScope scope;
  VELMOR_LOG_DEBUG(
      "velmor_send_nas_qmi_req_msg, msg_id = %d, time_out_ms = %d, qmi_client_ptr = 0x%08x",
      static_cast<int>(msg_id), static_cast<int>(time_out_ms),
      static_cast<unsigned int>(reinterpret_cast<uintptr_t>(qmi_client_ptr)));
  const int result =
      send_on_fresh_client(msg_id, req, req_len, resp, resp_len, time_out_ms, Speaker::here());
  velmor_qmi_client_recovery();
  return result;
}
