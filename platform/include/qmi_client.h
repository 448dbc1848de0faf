// The QMI client library: finds services, opens clients of them, exchanges messages.
//
// Callbacks run on threads of the library, never on the caller's; those of one handle run one at
// a time and in order. All calls may be made from any thread, from callbacks too.
#pragma once

#include <cstdint>

#include "qmi_message.h"

// A handle is a small number in a pointer's clothes, counted from 1; null is no client. A null,
// unknown or released handle is answered with QMI_PORT_NOT_OPEN_ERR and never touched.
using qmi_client_type = void*;

using qmi_client_error_type = int;
enum : qmi_client_error_type {
  QMI_NO_ERR = 0,
  QMI_INTERNAL_ERR = -1,       // wrong arguments, or a message that does not match its table
  QMI_SERVICE_ERR = -2,        // no such service, or it went away
  QMI_TIMEOUT_ERR = -3,        // no answer, or no service, in time
  QMI_EXTENDED_ERR = -4,       // the operating system refused something
  QMI_PORT_NOT_OPEN_ERR = -5,  // no such handle, or no modem can be reached at all
};

enum qmi_idl_type_of_message_type {
  QMI_IDL_REQUEST = 0,
  QMI_IDL_RESPONSE = 2,
  QMI_IDL_INDICATION = 4,
};

// One running server of a service, as qmi_client_get_service_list reports it.
struct qmi_service_info {
  uint32_t node;
  uint32_t port;  // 0: no server
  uint32_t instance;
};

inline constexpr uint32_t QMI_CLIENT_INSTANCE_ANY = 0xFFFF;

// What a notifier signals through. Starts zeroed; the library fills it in and keeps no pointer.
struct qmi_client_os_params {
  uint32_t signal;
};

enum qmi_client_notify_event_type {
  QMI_CLIENT_SERVICE_COUNT_INC = 0,  // a server of the service is there
  QMI_CLIENT_SERVICE_COUNT_DEC = 1,  // a server of the service is gone
};

// `buf` holds the `len` encoded bytes of the indication and is the library's; decode it with
// qmi_client_message_decode before returning.
using qmi_client_ind_cb = void (*)(qmi_client_type handle, unsigned int msg_id, void* buf,
                                   unsigned int len, void* cb_data);
using qmi_client_error_cb = void (*)(qmi_client_type handle, qmi_client_error_type error,
                                     void* cb_data);
using qmi_client_notify_cb = void (*)(qmi_client_type handle, qmi_idl_service_object_type service,
                                      qmi_client_notify_event_type event, void* cb_data);

// Watches a service: whenever a server of it comes or goes, the signal of `os_params` is set and
// the callback of qmi_client_register_notify_cb is called. Released by qmi_client_release.
// 0, QMI_INTERNAL_ERR or QMI_PORT_NOT_OPEN_ERR.
qmi_client_error_type qmi_client_notifier_init(qmi_idl_service_object_type service,
                                               qmi_client_os_params* os_params,
                                               qmi_client_type* notifier);

// Reports the running servers whose version is the service's: at most `*num_entries` of them into
// `list` (which may be null), the number stored in `*num_entries`, the number found in
// `*num_services`. Waits only for the name service to answer. 0; QMI_SERVICE_ERR with both counts
// 0 when there is none; QMI_PORT_NOT_OPEN_ERR.
qmi_client_error_type qmi_client_get_service_list(qmi_idl_service_object_type service,
                                                  qmi_service_info* list, unsigned int* num_entries,
                                                  unsigned int* num_services);

// Waits until the signal is set, or for `time_out_ms`, and clears it.
void qmi_cci_os_signal_wait(qmi_client_os_params* os_params, unsigned int time_out_ms);

// Opens a client of one server from qmi_client_get_service_list. `ind_cb` may be null.
// `os_params` is not used. 0 with `*handle` set; else `*handle` is null: QMI_PORT_NOT_OPEN_ERR for
// a zeroed entry, QMI_SERVICE_ERR when the server cannot be reached.
qmi_client_error_type qmi_client_init(qmi_service_info* info, qmi_idl_service_object_type service,
                                      qmi_client_ind_cb ind_cb, void* ind_cb_data,
                                      qmi_client_os_params* os_params, qmi_client_type* handle);

// Opens a client of the first server of a service, waiting up to `time_out_ms` for a service that
// is not there. `instance` other than QMI_CLIENT_INSTANCE_ANY asks for that one. 0 with `*handle`
// set; else null: QMI_TIMEOUT_ERR when no server came, or the errors of qmi_client_init.
qmi_client_error_type qmi_client_init_instance(qmi_idl_service_object_type service,
                                               uint32_t instance, qmi_client_ind_cb ind_cb,
                                               void* ind_cb_data, qmi_client_os_params* os_params,
                                               uint32_t time_out_ms, qmi_client_type* handle);

// Sets the callback for the loss of the service; it is called with QMI_SERVICE_ERR, at once when
// the service is already gone.
qmi_client_error_type qmi_client_register_error_cb(qmi_client_type handle,
                                                   qmi_client_error_cb error_cb, void* cb_data);

// Sets the callback of a notifier. A service that is there already is reported at once.
qmi_client_error_type qmi_client_register_notify_cb(qmi_client_type notifier,
                                                    qmi_client_notify_cb notify_cb, void* cb_data);

// Sends a request and waits for its response. `req` and `resp` are the C structures of the message;
// `req_len` and `resp_len` their sizes. 0 with `resp` filled; QMI_TIMEOUT_ERR after `time_out_ms`;
// QMI_SERVICE_ERR when the service goes away; QMI_INTERNAL_ERR for an unknown message, wrong sizes
// or a malformed response. `resp` is untouched unless a response arrived; of a malformed one it
// holds nothing. Callbacks of the handle for what arrived before the response, or the end of the
// wait, have run when this returns, unless it is called from a callback; one that does not end is
// waited for 3 s, so a lock that a callback takes should not be held over this.
qmi_client_error_type qmi_client_send_msg_sync(qmi_client_type handle, unsigned int msg_id,
                                               void* req, unsigned int req_len, void* resp,
                                               unsigned int resp_len, unsigned int time_out_ms);

// Decodes the `len` bytes at `buf` into the C structure `c_struct` of `c_struct_len` bytes.
// 0, or QMI_INTERNAL_ERR with the structure cleared.
qmi_client_error_type qmi_client_message_decode(qmi_client_type handle,
                                                qmi_idl_type_of_message_type type,
                                                unsigned int msg_id, const void* buf,
                                                unsigned int len, void* c_struct,
                                                unsigned int c_struct_len);

// Size of a message's C structure into `*len`. 0, or QMI_INTERNAL_ERR with 0 for an unknown one.
qmi_client_error_type qmi_idl_get_message_c_struct_len(qmi_idl_service_object_type service,
                                                       qmi_idl_type_of_message_type type,
                                                       unsigned int msg_id, uint32_t* len);

// Closes a client or notifier. Callbacks for what arrived before the last response still run, none
// runs any more once this has returned; called from a callback of the same handle it does not wait.
// Two callbacks must not release each other's handles: each would wait for the other.
qmi_client_error_type qmi_client_release(qmi_client_type handle);
