#include "velmor_extend_cmn_uim.h"

#include <string.h>

#include <algorithm>
#include <atomic>

#include "uim_service.h"
#include "utilities/qcril_memory_management.h"
#include "velmor_efs_files.h"
#include "velmor_extend_cmn.h"
#include "velmor_extend_nvefs.h"

namespace {

constexpr uint32_t kConnectMs = 4000;
constexpr uint32_t kSendTimeOutMs = 3000;
constexpr uint8_t kMaxFailures = 3;

qmi_client_type uim_qmi_client;
uint8_t failed_cnt;  // failed sends since the client was opened

// Set on a thread of the QMI library, seen by the next operation. Cleared, like failed_cnt, only
// when a client is opened.
std::atomic<uint8_t> SSR_Detected;

void error_cb(qmi_client_type, qmi_client_error_type error, void*) {
  VELMOR_LOG_DEBUG("QMI error callback %d", error);
  if (error == QMI_SERVICE_ERR) {
    SSR_Detected = 1;
    VELMOR_LOG_DEBUG("SSR Detected, set SSR_Detected 1");
  }
}

bool init_uim_qmi_client() {
  qmi_client_os_params os_params{};
  qmi_client_error_type error =
      qmi_client_init_instance(uim_get_service_object_internal_v01(1, 109, 6),
                               QMI_CLIENT_INSTANCE_ANY, velmor_qmi_client_common_empty_unsol_ind_cb,
                               nullptr, &os_params, kConnectMs, &uim_qmi_client);
  if (error != QMI_NO_ERR) {
    VELMOR_LOG_DEBUG("qmi_client_init UIM instance failed, qmi_client_error = %d", error);
    uim_qmi_client = nullptr;
    return false;
  }
  VELMOR_LOG_DEBUG("init_uim_qmi_client %p", uim_qmi_client);
  error = qmi_client_register_error_cb(uim_qmi_client, error_cb, nullptr);
  if (error != QMI_NO_ERR) VELMOR_LOG_DEBUG("qmi_client_register_error_cb failed");
  SSR_Detected = 0;
  failed_cnt = 0;
  return true;
}

void uim_qmi_client_recovery() {
  VELMOR_LOG_DEBUG("uim_qmi_client_recovery qmi_client_release %p", uim_qmi_client);
  if (uim_qmi_client != nullptr) {
    if (qmi_client_release(uim_qmi_client) != QMI_NO_ERR) {
      VELMOR_LOG_DEBUG("qmi_client_release failed");
    }
    uim_qmi_client = nullptr;
  }
  VELMOR_LOG_DEBUG("function exit <-------------");
}

// One operation: its request, and how what it logs differs from the others.
struct Operation {
  uint16_t msg_id;
  Speaker speaker;
  const char* name = speaker.function;  // in the messages about the client
  bool recovers_after_loss = true;      // before it sends
  bool is_power = false;                // tells the failures so far
};

// Opens the client if need be. False when there is none.
bool has_client(const Operation& op) {
  if (SSR_Detected != 0 && op.recovers_after_loss) {
    velmor_log(LogLevel::Debug, op.speaker, "SSR_Detected, try recovery");
    uim_qmi_client_recovery();
  }
  if (uim_qmi_client == nullptr) {
    if (!init_uim_qmi_client()) {
      velmor_log(LogLevel::Debug, op.speaker, "init_uim_qmi_client failed");
      return false;
    }
    velmor_log(LogLevel::Debug, op.speaker, "%s try init_uim_qmi_client %p", op.name,
               uim_qmi_client);
  }
  velmor_log(LogLevel::Debug, op.speaker, "%s uim_qmi_client %p", op.name, uim_qmi_client);
  return true;
}

int send(const Operation& op, void* req, unsigned int req_len, void* resp, unsigned int resp_len) {
  const qmi_client_error_type error = qmi_client_send_msg_sync(
      uim_qmi_client, op.msg_id, req, req_len, resp, resp_len, kSendTimeOutMs);
  if (error == QMI_NO_ERR) return 0;
  ++failed_cnt;
  if (op.is_power) {
    velmor_log(LogLevel::Debug, op.speaker, "send msg sync client error = %d, failed_cnt = %d",
               error, failed_cnt);
  } else {
    velmor_log(LogLevel::Debug, op.speaker, "send msg sync client error = %d", error);
  }
  return error;
}

int leave(const Operation& op, int result) {
  if (op.is_power) {
    velmor_log(LogLevel::Debug, op.speaker, "uicc_power_ex res = %d, failed_cnt = %d", result,
               failed_cnt);
  }
  if (result == QMI_SERVICE_ERR || failed_cnt >= kMaxFailures) {
    velmor_log(LogLevel::Debug, op.speaker, "QMI error, try recovery");
    uim_qmi_client_recovery();
  }
  velmor_log(LogLevel::Debug, op.speaker, "function exit <-------------");
  return result;
}

// What every operation is made of. `fill` completes the zeroed request; unless it gives 0, nothing
// is sent and that is the result. `evaluate` makes the result out of the response.
template <typename Request, typename Response, typename Fill, typename Evaluate>
int guarded_call(const Operation& op, Fill fill, Evaluate evaluate) {
  velmor_log(LogLevel::Debug, op.speaker, "function entry ------------->");
  int result = -1;
  if (has_client(op)) {
    const auto req = qcril_new_record<Request>(op.speaker);
    if (req == nullptr) return -1;
    const auto resp = qcril_new_record<Response>(op.speaker);
    if (resp == nullptr) return -1;
    result = fill(*req);
    if (result == 0) result = send(op, req.get(), sizeof *req, resp.get(), sizeof *resp);
    if (result == 0) result = evaluate(*resp);
  }
  return leave(op, result);
}

bool succeeded(const qmi_response_type_v01& resp) {
  return resp.result == 0;
}

// Logs how the operation went, in its own name.
void log_outcome(const Operation& op, const char* outcome) {
  velmor_log(LogLevel::Debug, op.speaker, "%s %s", op.name, outcome);
}

// The application identifier of the ISD-R, the same on every eUICC.
constexpr uint8_t kIsdR[] = {0xA0, 0x00, 0x00, 0x05, 0x59, 0x10, 0x10, 0xFF,
                             0xFF, 0xFF, 0xFF, 0x89, 0x00, 0x00, 0x01, 0x00};

// The modem decides by this file what a card slot becomes when it is powered up.
int store_esim_enable(const Operation& op, int32_t esim_enable, const char* direction) {
  unsigned char bytes[sizeof esim_enable];
  memcpy(bytes, &esim_enable, sizeof bytes);
  const int code =
      velmor_efs_write(1, kEfsEsimEnable.path, kEfsEsimEnable.path_len(), bytes, sizeof bytes);
  if (code == 0) return 0;
  velmor_log(LogLevel::Debug, op.speaker, "Velmor, power %s write esim efs file failed", direction);
  return -1;
}

}  // namespace

