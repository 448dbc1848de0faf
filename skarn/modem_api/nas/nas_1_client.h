// The framework's client of the NAS service for subscription 1.
#pragma once

#include "modem_api/modem_api.h"

// Forgets everything; to be called before anything else.
void nas_1_init();
void nas_1_client_set_operational_status_callback(modem_api_status_report_cb status_cb);

// Connects; false when the service cannot be reached in 10 attempts, a second apart.
bool nas_1_client_init(modem_api_event_cb event_cb);
void nas_1_client_release();

// Sends a request and waits up to 30 s: the QMI library's result.
int nas_1_client_send_msg_sync(unsigned int msg_id, void* req, unsigned int req_len, void* resp,
                               unsigned int resp_len);

// For the QMI library: an asynchronous response, an indication, the loss of the service.
void nas_1_client_command_cb(qmi_client_type handle, unsigned int msg_id, void* resp,
                             unsigned int resp_len, void* record, int transport_error);
void nas_1_client_unsol_ind_cb(qmi_client_type handle, unsigned int msg_id, void* buf,
                               unsigned int len, void* cb_data);
void nas_1_client_service_down_event(qmi_client_type handle, qmi_client_error_type error,
                                     void* cb_data);
