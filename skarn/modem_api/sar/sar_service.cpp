#include "modem_api/sar/sar_service.h"

namespace {

using namespace qmi;

// clang-format off

using rf_get_state_resp = sar_rf_get_state_resp_msg_v01;

constexpr Field kRfGetStateResp[] = {
  { 0x02, Required, Result, QMI_FIELD(rf_get_state_resp, resp)            },
  { 0x10, Optional, U32,    QMI_OPTIONAL(rf_get_state_resp, sar_rf_state) },
};

constexpr Message kMessages[] = {
  { Kind::Request,  0x02, "rf_get_state" },
  { Kind::Response, 0x02, "rf_get_state", 14, sizeof(rf_get_state_resp), kRfGetStateResp },
  { Kind::Indication, 0x03, "rf_state", sizeof(sar_opaque_ind_msg_v01) },  // (*) number
};

// clang-format on

static_assert(sizeof(rf_get_state_resp) == 40);

constexpr qmi_idl_service_object kService = {
    .name = "sar",
    .service_id = 0x11,
    .major_version = 1,
    .minor_version = 15,
    .library_version = 6,
    .wire_max = 14,
    .messages = kMessages,
};

}  // namespace

qmi_idl_service_object_type sar_get_service_object_internal_v01(int major, int minor, int library) {
  return kService.if_version(major, minor, library);
}
