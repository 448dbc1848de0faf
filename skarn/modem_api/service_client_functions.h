// The named functions of one client of the statistics framework: each does no more than call the
// client's object, but the log shows its name.
//
// SKARN_CLIENT_FUNCTIONS(prefix, object) defines those that every client has; a client that
// recovers by itself adds SKARN_CLIENT_RECOVERY, one that sends requests SKARN_CLIENT_REQUESTS.
#pragma once

#include "modem_api/service_client.h"

// clang-format off
#define SKARN_CLIENT_FUNCTIONS(prefix, object)                                                     \
  void prefix##_init() { (object).reset(); }                                                       \
  void prefix##_client_set_operational_status_callback(modem_api_status_report_cb status_cb) {     \
    (object).set_status_callback(status_cb);                                                       \
  }                                                                                                \
  bool prefix##_client_init(modem_api_event_cb event_cb) { return (object).init(event_cb); }       \
  void prefix##_client_release() { (object).release(); }                                           \
  void prefix##_client_command_cb(qmi_client_type, unsigned int msg_id, void* resp,                \
                                  unsigned int resp_len, void* record, int transport_error) {      \
    modem_api_process_response(msg_id, resp, resp_len,                                             \
                               static_cast<modem_api_response_record*>(record), transport_error);  \
  }                                                                                                \
  void prefix##_client_unsol_ind_cb(qmi_client_type handle, unsigned int msg_id, void* buf,        \
                                    unsigned int len, void*) {                                     \
    (object).on_indication(handle, msg_id, buf, len);                                              \
  }                                                                                                \
  void prefix##_client_service_down_event(qmi_client_type, qmi_client_error_type error, void*) {   \
    (object).on_service_down(error);                                                               \
  }

#define SKARN_CLIENT_RECOVERY(prefix, object)                                                      \
  void prefix##_client_service_up_event(qmi_client_type, qmi_idl_service_object_type,              \
                                        qmi_client_notify_event_type event, void*) {               \
    (object).on_service_up(event);                                                                 \
  }

#define SKARN_CLIENT_REQUESTS(prefix, object)                                                      \
  int prefix##_client_send_msg_sync(unsigned int msg_id, void* req, unsigned int req_len,          \
                                    void* resp, unsigned int resp_len) {                           \
    return (object).send(msg_id, req, req_len, resp, resp_len);                                    \
  }
// clang-format on