int velmor_uim_get_card_status(UimCardStatus* out) {
  const Operation op{.msg_id = QMI_UIM_GET_CARD_STATUS_REQ_V01,
                     .speaker = Speaker::here(),
                     .recovers_after_loss = false};
  const auto fill = [](uim_get_card_status_req_msg_v01& req) {
    req.extended_card_status_valid = 1;
    req.extended_card_status = 1;
    return 0;
  };
  const auto evaluate = [&](const uim_get_card_status_resp_msg_v01& resp) {
    *out = {{kUimCardStateUnknown, kUimCardStateUnknown}};
    if (!succeeded(resp.resp)) return 0;
    log_outcome(op, "check response");
    if (resp.extended_card_status_valid == 0) return 0;
    const uim_extended_card_status_v01& status = resp.extended_card_status;
    for (uint32_t i = 0; i < status.card_info_len; ++i) {
      const auto state = static_cast<uint8_t>(status.card_info[i].card_state);
      velmor_log(LogLevel::Debug, op.speaker, "SIM[%d] State = %d", static_cast<int>(i), state);
      if (i < std::size(out->state)) out->state[i] = state;
    }
    return 0;
  };
  return guarded_call<uim_get_card_status_req_msg_v01, uim_get_card_status_resp_msg_v01>(op, fill,
                                                                                         evaluate);
}

int velmor_uim_open_channel(const UimOpenChannelParams* in, uint8_t* channel_id) {
  const Operation op{.msg_id = QMI_UIM_OPEN_LOGICAL_CHANNEL_REQ_V01, .speaker = Speaker::here()};
  const auto fill = [&](uim_open_logical_channel_req_msg_v01& req) {
    req.slot = in->slot;
    req.aid_valid = 1;
    req.aid_len = sizeof kIsdR;
    memcpy(req.aid, kIsdR, sizeof kIsdR);
    req.file_control_information_valid = 1;
    req.file_control_information = in->file_control_information;
    return 0;
  };
  const auto evaluate = [&](const uim_open_logical_channel_resp_msg_v01& resp) {
    if (!succeeded(resp.resp)) {
      log_outcome(op, "failed");
      return -1;
    }
    log_outcome(op, "successfully");
    if (resp.channel_id_valid != 0) *channel_id = resp.channel_id;
    return 0;
  };
  return guarded_call<uim_open_logical_channel_req_msg_v01, uim_open_logical_channel_resp_msg_v01>(
      op, fill, evaluate);
}

