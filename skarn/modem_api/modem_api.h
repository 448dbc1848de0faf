// The statistics framework's front door: a table of clients, one a service, and the requests that
// the tool makes of the vendor statistics service.
#pragma once

#include <cstdint>

#include "qmi_client.h"

enum modem_api_client_type : int {
  MODEM_API_VS = 0,  // vendor statistics
  MODEM_API_SAR = 1,
  MODEM_API_NAS_0 = 2,  // bound to subscription 0
  MODEM_API_NAS_1 = 3,
};

// How a client stands, as its service client reports it.
enum modem_api_operational_status : int {
  MODEM_API_RELEASED = 0,
  MODEM_API_CONNECTING = 1,
  MODEM_API_INIT_FAILED = 2,
  MODEM_API_OPERATIONAL = 3,
  MODEM_API_SUSPENDING = 4,  // the service went away
  MODEM_API_SUSPENDED = 5,   // waiting for it
  MODEM_API_RESUMING = 6,    // it is back
  MODEM_API_RESUME_FAILED = 7,
};

// What a status callback is told.
inline constexpr int MODEM_API_SERVICE_UNAVAILABLE = 0x10001;
inline constexpr int MODEM_API_SERVICE_AVAILABLE = 0x10002;

// What the operations return.
enum modem_api_result : int {
  MODEM_API_OK = 0,
  MODEM_API_FAILED = 1,
  MODEM_API_END_OF_RESPONSE = 2,
  MODEM_API_NO_MEMORY = 3,  // or an empty response
  MODEM_API_NOT_SUPPORTED = 4,
  MODEM_API_INVALID_ARGUMENT = 5,
  MODEM_API_INVALID_CLIENT = 7,  // no such client, or not in the state that is needed
  MODEM_API_NOT_READY = 8,
  MODEM_API_ALREADY_CONNECTING = 9,  // a client of the type is there, but not operational
  MODEM_API_ABORTED = 10,
  MODEM_API_TIMED_OUT = 11,
  MODEM_API_TRANSPORT_FAILED = 12,
  MODEM_API_TABLE_FULL = 14,
  MODEM_API_ALREADY_CONNECTED = 15,
};

// A decoded indication; the payload is the caller's for the call only.
using modem_api_event_cb = void (*)(int event_id, void* payload, int payload_len);
// A service has become available or unavailable.
using modem_api_status_cb = void (*)(int event, int client_type);
// What service clients report to, modem_api_operational_status_cb.
using modem_api_status_report_cb = void (*)(int client_type, int operational_status);

inline constexpr int kModemApiClients = 10;
inline constexpr uint32_t kStatsMax = 10;
inline constexpr uint32_t kStatsValueMax = 700;

struct modem_stats_para_entry {
  uint16_t sub;
  uint16_t word;
  uint32_t id;
  uint32_t value_len;
  uint8_t value[kStatsValueMax];
};

// Statistics to ask for, and those that came.
struct modem_stats_para_data {
  uint32_t para_num;  // 1 to 10
  modem_stats_para_entry entries[kStatsMax];
};

// Begin and end the use of the framework. Both forget all clients without disconnecting them, so
// that comes first. 0.
int modem_api_init();
int modem_api_release();

// Registers and connects a client; a failed attempt leaves nothing behind. 0, with its id, 0 to 9,
// in `*client_id_out`.
int modem_api_init_client(int client_type, modem_api_event_cb event_cb,
                          modem_api_status_cb status_cb, int* client_id_out);

// Disconnects and forgets a client. 0, also for one that is free already; 7 for an id out of range.
int modem_api_free_client(int client_id);

// For the service clients. Runs on whichever thread learned of the change.
void modem_api_operational_status_cb(int client_type, int operational_status);

// Switches the serving-system indications of a NAS client off, of subscription 0 when `nas_index`
// is 0, else 1.
int modem_api_util_enable_networking_indications(int client_id, int nas_index);

// `transport_error` is the QMI library's result of the send.
int modem_api_map_qmi_error_to_modem_api(int transport_error, const qmi_response_type_v01* resp);

// Switches a feature of the statistics service.
int modem_api_set_skarn_feature_status(int client_id, uint32_t feature, uint8_t status,
                                       uint8_t option_present, uint8_t option);

// Asks for the statistics that `data` names by id and puts those that came in their place.
int modem_api_get_stats_parameter(int client_id, uint16_t sub, uint16_t slot,
                                  modem_stats_para_data* data);

// Receives the response of an asynchronous request: its data (the callback's to free with
// skarn_free_adv), then null data with status MODEM_API_END_OF_RESPONSE; or one call with an error.
using modem_api_response_cb = void (*)(void* data, int data_len, void* user, int status);
struct modem_api_response_record {
  modem_api_response_cb callback;
  void* user;
};

// Delivers one and frees `resp` and `record`, both from skarn_malloc_adv.
void modem_api_process_response(unsigned int msg_id, void* resp, unsigned int resp_len,
                                modem_api_response_record* record, int transport_error);
