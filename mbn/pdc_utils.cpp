#include "pdc_utils.h"

#include <string.h>

#include <atomic>

#include "pdc_utils_info.h"
#include "timing.h"
#include "utilities/qcril_qmi_err_utils.h"
#include "utilities/velmor_log.h"

// Never destroyed: threads of the QMI and the timer library may outlive main.
pdc_info_s_type& g_pdc_info = *new pdc_info_s_type;

namespace {

constexpr int kConnectAttempts = 20;
constexpr uint32_t kConnectMs = 4;
constexpr uint64_t kConnectPauseS = 5;
constexpr uint32_t kSendTimeOutMs = 10000;

// The follow-up of a list asks for it on another thread.
std::atomic<qmi_client_type> g_pdc_client;

// Marks a holder busy, with nothing done yet. False when it is busy already.
bool begin_request(pdc_req_type type, pdc_config_pdc_info* out = nullptr)
    EXCLUDES(g_pdc_info.mutex) {
  MutexLock hold(g_pdc_info.mutex);
  pdc_req_holder_s_type& holder = g_pdc_info.holder(type);
  if (holder.is_handling != 0) return false;
  holder.is_handling = 1;
  holder.is_done = 0;
  holder.result = PDC_FAILED;
  if (type == PDC_GET_SEL) g_pdc_info.get_sel_holder = out;
  return true;
}

void leave_holder(pdc_req_type type) REQUIRES(g_pdc_info.mutex) {
  pdc_req_holder_s_type& holder = g_pdc_info.holder(type);
  holder.is_handling = holder.is_waiting = holder.is_done = 0;
  if (type == PDC_GET_SEL) g_pdc_info.get_sel_holder = nullptr;
}

// Ends a request without waiting for its indication.
int end_unwaited(pdc_req_type type, int result) EXCLUDES(g_pdc_info.mutex) {
  MutexLock hold(g_pdc_info.mutex);
  leave_holder(type);
  return result;
}

// Waits for the indication, unless it has come already or the wait cannot be limited.
int wait_for_indication(pdc_req_type type) EXCLUDES(g_pdc_info.mutex) {
  MutexLock hold(g_pdc_info.mutex);
  pdc_req_holder_s_type& holder = g_pdc_info.holder(type);
  if (holder.is_done == 0) {
    holder.is_waiting = 1;
    qmi_pdc_request_timer_start(type);
    while (holder.timer_id != 0 && holder.is_done == 0) holder.cond.wait(g_pdc_info.mutex);
  }
  const int result = holder.result;
  leave_holder(type);
  return result;
}

template <typename Request>
qmi_client_error_type send(uint16_t msg_id, Request& req, pdc_resp_msg_v01& resp) {
  return qmi_client_send_msg_sync(g_pdc_client, msg_id, &req, sizeof req, &resp, sizeof resp,
                                  kSendTimeOutMs);
}

// The response of these says only whether the request is taken up: their indication tells more.
template <typename Request>
qmi_client_error_type send(uint16_t msg_id, Request& req) {
  pdc_resp_msg_v01 unread{};
  return send(msg_id, req, unread);
}

}  // namespace

void qmi_pdc_init_pdc_info() {
  MutexLock hold(g_pdc_info.mutex);
  for (int type = 1; type <= kPdcReqTypes; ++type) {
    pdc_req_holder_s_type& holder = g_pdc_info.holder(static_cast<pdc_req_type>(type));
    if (holder.timer_id != 0) qmi_pdc_request_timer_stop(type);
    holder.result = holder.is_waiting != 0 ? PDC_FAILED : PDC_OK;
    holder.cond.notify_one();  // who still waits ends without its timer
    holder.is_handling = holder.is_waiting = holder.is_done = 0;
  }
  g_pdc_info.config_list_holder = nullptr;
  g_pdc_info.num_of_configs = nullptr;
  g_pdc_info.ind_token = 0;
  g_pdc_info.received_config_size = g_pdc_info.remaining_config_size = 0;
  g_pdc_info.config_info = g_pdc_info.default_config_info = nullptr;
  g_pdc_info.get_sel_holder = nullptr;
  VELMOR_LOG_ERROR("pdc_info init done");
}