int velmor_uim_close_channel(const UimCloseChannelParams* in) {
  const Operation op{.msg_id = QMI_UIM_LOGICAL_CHANNEL_REQ_V01, .speaker = Speaker::here()};
  const auto fill = [&](uim_logical_channel_req_msg_v01& req) {
    req.slot = in->slot;
    req.channel_id_valid = 1;
    req.channel_id = in->channel_id;
    req.terminate_application_valid = 1;
    return 0;
  };
  const auto evaluate = [&](const uim_logical_channel_resp_msg_v01& resp) {
    if (succeeded(resp.resp)) log_outcome(op, "successfully");
    return 0;
  };
  return guarded_call<uim_logical_channel_req_msg_v01, uim_logical_channel_resp_msg_v01>(op, fill,
                                                                                         evaluate);
}

int velmor_uim_send_apdu(const UimApduRequest* in, UimApduResponse* out) {
  const Operation op{.msg_id = QMI_UIM_SEND_APDU_REQ_V01, .speaker = Speaker::here()};
  const auto fill = [&](uim_send_apdu_req_msg_v01& req) {
    req.slot = in->slot;
    req.apdu_len = in->apdu_len;
    memcpy(req.apdu, in->apdu, in->apdu_len);
    req.channel_id_valid = 1;
    req.channel_id = in->channel_id;
    req.procedure_bytes_valid = 1;
    req.procedure_bytes = 1;
    velmor_log(LogLevel::Debug, op.speaker, "%s apdu_len = %d", op.name, in->apdu_len);
    return 0;
  };
  const auto evaluate = [&](const uim_send_apdu_resp_msg_v01& resp) {
    if (!succeeded(resp.resp)) {
      log_outcome(op, "failed");
      return -1;
    }
    log_outcome(op, "successfully");
    out->len = static_cast<uint8_t>(std::min<size_t>(resp.apdu_len, sizeof out->data));
    memcpy(out->data, resp.apdu, out->len);
    return 0;
  };
  return guarded_call<uim_send_apdu_req_msg_v01, uim_send_apdu_resp_msg_v01>(op, fill, evaluate);
}

int velmor_esim_request_uicc_power_ex(const UiccPowerParams* params) {
  Operation op{.msg_id = QMI_UIM_POWER_DOWN_REQ_V01,
               .speaker = Speaker::here(),
               .name = "velmor_uim_request_uicc_power_ex",
               .is_power = true};
  const auto evaluate = [](const auto&) { return 0; };
  if (params->power_up == 0) {
    const auto fill = [&](uim_power_down_req_msg_v01& req) {
      log_outcome(op, "power down sim");
      req.slot = static_cast<uint32_t>(params->slot);
      return store_esim_enable(op, params->esim_enable, "down");
    };
    return guarded_call<uim_power_down_req_msg_v01, uim_power_down_resp_msg_v01>(op, fill,
                                                                                 evaluate);
  }
  op.msg_id = QMI_UIM_POWER_UP_REQ_V01;
  const auto fill = [&](uim_power_up_req_msg_v01& req) {
    req.slot = static_cast<uint32_t>(params->slot);
    req.ignore_hot_swap_switch_valid = 1;
    req.ignore_hot_swap_switch = params->ignore_hotswap != 0 ? 1 : 0;
    req.mode_valid = 1;
    velmor_log(LogLevel::Debug, op.speaker, "%s power up sim, ignore hotswap = %d ", op.name,
               req.ignore_hot_swap_switch);
    return store_esim_enable(op, params->esim_enable, "up");
  };
  return guarded_call<uim_power_up_req_msg_v01, uim_power_up_resp_msg_v01>(op, fill, evaluate);
}

int velmor_uim_request_eid(const uint8_t* slot, uint8_t eid[16]) {
  const Operation op{.msg_id = QMI_UIM_GET_EID_REQ_V01, .speaker = Speaker::here()};
  const auto fill = [&](uim_get_eid_req_msg_v01& req) {
    req.slot = *slot;
    return 0;
  };
  const auto evaluate = [&](const uim_get_eid_resp_msg_v01& resp) {
    if (succeeded(resp.resp) && resp.eid_valid != 0) memcpy(eid, resp.eid, sizeof resp.eid);
    return 0;
  };
  return guarded_call<uim_get_eid_req_msg_v01, uim_get_eid_resp_msg_v01>(op, fill, evaluate);
}
