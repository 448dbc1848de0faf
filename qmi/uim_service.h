// The published UIM service, id 0x0B: the messages this program uses.
#pragma once

#include <cstdint>

#include "qmi_message.h"

inline constexpr uint16_t QMI_UIM_GET_CARD_STATUS_REQ_V01 = 0x002F;
inline constexpr uint16_t QMI_UIM_POWER_DOWN_REQ_V01 = 0x0030;
inline constexpr uint16_t QMI_UIM_POWER_UP_REQ_V01 = 0x0031;
inline constexpr uint16_t QMI_UIM_SEND_APDU_REQ_V01 = 0x003B;
inline constexpr uint16_t QMI_UIM_LOGICAL_CHANNEL_REQ_V01 = 0x003F;
inline constexpr uint16_t QMI_UIM_OPEN_LOGICAL_CHANNEL_REQ_V01 = 0x0042;
inline constexpr uint16_t QMI_UIM_GET_EID_REQ_V01 = 0x0065;

// How much of a status is kept, and how long the lists of bytes may be.
inline constexpr unsigned int kUimMaxSessions = 16;
inline constexpr unsigned int kUimMaxCards = 5;
inline constexpr unsigned int kUimMaxApps = 10;
inline constexpr unsigned int kUimMaxAid = 32;
inline constexpr unsigned int kUimMaxApdu = 1024;
inline constexpr unsigned int kUimMaxSelectResponse = 255;
inline constexpr unsigned int kUimEidBytes = 16;

enum uim_card_state_enum_v01 : uint32_t {
  UIM_CARD_STATE_ABSENT_V01 = 0,
  UIM_CARD_STATE_PRESENT_V01 = 1,
  UIM_CARD_STATE_ERROR_V01 = 2,
};

struct uim_app_info_v01 {
  uint32_t app_type;       // 1 SIM, 2 USIM, 3 RUIM, 4 CSIM, 5 ISIM
  uint32_t app_state;      // 0 unknown to 7 ready
  uint32_t perso_state;    // 2 ready
  uint32_t perso_feature;  // 11 unknown
  uint8_t perso_retries;
  uint8_t perso_unblock_retries;
  uint32_t aid_len;
  uint8_t aid[kUimMaxAid];
  uint8_t upin_replaces_pin1;
  uint32_t pin1_state;  // 0 not initialized, 1 not verified, 2 verified, 3 disabled, 4 blocked
  uint8_t pin1_num_retries;
  uint8_t puk1_num_retries;
  uint32_t pin2_state;
  uint8_t pin2_num_retries;
  uint8_t puk2_num_retries;
};

struct uim_card_info_v01 {
  uint32_t card_state;  // uim_card_state_enum_v01
  uint32_t upin_state;
  uint8_t upin_num_retries;
  uint8_t upuk_num_retries;
  uint32_t error_code;  // 1: powered down
  uint32_t app_info_len;
  uim_app_info_v01 app_info[kUimMaxApps];
};

// The plain status. An index names a card in its high byte and an application in its low one;
// 0xFFFF is none.
struct uim_card_status_v01 {
  uint16_t index_gw_pri;
  uint16_t index_1x_pri;
  uint16_t index_gw_sec;
  uint16_t index_1x_sec;
  uint32_t card_info_len;
  uim_card_info_v01 card_info[kUimMaxCards];
};

// Where a session's application is: card and application, both from 0; 0xFF and 0xFF is nowhere.
struct uim_session_v01 {
  uint8_t slot;
  uint8_t application;
};

struct uim_extended_card_status_v01 {
  uint32_t index_gw_len;
  uim_session_v01 index_gw[kUimMaxSessions];
  uint32_t index_1x_len;
  uim_session_v01 index_1x[kUimMaxSessions];
  uint32_t card_info_len;
  uim_card_info_v01 card_info[kUimMaxCards];
};

struct uim_get_card_status_req_msg_v01 {
  uint8_t extended_card_status_valid;
  uint8_t extended_card_status;  // 1 asks for the extended status
};

struct uim_get_card_status_resp_msg_v01 {
  qmi_response_type_v01 resp;
  uint8_t card_status_valid;
  uim_card_status_v01 card_status;
  uint8_t extended_card_status_valid;
  uim_extended_card_status_v01 extended_card_status;
};

struct uim_power_down_req_msg_v01 {
  uint32_t slot;
};

struct uim_power_down_resp_msg_v01 {
  qmi_response_type_v01 resp;
};

struct uim_power_up_req_msg_v01 {
  uint32_t slot;
  uint8_t ignore_hot_swap_switch_valid;
  uint8_t ignore_hot_swap_switch;
  uint8_t mode_valid;
  uint32_t mode;
};

struct uim_power_up_resp_msg_v01 {
  qmi_response_type_v01 resp;
};

struct uim_send_apdu_req_msg_v01 {
  uint32_t slot;
  uint32_t apdu_len;
  uint8_t apdu[kUimMaxApdu];
  uint8_t channel_id_valid;
  uint8_t channel_id;
  uint8_t procedure_bytes_valid;
  uint8_t procedure_bytes;
};

// What stands in place of an answer that is too long for one message: it follows in indications.
struct uim_long_apdu_v01 {
  uint16_t total_length;
  uint32_t token;
};

struct uim_send_apdu_resp_msg_v01 {
  qmi_response_type_v01 resp;
  uint8_t apdu_valid;
  uint32_t apdu_len;
  uint8_t apdu[kUimMaxApdu];  // with the two status bytes
  uint8_t long_apdu_valid;
  uim_long_apdu_v01 long_apdu;
};

struct uim_logical_channel_req_msg_v01 {
  uint32_t slot;
  uint8_t aid_valid;
  uint32_t aid_len;
  uint8_t aid[kUimMaxAid];
  uint8_t channel_id_valid;
  uint8_t channel_id;  // present: the channel to close
  uint8_t file_control_information_valid;
  uint8_t file_control_information;
  uint8_t terminate_application_valid;
  uint8_t terminate_application;
};

struct uim_logical_channel_resp_msg_v01 {
  qmi_response_type_v01 resp;
};

struct uim_card_result_v01 {
  uint8_t sw1;
  uint8_t sw2;
};

struct uim_open_logical_channel_req_msg_v01 {
  uint32_t slot;
  uint8_t aid_valid;
  uint32_t aid_len;
  uint8_t aid[kUimMaxAid];
  uint8_t file_control_information_valid;
  uint32_t file_control_information;  // 0 none, 1 FCP, 2 FCI, 3 FCI with interfaces, 4 FMD
};

struct uim_open_logical_channel_resp_msg_v01 {
  qmi_response_type_v01 resp;
  uint8_t channel_id_valid;
  uint8_t channel_id;
  uint8_t card_result_valid;
  uim_card_result_v01 card_result;
  uint8_t select_response_valid;
  uint32_t select_response_len;
  uint8_t select_response[kUimMaxSelectResponse];
};

struct uim_get_eid_req_msg_v01 {
  uint32_t slot;
};

struct uim_get_eid_resp_msg_v01 {
  qmi_response_type_v01 resp;
  uint8_t eid_valid;
  uint32_t eid_len;
  uint8_t eid[kUimEidBytes];  // two digits a byte, the first in the high nibble
};

// The description of the service, or null for any version but (1, 109, 6).
qmi_idl_service_object_type uim_get_service_object_internal_v01(uint32_t major, uint32_t minor,
                                                                uint32_t library_version);