int pdc_init() {
  qmi_pdc_init_pdc_info();
  const qmi_idl_service_object_type service = pdc_get_service_object_internal_v01(1, 16, 6);
  for (int attempt = 0; attempt < kConnectAttempts; ++attempt) {
    qmi_client_type handle = nullptr;
    qmi_client_os_params os_params{};
    const qmi_client_error_type error =
        qmi_client_init_instance(service, QMI_CLIENT_INSTANCE_ANY, qmi_pdc_unsol_ind_cb, nullptr,
                                 &os_params, kConnectMs, &handle);
    g_pdc_client = handle;
    if (error == QMI_NO_ERR) {
      VELMOR_LOG_DEBUG("qmi_client_init succeeds for PDC");
      return 0;
    }
    VELMOR_LOG_ERROR("qmi_client_init returned failure (%d) for PDC, retry times %d", error,
                     attempt);
    timing::sleep_s(kConnectPauseS);
  }
  g_pdc_client = nullptr;
  return PDC_FAILED;
}

void pdc_clean() {
  const qmi_client_type handle = g_pdc_client.exchange(nullptr);
  if (handle == nullptr) return;
  VELMOR_LOG_DEBUG("Release client connection to PDC");
  qmi_client_release(handle);
}

int pdc_get_current_config(pdc_config_pdc_info* out, pdc_config_type_enum_v01 type, uint32_t sub) {
  if (!begin_request(PDC_GET_SEL, out)) return PDC_BUSY;
  pdc_get_selected_config_req_msg_v01 req{};
  req.config_type = type;
  if (type == PDC_CONFIG_TYPE_MODEM_SW_V01) {
    req.subscription_id_valid = 1;
    req.subscription_id = sub;
  }
  pdc_resp_msg_v01 resp{};
  const qmi_client_error_type error = send(QMI_PDC_GET_SELECTED_CONFIG_REQ_V01, req, resp);
  const int converted = qcril_qmi_util_convert_qmi_response_codes_to_ril_result(error, &resp.resp);
  if (converted != 0) {
    VELMOR_LOG_ERROR("qmi send message error for get_sel_configs, errno: %d %d", error, converted);
    return end_unwaited(PDC_GET_SEL, PDC_FAILED);
  }
  return wait_for_indication(PDC_GET_SEL);
}

int pdc_select_config(pdc_config_pdc_info* cfg, pdc_config_type_enum_v01 type, uint32_t sub) {
  if (cfg->config_id_len > kPdcMaxId) return PDC_INVALID_ID;
  if (!begin_request(PDC_SEL_CONFIG)) return PDC_BUSY;
  pdc_set_selected_config_req_msg_v01 req{};
  req.new_config_info.config_type = type;
  req.new_config_info.config_id_len = cfg->config_id_len;
  memcpy(req.new_config_info.config_id, cfg->config_id, cfg->config_id_len);
  if (type == PDC_CONFIG_TYPE_MODEM_SW_V01) {
    req.subscription_id_valid = 1;
    req.subscription_id = sub;
  }
  const qmi_client_error_type error = send(QMI_PDC_SET_SELECTED_CONFIG_REQ_V01, req);
  if (error != QMI_NO_ERR) {
    VELMOR_LOG_ERROR("qmi send message error for set_selected_config, errno: %d", error);
    return end_unwaited(PDC_SEL_CONFIG, PDC_FAILED);
  }
  return wait_for_indication(PDC_SEL_CONFIG);
}

int pdc_activate_config(pdc_config_type_enum_v01 type, uint32_t sub) {
  return pdc_activate_config_ex(type, PDC_ACTIVATION_REGULAR_V01, sub, sub);
}

