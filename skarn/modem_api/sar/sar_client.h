// The framework's client of the SAR service: it only follows whether the service is there.
#pragma once

#include "modem_api/modem_api.h"

// Forgets everything; to be called before anything else.
void sar_init();
void sar_client_set_operational_status_callback(modem_api_status_report_cb status_cb);

// Connects; false when the service cannot be reached in 10 attempts, a second apart.
bool sar_client_init(modem_api_event_cb event_cb);
void sar_client_release();

// For the QMI library: an asynchronous response, an indication, the loss of the service.
void sar_client_command_cb(qmi_client_type handle, unsigned int msg_id, void* resp,
                           unsigned int resp_len, void* record, int transport_error);
void sar_client_unsol_ind_cb(qmi_client_type handle, unsigned int msg_id, void* buf,
                             unsigned int len, void* cb_data);
void sar_client_service_down_event(qmi_client_type handle, qmi_client_error_type error,
                                   void* cb_data);
