// The framework's client of the vendor statistics service. It does not recover by itself.
#pragma once

#include "modem_api/modem_api.h"

// Forgets everything; to be called before anything else.
void vs_init();
void vs_client_set_operational_status_callback(modem_api_status_report_cb status_cb);

// Connects; false when the service cannot be reached in 10 attempts, a second apart.
bool vs_client_init(modem_api_event_cb event_cb);
void vs_client_release();

// Sends a request and waits up to 30 s: the QMI library's result.
int vs_client_send_msg_sync(unsigned int msg_id, void* req, unsigned int req_len, void* resp,
                            unsigned int resp_len);

// For the QMI library: an asynchronous response, an indication, the loss of the service.
void vs_client_command_cb(qmi_client_type handle, unsigned int msg_id, void* resp,
                          unsigned int resp_len, void* record, int transport_error);
void vs_client_unsol_ind_cb(qmi_client_type handle, unsigned int msg_id, void* buf,
                            unsigned int len, void* cb_data);
void vs_client_service_down_event(qmi_client_type handle, qmi_client_error_type error,
                                  void* cb_data);

// Hands a decoded indication to `event_cb`, with the payload for its id below. False for an id that
// is not known.
bool vs_client_handle_indication(unsigned int msg_id, const void* decoded,
                                 modem_api_event_cb event_cb);

// What the event callback gets.
enum vs_event_id : int {
  VS_EVENT_FEATURE = 2,
  VS_EVENT_REPORT = 3,
  VS_EVENT_BYTES = 4,
  VS_EVENT_STATE = 5
};

struct vs_feature_event {
  uint32_t feature;
  uint8_t status;  // 0 or 1, as the next
  uint8_t option;
  uint8_t unused[2];
};

struct vs_report_entry {
  uint32_t id;
  uint8_t value[700];
  uint32_t value_len;
  uint16_t sub;
  uint16_t word;
};

struct vs_report_event {
  uint32_t field_01;
  vs_report_entry entries[10];
  uint32_t entry_count;
  vs_report_entry more_entries[5];
  uint32_t more_count;
  uint32_t field_11;  // 0xFFFFFFFF when the indication had none
};

struct vs_bytes_event {
  uint32_t field_01;
  uint32_t words[100];  // one byte each
  uint32_t count;
  uint16_t field_03;
  uint16_t field_04;
};

static_assert(sizeof(vs_feature_event) == 8 && sizeof(vs_report_entry) == 712);
static_assert(sizeof(vs_report_event) == 10696 && sizeof(vs_bytes_event) == 412);
