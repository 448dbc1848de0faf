#include "modem_api/sar/sar_service.h"
#include "utilities/velmor_log.h"
#include "velmor_extend_cmn.h"

namespace {

constexpr uint32_t kConnectMs = 4;
constexpr uint32_t kSendTimeOutMs = 30000;

}  // namespace

int velmor_get_sar_dsi() {
  LogScope scope;
  qmi_client_type handle = nullptr;
  qmi_client_os_params os_params{};
  qmi_client_error_type error = qmi_client_init_instance(
      sar_get_service_object_internal_v01(1, 15, 6), QMI_CLIENT_INSTANCE_ANY,
      velmor_qmi_client_common_empty_unsol_ind_cb, nullptr, &os_params, kConnectMs, &handle);
  if (error != QMI_NO_ERR) {
    VELMOR_LOG_DEBUG("qmi_client_init_instance failed, qmi_client_error = %d", error);
    return -1;
  }
  sar_rf_get_state_resp_msg_v01 resp{};
  error = qmi_client_send_msg_sync(handle, QMI_SAR_RF_GET_STATE_REQ_MSG_V01, nullptr, 0, &resp,
                                   sizeof resp, kSendTimeOutMs);
  qmi_client_release(handle);
  if (error != QMI_NO_ERR) {
    VELMOR_LOG_DEBUG("qmi_client_send_msg_sync failed, qmi_client_error = %d", error);
    return -1;
  }
  VELMOR_LOG_DEBUG("dsi vailid = %d , dsi value = %d", resp.sar_rf_state_valid,
                   static_cast<int>(resp.sar_rf_state));
  return static_cast<int>(resp.sar_rf_state);
}
