// The published SAR service, id 0x11: the messages this program uses.
#pragma once

#include <cstdint>

#include "qmi_message.h"

inline constexpr uint16_t QMI_SAR_RF_GET_STATE_REQ_MSG_V01 = 0x0002;

struct sar_rf_get_state_resp_msg_v01 {
  qmi_response_type_v01 resp;
  uint8_t sar_rf_state_valid;
  uint32_t sar_rf_state;  // the DSI
  uint8_t reserved[24];   // optional fields that nobody here reads
};

// An indication whose content nobody here reads.
struct sar_opaque_ind_msg_v01 {
  uint8_t unread;
};

// The description of the service, or null for any version but (1, 15, 6).
qmi_idl_service_object_type sar_get_service_object_internal_v01(int major, int minor, int library);
