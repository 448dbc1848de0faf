// The vendor statistics service, id 0xE4. Fields whose meaning is not known are named after their
// TLV. This program sends requests 0x0003 and 0x0207.
#pragma once

#include <cstdint>

#include "qmi_message.h"

inline constexpr uint16_t kVsSetFeatureMsg = 0x0003;
inline constexpr uint16_t kVsFeatureInd = 0x0004;
inline constexpr uint16_t kVsReportInd = 0x0203;
inline constexpr uint16_t kVsBytesInd = 0x0204;
inline constexpr uint16_t kVsGetStatsMsg = 0x0207;
inline constexpr uint16_t kVsStateInd = 0x0601;

inline constexpr unsigned int kVsMaxValue = 700;    // bytes of a statistic
inline constexpr unsigned int kVsMaxStats = 10;     // statistics in one message
inline constexpr unsigned int kVsMaxMoreStats = 5;  // in the second list of a report
inline constexpr unsigned int kVsMaxBytes = 256;
inline constexpr unsigned int kVsMaxRawBytes = 512;
inline constexpr unsigned int kVsMaxName = 100;
inline constexpr unsigned int kVsMaxItems = 100;

// One statistic.
struct vs_stat_v01 {
  uint16_t sub;
  uint16_t word;
  uint32_t id;
  uint32_t value_len;
  uint8_t value[kVsMaxValue];
};
static_assert(sizeof(vs_stat_v01) == 712);

// An item of request 0x0201, as far as it is known.
struct vs_item_v01 {
  uint32_t word;
  uint32_t words_len;
  uint32_t words[5];
  uint8_t flag;
};

struct vs_raw_req_msg_v01 {
  uint32_t data_len;
  uint8_t data[kVsMaxRawBytes];
};

struct vs_raw_resp_msg_v01 {
  qmi_response_type_v01 resp;
  uint32_t data_len;
  uint8_t data[kVsMaxRawBytes];
};

struct vs_flags_req_msg_v01 {
  uint8_t field_10_valid;
  uint8_t field_10;
  uint8_t field_11_valid;
  uint8_t field_11;
};

struct vs_word_req_msg_v01 {
  uint32_t field_01;
};

struct vs_flags_resp_msg_v01 {
  qmi_response_type_v01 resp;
  uint8_t field_03;
  uint8_t field_04;
};

struct vs_set_feature_req_msg_v01 {
  uint32_t feature;
  uint8_t status;
  uint8_t option_valid;
  uint8_t option;
};

struct vs_by_id_req_msg_v01 {
  uint32_t field_01;
  uint8_t field_02;
  uint16_t field_03;
};

struct vs_write_by_id_req_msg_v01 {
  uint32_t field_01;
  uint8_t field_02;
  uint16_t field_03;
  uint32_t data_len;
  uint8_t data[kVsMaxBytes];
};

struct vs_by_index_req_msg_v01 {
  uint32_t field_01;
  uint16_t field_02;
};

struct vs_write_by_index_req_msg_v01 {
  uint32_t field_01;
  uint16_t field_02;
  uint32_t data_len;
  uint8_t data[kVsMaxBytes];
};

struct vs_by_name_req_msg_v01 {
  uint32_t name_len;
  uint8_t name[kVsMaxName];
  uint16_t field_02;
  uint8_t field_03;
};

struct vs_write_by_name_req_msg_v01 {
  uint32_t name_len;
  uint8_t name[kVsMaxName];
  uint16_t field_02;
  uint8_t field_03;
  uint32_t data_len;
  uint8_t data[kVsMaxBytes];
};

struct vs_write_word_req_msg_v01 {
  uint32_t field_01;
  uint32_t data_len;
  uint8_t data[kVsMaxBytes];
};

struct vs_mixed_req_msg_v01 {
  uint8_t field_01;
  uint32_t field_02;
  uint16_t field_03;
};

struct vs_switch_req_msg_v01 {
  uint8_t field_01;
  uint8_t field_10_valid;
  uint32_t field_10;
};

struct vs_switch_resp_msg_v01 {
  qmi_response_type_v01 resp;
  uint8_t field_10_valid;
  uint32_t field_10;
};

struct vs_items_req_msg_v01 {
  uint32_t field_01;
  uint32_t items_len;
  vs_item_v01 items[kVsMaxItems];
  uint8_t field_10_valid;
  uint16_t field_10;
  uint8_t field_11_valid;
  uint16_t field_11;
};

struct vs_words_req_msg_v01 {
  uint32_t field_01;
  uint32_t words_len;
  uint32_t words[kVsMaxItems];
  uint8_t field_10_valid;
  uint16_t field_10;
  uint8_t field_11_valid;
  uint16_t field_11;
};

struct vs_get_stats_req_msg_v01 {
  uint16_t sub;
  uint16_t slot;
  uint32_t stats_len;
  vs_stat_v01 stats[kVsMaxStats];
};

struct vs_get_stats_resp_msg_v01 {
  qmi_response_type_v01 resp;
  uint8_t stats_valid;
  uint32_t stats_len;
  vs_stat_v01 stats[kVsMaxStats];
};

struct vs_ids_req_msg_v01 {
  uint16_t sub;
  uint16_t slot;
  uint32_t ids_len;
  uint32_t ids[kVsMaxStats];
};

struct vs_bytes_resp_msg_v01 {
  qmi_response_type_v01 resp;
  uint32_t data_len;
  uint8_t data[kVsMaxBytes];
};

struct vs_resp_msg_v01 {
  qmi_response_type_v01 resp;
};

struct vs_feature_ind_msg_v01 {
  uint32_t feature;
  uint8_t status;
  uint8_t option;
};

struct vs_report_ind_msg_v01 {
  uint32_t field_01;
  uint32_t stats_len;
  vs_stat_v01 stats[kVsMaxStats];
  uint8_t more_stats_valid;
  uint32_t more_stats_len;
  vs_stat_v01 more_stats[kVsMaxMoreStats];
  uint8_t field_11_valid;
  uint32_t field_11;
};

struct vs_bytes_ind_msg_v01 {
  uint32_t field_01;
  uint32_t data_len;
  uint8_t data[kVsMaxItems];
  uint16_t field_03;
  uint16_t field_04;
};

struct vs_state_ind_msg_v01 {
  uint8_t state;
};

// The description of the service, or null for any version but (1, 2, 6).
qmi_idl_service_object_type vs_get_service_object_internal_v01(int major, int minor, int library);
