// What the two NAS clients of the framework do besides connecting.
#pragma once

#include "modem_api/nas/nas_service.h"
#include "modem_api/service_client.h"

// The registration that switches serving-system indications off and leaves the rest alone.
inline nas_indication_register_req_msg_v01 nas_no_serving_system_indications() {
  nas_indication_register_req_msg_v01 req{};
  req.req_serving_system_valid = 1;
  return req;
}

inline constexpr uint32_t kNasTimeOutMs = 30000;

// Binds a connection to subscription `sub`. Whether it worked is not looked at; a null handle is
// the library's to refuse.
template <uint32_t sub>
void nas_bind_subscription(qmi_client_type handle) {
  nas_bind_subscription_req_msg_v01 req{.subscription = sub};
  nas_bind_subscription_resp_msg_v01 resp{};
  qmi_client_send_msg_sync(handle, QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01, &req, sizeof req, &resp,
                           sizeof resp, kNasTimeOutMs);
}

inline void nas_set_networking_indications(qmi_client_type handle,
                                           Speaker speaker = Speaker::here()) {
  auto req = nas_no_serving_system_indications();
  nas_indication_register_resp_msg_v01 resp{};
  const int error = qmi_client_send_msg_sync(handle, QMI_NAS_INDICATION_REGISTER_REQ_MSG_V01, &req,
                                             sizeof req, &resp, sizeof resp, kNasTimeOutMs);
  velmor_log(LogLevel::Debug, speaker, "enable_indication result: %d", error);
}

// The named functions and the object of the client of one subscription.
// clang-format off
#define SKARN_NAS_CLIENT(sub)                                                                      \
  namespace {                                                                                      \
  extern ServiceClient g_nas;                                                                      \
  void nas_##sub##_client_set_networking_indications(qmi_client_type handle) {                     \
    nas_set_networking_indications(handle);                                                        \
  }                                                                                                \
  }                                                                                                \
  SKARN_CLIENT_FUNCTIONS(nas_##sub, g_nas)                                                         \
  SKARN_CLIENT_RECOVERY(nas_##sub, g_nas)                                                          \
  SKARN_CLIENT_REQUESTS(nas_##sub, g_nas)                                                          \
  namespace {                                                                                      \
  constinit ServiceClient g_nas({                                                                  \
      .client_type = MODEM_API_NAS_##sub,                                                          \
      .service = [] { return nas_get_service_object_internal_v01(1, 397, 6); },                    \
      .indication = nas_##sub##_client_unsol_ind_cb,                                               \
      .service_down = nas_##sub##_client_service_down_event,                                       \
      .service_up = nas_##sub##_client_service_up_event,                                           \
      .connect_name = "nas_" #sub "_client_init_client_handles",                                   \
      .suspend_name = "nas_" #sub "_client_release_qmi_client_thread",                             \
      .after_attempt = nas_bind_subscription<sub>,                                                 \
      .after_connect = nas_##sub##_client_set_networking_indications,                              \
      .handle_indication = nullptr,                                                                \
  });                                                                                              \
  }
// clang-format on