int pdc_activate_config_ex(pdc_config_type_enum_v01 type, pdc_activation_type_enum_v01 act,
                           uint32_t sub, uint32_t slot) {
  if (!begin_request(PDC_ACT_CONFIG)) return PDC_BUSY;
  pdc_activate_config_req_msg_v01 req{};
  req.config_type = type;
  req.activation_type_valid = 1;
  req.activation_type = act;
  if (type == PDC_CONFIG_TYPE_MODEM_SW_V01) {
    req.subscription_id_valid = req.slot_id_valid = 1;
    req.subscription_id = sub;
    req.slot_id = slot;
  }
  const int type_number = static_cast<int>(type), sub_number = static_cast<int>(sub);
  VELMOR_LOG_DEBUG(
      "QMI_PDC_ACTIVATE_CONFIG_REQ_V01 begin, config_type: %d, activation_type: %d, sub_id: %d, "
      "slot_id: %d",
      type_number, static_cast<int>(act), sub_number, static_cast<int>(slot));
  const qmi_client_error_type error = send(QMI_PDC_ACTIVATE_CONFIG_REQ_V01, req);
  if (error != QMI_NO_ERR) {
    VELMOR_LOG_ERROR("qmi send message error for activate_config, errno: %d", error);
    return end_unwaited(PDC_ACT_CONFIG, PDC_FAILED);
  }
  VELMOR_LOG_DEBUG("QMI_PDC_ACTIVATE_CONFIG_REQ_V01 end, config_type: %d, sub_id: %d", type_number,
                   sub_number);
  if (type <= PDC_CONFIG_TYPE_MODEM_SW_V01) {  // the modem may restart before it indicates
    end_unwaited(PDC_ACT_CONFIG, PDC_OK);
    VELMOR_LOG_DEBUG("There is not the response to PDC_CONFIG_TYPE_MODEM_PLATFORM_V01");
    return PDC_OK;
  }
  return wait_for_indication(PDC_ACT_CONFIG);
}

int pdc_deactivate_config(uint32_t sub, pdc_config_type_enum_v01 type) {
  if (!begin_request(PDC_DEACT)) return PDC_BUSY;
  pdc_deactivate_config_req_msg_v01 req{};
  req.config_type = type;
  req.subscription_id_valid = 1;
  req.subscription_id = sub;
  const qmi_client_error_type error = send(QMI_PDC_DEACTIVATE_CONFIG_REQ_V01, req);
  if (error != QMI_NO_ERR) {
    VELMOR_LOG_ERROR("qmi send mssage error for deactivate_config, errno: %d", error);
    return end_unwaited(PDC_DEACT, PDC_FAILED);
  }
  return wait_for_indication(PDC_DEACT);
}

void qmi_pdc_list_configs_follow_up_request(uint32_t* timer_id) {
  VELMOR_LOG_DEBUG("qmi_pdc_list_configs_follow_up_request, timer_id = %d",
                   static_cast<int>(*timer_id));
  pdc_list_configs_req_msg_v01 req{};
  req.ind_token_valid = 1;
  req.config_type_valid = 1;
  req.config_type = PDC_CONFIG_TYPE_MODEM_SW_V01;
  req.multi_config_valid = 1;
  req.multi_config = 1;
  {
    MutexLock hold(g_pdc_info.mutex);
    req.ind_token = g_pdc_info.ind_token;
  }
  pdc_resp_msg_v01 resp{};
  const qmi_client_error_type error = send(QMI_PDC_LIST_CONFIGS_REQ_V01, req, resp);
  const int converted = qcril_qmi_util_convert_qmi_response_codes_to_ril_result(error, &resp.resp);
  if (converted == 0) return;
  VELMOR_LOG_ERROR("qmi send mssage error for list_configs, errno: %d %d", error, converted);
  MutexLock hold(g_pdc_info.mutex);
  pdc_end_request(PDC_LIST, PDC_FAILED);
}
