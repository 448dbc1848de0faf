#include "sim_sar.h"

#include "modem_api/sar/sar_service.h"

namespace sim {

const qmi_idl_service_object& SarService::description() const {
  return *sar_get_service_object_internal_v01(1, 15, 6);
}

uint32_t SarService::answer(qmi::Address, uint16_t, const void*, void* response, Aftermath&) {
  auto& resp = *static_cast<sar_rf_get_state_resp_msg_v01*>(response);
  const auto dsi = modem_.sar_dsi();
  resp.sar_rf_state_valid = dsi.has_value() ? 1 : 0;
  resp.sar_rf_state = dsi.value_or(0);
  return 0;
}

}  // namespace sim
