// The payloads that message 0x02 of the extension service tunnels, for both ends of the wire. All
// are little-endian and zero-filled.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "qmi_message.h"

// What a payload is, for the modem: value of `request_id`.
inline constexpr uint32_t REQUEST_ID_EFS = 2;
inline constexpr uint32_t REQUEST_ID_COMMON = 4;

// Requests of REQUEST_ID_EFS.
inline constexpr unsigned int kNvefsDataMax = 424;  // bytes of data in one payload
inline constexpr unsigned int kNvefsPathBytes = 71;

enum class NvefsOp : uint8_t {
  NvRead = 1,
  NvWrite = 2,
  NvDelete = 3,
  EfsRead = 4,
  EfsWrite = 5,
  EfsDelete = 6,
};

// The payload of a request, always sent whole.
struct velmor_nvefs_req {
  NvefsOp op_type;
  uint8_t sub_id;
  uint16_t id;       // NV item, or the instance of an EFS write
  uint8_t path_len;  // of the path, which has no terminator
  uint8_t path[kNvefsPathBytes];
  uint32_t data_len_all;   // size of the NV item or file being written
  uint32_t data_len_send;  // bytes in this chunk of a write
  uint32_t data_len_cur;   // offset in the file
  uint8_t data[kNvefsDataMax];
};
static_assert(sizeof(velmor_nvefs_req) == 512);

// The payload of an answer.
struct velmor_nvefs_rsp {
  uint32_t unread_0;
  uint32_t data_len_all;   // size of the NV item or file
  uint32_t data_len_send;  // bytes in this chunk of a read
  uint32_t unread_12;
  int32_t result;  // 0, or an error; of an EFS write the instance (>= 0) or an error (< 0)
  uint8_t data[kNvefsDataMax];
};
static_assert(sizeof(velmor_nvefs_rsp) == 444);

// The first chunk of an EFS write has no instance yet.
inline constexpr uint16_t kNoEfsInstance = 0x00FF;

static_assert(offsetof(velmor_nvefs_req, id) == 2 && offsetof(velmor_nvefs_req, path) == 5);
static_assert(offsetof(velmor_nvefs_req, data_len_all) == 76);
static_assert(offsetof(velmor_nvefs_req, data) == 88);
static_assert(offsetof(velmor_nvefs_rsp, result) == 16 && offsetof(velmor_nvefs_rsp, data) == 20);

// Requests of REQUEST_ID_COMMON come in two forms.
inline constexpr uint32_t kCommonTypeLengthValueForm = 2;

struct velmor_common_tlv_req {
  uint32_t form = kCommonTypeLengthValueForm;
  uint32_t reserved = 0;
  uint32_t type;
  uint32_t length;
  uint8_t value[496];
};
static_assert(sizeof(velmor_common_tlv_req) == 512);
inline constexpr unsigned int kCommonTlvValueMax = 491;  // what the modem takes of `value`

struct velmor_common_direct_req {
  uint32_t type;
  uint32_t reserved = 0;
  uint8_t value[504];
};
static_assert(sizeof(velmor_common_direct_req) == 512);

// Types of common requests. The RF settings, whose values are the structures below, and the debug
// information of the statistics framework come in the direct form, the rest in the other.
inline constexpr uint32_t VELMOR_COMMON_GPIO_SET = 0;
inline constexpr uint32_t VELMOR_COMMON_TX_SET = 1;
inline constexpr uint32_t VELMOR_COMMON_STATS_DEBUG_INFO = 20;
inline constexpr uint32_t VELMOR_COMMON_STATS_UNSUPPORTED = 27;
inline constexpr uint32_t VELMOR_COMMON_MODEM_SSR = 31;
inline constexpr uint32_t VELMOR_COMMON_NV_SYNC = 35;
inline constexpr uint32_t VELMOR_COMMON_CARD_STATUS_QUERY = 39;
inline constexpr uint32_t VELMOR_COMMON_CARD_STATUS_GET = 55;
inline constexpr uint32_t VELMOR_COMMON_CARD_TYPE_QUERY = 56;
inline constexpr uint32_t VELMOR_COMMON_CARD_STATUS_SET = 57;
inline constexpr uint32_t VELMOR_COMMON_CARD_HOTSWAP_TEST = 80;
inline constexpr uint32_t VELMOR_COMMON_FULL_DUMP = 99;

inline constexpr int kMaxGpioValues = 50;

struct velmor_gpio_setting {
  int32_t count;
  int32_t values[kMaxGpioValues];
};

struct velmor_tx_setting {
  int32_t v_ant;  // 0 lower, 1 upper antenna
  int32_t v_sys;  // 0 GSM, 1 WCDMA, 2 CDMA, 3 TD-SCDMA, 4 LTE
  uint64_t v_band_list;
};
static_assert(sizeof(velmor_tx_setting) == 16);

struct velmor_card_status {
  uint32_t sub;
  uint32_t mode;     // 0 general, 1 SIM
  uint32_t set_val;  // 0 low, 1 high
};

struct velmor_hotswap_test {
  uint32_t start;
  uint32_t seconds_after_push;
  uint32_t seconds_after_pull;
  uint32_t count_push_and_pull;
};

// The answer to a common request.
struct velmor_common_rsp {
  uint32_t unread;
  int32_t result;  // 0 when the modem carried out the request
  uint8_t data[500];
};
static_assert(sizeof(velmor_common_rsp) == 508);

// What an answer carries in `data` when it has a value: the type that was asked for, the value's
// length, the value.
struct velmor_common_rsp_value {
  uint32_t type;
  uint32_t length;
  uint8_t value[492];
};
static_assert(sizeof(velmor_common_rsp_value) == sizeof(velmor_common_rsp::data));

// Whether a request has that name in the trace: "nv_write", "modem_ssr".
bool velmor_extend_is_operation(std::string_view name);

// Tells the trace what a payload is, how it is laid out, and what of it identifies the device.
qmi::Payload velmor_extend_payload_of(qmi::Kind kind, std::span<const uint8_t> request);
