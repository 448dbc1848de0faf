// The vendor extension service, id 0xFFE4: the C structures and tables of its messages.
// Message 0x02 tunnels opaque payloads (velmor_extend_payload.h).
#pragma once

#include <cstdint>

#include "qmi_message.h"

inline constexpr uint32_t kExtendDataBytes = 512;  // payload of the data messages

inline constexpr uint16_t kExtendSendDataMsg = 0x02;
inline constexpr uint16_t kExtendDataInd = 0x03;

struct velmor_extend_send_data_req_msg_v01 {
  uint32_t request_id;
  uint32_t data_len;  // meaningful bytes of data; the wire carries all 512
  uint8_t data_valid;
  uint8_t data[kExtendDataBytes];
};

struct velmor_extend_send_data_resp_msg_v01 {
  uint32_t result;  // 0: the service accepted the request
  uint32_t data_len;
  uint8_t data_valid;
  uint8_t data[kExtendDataBytes];
};

// As request 0x02, and an option.
struct velmor_extend_option_data_req_msg_v01 {
  uint32_t request_id;
  uint32_t data_len;
  uint8_t data_valid;
  uint8_t data[kExtendDataBytes];
  uint8_t option_valid;
  uint8_t option;
};

struct velmor_extend_two_words_msg_v01 {
  uint32_t first;
  uint32_t second;
};

struct velmor_extend_data_ind_msg_v01 {
  uint32_t ind_id;
  uint32_t data_len;
  uint8_t data_valid;
  uint8_t data[kExtendDataBytes];
};

struct velmor_extend_item_a_type_v01 {
  uint64_t id;
  uint32_t values[12];
};

struct velmor_extend_item_b_type_v01 {
  uint64_t id;
  uint32_t values[4];
};

struct velmor_extend_item_list_type_v01 {
  uint32_t items_len;
  velmor_extend_item_b_type_v01 items[5];
};

struct velmor_extend_items_req_msg_v01 {
  uint32_t first;
  uint32_t second;
  velmor_extend_item_b_type_v01 items[64];
};

struct velmor_extend_items_a_ind_msg_v01 {
  uint32_t first;
  uint32_t second;
  velmor_extend_item_a_type_v01 items[20];
};

struct velmor_extend_item_lists_ind_msg_v01 {
  uint32_t first;
  uint32_t second;
  velmor_extend_item_list_type_v01 lists[10];
};

struct velmor_extend_item_b_ind_msg_v01 {
  uint32_t first;
  velmor_extend_item_b_type_v01 item;
};

struct velmor_extend_words_ind_msg_v01 {
  uint32_t first;
  uint32_t second;
  uint64_t words[50];
};

// The description of the service, or null for any version but (1, 1, 6).
qmi_idl_service_object_type velmor_extend_get_service_object_internal_v01(int major, int minor,
                                                                          int library);
