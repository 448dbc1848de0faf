// The published NAS service, id 0x03: the messages this program uses, of 226 that it has.
#pragma once

#include <cstdint>

#include "qmi_message.h"

inline constexpr uint16_t QMI_NAS_INDICATION_REGISTER_REQ_MSG_V01 = 0x0003;
inline constexpr uint16_t QMI_NAS_PERFORM_NETWORK_SCAN_REQ_MSG_V01 = 0x0021;
inline constexpr uint16_t QMI_NAS_BIND_SUBSCRIPTION_REQ_MSG_V01 = 0x0045;
inline constexpr uint16_t QMI_NAS_PERFORM_INCREMENTAL_NETWORK_SCAN_REQ_MSG_V01 = 0x0085;

enum nas_scan_scope_enum_v01 : uint32_t { NAS_SCAN_SCOPE_FULL_BAND_V01 = 0 };

// How many networks one message may list, and how long a name may be.
inline constexpr unsigned int kNasMaxNetworks = 60;
inline constexpr unsigned int kNasMaxName = 255;

struct nas_network_v01 {
  uint16_t mcc;
  uint16_t mnc;
  uint8_t status;  // bits: 0x01 serving, 0x02 available, 0x04 home, 0x08 roaming, 0x10 forbidden,
                   // 0x20 not forbidden, 0x40 preferred, 0x80 not preferred
  uint32_t name_len;
  uint8_t name[kNasMaxName];
};

struct nas_network_rat_v01 {
  uint16_t mcc;
  uint16_t mnc;
  uint8_t rat;  // 4 GSM, 5 UMTS, 8 LTE, 9 TD-SCDMA, 12 5G NR
};

struct nas_network_mnc_v01 {
  uint16_t mcc;
  uint16_t mnc;
  uint8_t three_digits;
};

// Of its many switches only the one that is sent is named.
struct nas_indication_register_req_msg_v01 {
  uint8_t reserved_before[4];
  uint8_t req_serving_system_valid;
  uint8_t req_serving_system;
  uint8_t reserved[171];
};

struct nas_indication_register_resp_msg_v01 {
  qmi_response_type_v01 resp;
};

struct nas_bind_subscription_req_msg_v01 {
  uint32_t subscription;  // 0 or 1
};

struct nas_bind_subscription_resp_msg_v01 {
  qmi_response_type_v01 resp;
};

// Of the scan requests only the network type is known; it is never sent.
struct nas_perform_network_scan_req_msg_v01 {
  uint8_t network_type_valid;
  uint8_t network_type;
  uint8_t reserved[270];
};

struct nas_perform_network_scan_resp_msg_v01 {
  qmi_response_type_v01 resp;
  uint8_t network_valid;
  uint32_t network_len;
  nas_network_v01 network[kNasMaxNetworks];
  uint8_t rat_valid;
  uint32_t rat_len;
  nas_network_rat_v01 rat[kNasMaxNetworks];
  uint8_t mnc_valid;
  uint32_t mnc_len;
  nas_network_mnc_v01 mnc[kNasMaxNetworks];
  uint8_t scan_result_valid;
  uint32_t scan_result;  // 0 success, 1 aborted, 2 radio link failure
  uint8_t reserved[1200];
};

struct nas_perform_incremental_network_scan_req_msg_v01 {
  uint8_t network_type_valid;
  uint8_t network_type;
  uint8_t reserved[574];
};

struct nas_perform_incremental_network_scan_resp_msg_v01 {
  qmi_response_type_v01 resp;
};

struct nas_found_network_v01 {
  uint16_t mcc;
  uint16_t mnc;
  uint8_t status;
  uint8_t rat;
  uint8_t three_digits;
  uint32_t name_len;
  uint8_t name[kNasMaxName];
};

struct nas_perform_incremental_network_scan_ind_msg_v01 {
  uint32_t scan_status;  // 0 complete, 1 partial, 2 aborted
  uint8_t network_valid;
  uint32_t network_len;
  nas_found_network_v01 network[kNasMaxNetworks];
};

// The description of the service, or null for any version but (1, 397, 6).
qmi_idl_service_object_type nas_get_service_object_internal_v01(int major, int minor, int library);
