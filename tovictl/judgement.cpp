#include "judgement.h"

#include <string.h>

#include <algorithm>

#include "catalogue.h"
#include "hex_text.h"
#include "modem_api/nas/nas_service.h"
#include "modem_api/sar/sar_service.h"
#include "modem_api/vs/vs_service.h"
#include "modem_files.h"
#include "named_statistics.h"
#include "pdc_service.h"
#include "uim_service.h"

namespace ctl {
namespace {

constexpr uint32_t kExtension = 0xFFE4, kUim = 0x0B, kNas = 0x03, kSar = 0x11, kPdc = 0x24,
                   kStatistics = 0xE4;

Judgement malformed(const std::string& why) {
  return {{Status::Malformed, why}};
}
Judgement refused(const std::string& why) {
  return {{Status::Refused, why}};
}

std::string_view text_of(const void* bytes, size_t size) {
  return {static_cast<const char*>(bytes), size};
}

template <typename Word>
Word word_of(std::span<const uint8_t> tlv) {
  Word word{};
  if (tlv.size() >= sizeof word) memcpy(&word, tlv.data(), sizeof word);
  return word;
}

// The payload of a request of the extension service.
struct Asked {
  uint32_t request_id = 0;
  std::span<const uint8_t> payload;

  explicit Asked(std::span<const uint8_t> body)
      : request_id(word_of<uint32_t>(qmi::find_tlv(body, 0x01))),
        payload(qmi::find_tlv(body, 0x10)) {
    if (payload.size() != kExtendDataBytes) request_id = UINT32_MAX;
  }
  template <typename Req>
  Req as() const {
    Req req;
    memcpy(&req, payload.data(), sizeof req);
    return req;
  }
  uint32_t common_type() const {
    const auto req = as<velmor_common_tlv_req>();
    return req.form == kCommonTypeLengthValueForm ? req.type : req.form;
  }
};

std::string path_of(const velmor_nvefs_req& req) {
  const auto* path = reinterpret_cast<const char*>(req.path);
  return std::string(path, strnlen(path, std::min<size_t>(req.path_len, sizeof req.path)));
}

Judgement judge_nvefs(const velmor_nvefs_req& req, std::span<const uint8_t> answer, Json& values) {
  constexpr size_t kHeader = offsetof(velmor_nvefs_rsp, data);
  if (answer.size() < kHeader) {
    return malformed("an answer of " + std::to_string(answer.size()) + " bytes");
  }
  velmor_nvefs_rsp rsp{};
  memcpy(&rsp, answer.data(), std::min(answer.size(), sizeof rsp));
  const size_t held = std::min(answer.size(), sizeof rsp) - kHeader;
  const bool is_nv = req.op_type <= NvefsOp::NvDelete;
  if (req.op_type == NvefsOp::EfsWrite ? rsp.result < 0 : rsp.result != 0) {
    return is_nv
               ? Judgement{{Status::Refused, nv_result_text(rsp.result)}, nv_is_absent(rsp.result)}
               : Judgement{{Status::Refused, efs_result_text(rsp.result)},
                           efs_is_absent(rsp.result)};
  }
  if (req.op_type != NvefsOp::NvRead && req.op_type != NvefsOp::EfsRead) return {};
  const size_t told = is_nv ? rsp.data_len_all : rsp.data_len_send;
  if (told > held) return malformed("fewer bytes than the answer says");
  if (told == 0) return malformed("an answer without a byte");
  values["size"] = rsp.data_len_all;
  values["hex"] = values.value("hex", "") + hex_text(text_of(rsp.data, told));
  return {};
}

// How many bytes behind the result an answer to a common request has at least.
size_t least_value(uint32_t type, std::span<const uint8_t> value) {
  constexpr size_t kWordBehindHeader = offsetof(velmor_common_rsp_value, value) + 4;
  constexpr size_t kDebugInfo[] = {137, 161, 205, 213, 221};  // by version
  switch (type) {
    case VELMOR_COMMON_CARD_STATUS_QUERY:
    case VELMOR_COMMON_CARD_STATUS_GET:
    case VELMOR_COMMON_CARD_TYPE_QUERY: return kWordBehindHeader;
    case VELMOR_COMMON_STATS_DEBUG_INFO:
      return value.empty() ? kDebugInfo[0] : kDebugInfo[std::min<size_t>(value[0], 4)];
    case VELMOR_COMMON_STATS_UNSUPPORTED: return 2 + size_t{2} * word_of<uint16_t>(value);
    default: return 0;
  }
}

Judgement judge_common(uint32_t type, std::span<const uint8_t> answer, Json& values) {
  constexpr size_t kHeader = offsetof(velmor_common_rsp, data);
  if (answer.size() < kHeader) {
    return malformed("an answer of " + std::to_string(answer.size()) + " bytes");
  }
  const auto result = word_of<int32_t>(answer.subspan(offsetof(velmor_common_rsp, result)));
  if (result != 0) return refused(common_result_text(result));
  const auto value = answer.subspan(kHeader);
  if (value.size() < least_value(type, value)) {
    return malformed("an answer of " + std::to_string(answer.size()) + " bytes");
  }
  if (!value.empty()) values["hex"] = hex_text(text_of(value.data(), value.size()));
  return {};
}

Judgement judge_extension(const qmi::Crossing& crossing, Json& values) {
  const auto& resp = *static_cast<const velmor_extend_send_data_resp_msg_v01*>(crossing.c_struct);
  if (resp.result != 0) return refused(qmi_error_text(resp.result));
  const size_t size = resp.data_valid != 0 ? std::min(resp.data_len, kExtendDataBytes) : 0;
  const std::span<const uint8_t> answer(resp.data, size);
  const Asked asked(crossing.request);
  if (asked.request_id == REQUEST_ID_EFS) {
    return judge_nvefs(asked.as<velmor_nvefs_req>(), answer, values);
  }
  if (asked.request_id == REQUEST_ID_COMMON) {
    return judge_common(asked.common_type(), answer, values);
  }
  values["hex"] = hex_text(text_of(resp.data, size));
  return {};
}

// The status word of a card.
Judgement judge_card(uint8_t sw1, uint8_t sw2) {
  if (sw1 == 0x90 && sw2 == 0x00) return {};
  const char word[] = {static_cast<char>(sw1), static_cast<char>(sw2)};
  return refused("the card: " + hex_text(text_of(word, sizeof word)));
}

// The card's answer to a memory reset: a structure with its result, 1 when there was nothing to
// delete.
Judgement judge_apdu(const uim_send_apdu_resp_msg_v01& resp, Json& values) {
  constexpr uint8_t kResetAnswer[] = {0xBF, 0x34, 0x03, 0x80, 0x01};
  if (resp.apdu_valid == 0 || resp.apdu_len < 2) return malformed("no answer of the card");
  values["apdu"] = hex_text(text_of(resp.apdu, resp.apdu_len));
  Judgement card = judge_card(resp.apdu[resp.apdu_len - 2], resp.apdu[resp.apdu_len - 1]);
  if (!card.verdict.ok()) return card;
  if (resp.apdu_len != sizeof kResetAnswer + 3 ||
      memcmp(resp.apdu, kResetAnswer, sizeof kResetAnswer) != 0) {
    return malformed("the card's answer to the reset");
  }
  const int result = resp.apdu[sizeof kResetAnswer];
  return result <= 1 ? Judgement{} : refused("the card: result " + std::to_string(result));
}

// Its digits as one number leave 1 when divided by 97.
Judgement judge_eid(const uim_get_eid_resp_msg_v01& resp, Json& values) {
  if (resp.eid_valid == 0 || resp.eid_len != kUimEidBytes) return malformed("no EID");
  const std::string digits = hex_text(text_of(resp.eid, kUimEidBytes));
  values["eid"] = digits;
  int remainder = 0;
  for (const char digit : digits) remainder = (remainder * 10 + (digit - '0')) % 97;
  return remainder == 1 ? Judgement{} : malformed("an EID whose check digits are wrong");
}

Judgement judge_card_status(const uim_get_card_status_resp_msg_v01& resp, Json& values) {
  if (resp.extended_card_status_valid == 0) return malformed("no extended card status");
  const uim_extended_card_status_v01& status = resp.extended_card_status;
  values["cards"] = Json::array();
  for (uint32_t i = 0; i < status.card_info_len; ++i) {
    constexpr const char* kStates[] = {"absent", "present", "error"};
    const uint32_t state = status.card_info[i].card_state;
    values["cards"].push_back(state < std::size(kStates) ? kStates[state] : "unknown");
  }
  return {};
}

Judgement judge_uim(const qmi::Crossing& crossing, Json& values) {
  switch (crossing.message->id) {
    case QMI_UIM_GET_CARD_STATUS_REQ_V01:
      return judge_card_status(
          *static_cast<const uim_get_card_status_resp_msg_v01*>(crossing.c_struct), values);
    case QMI_UIM_GET_EID_REQ_V01:
      return judge_eid(*static_cast<const uim_get_eid_resp_msg_v01*>(crossing.c_struct), values);
    case QMI_UIM_SEND_APDU_REQ_V01:
      return judge_apdu(*static_cast<const uim_send_apdu_resp_msg_v01*>(crossing.c_struct), values);
    case QMI_UIM_OPEN_LOGICAL_CHANNEL_REQ_V01: {
      const auto& resp =
          *static_cast<const uim_open_logical_channel_resp_msg_v01*>(crossing.c_struct);
      if (resp.channel_id_valid == 0) return malformed("no channel");
      const uim_card_result_v01& card = resp.card_result;
      return resp.card_result_valid != 0 ? judge_card(card.sw1, card.sw2) : Judgement{};
    }
    default: return {};
  }
}

template <typename Network>
Json network_of(const Network& network) {
  const auto size = std::min<size_t>(network.name_len, kNasMaxName);
  return {{"mcc", network.mcc},
          {"mnc", network.mnc},
          {"status", network.status},
          {"name", std::string(text_of(network.name, size))}};
}

// A later indication may tell again what an earlier one told.
void add_once(Json& list, Json told) {
  if (std::find(list.begin(), list.end(), told) == list.end()) list.push_back(std::move(told));
}

Judgement judge_scan(const nas_perform_network_scan_resp_msg_v01& resp, Json& values) {
  values["networks"] = Json::array();
  for (uint32_t i = 0; resp.network_valid != 0 && i < resp.network_len; ++i) {
    values["networks"].push_back(network_of(resp.network[i]));
  }
  if (resp.scan_result_valid == 0 || resp.scan_result == 0) return {};
  return refused(resp.scan_result == 1 ? "the scan was aborted" : "radio link failure");
}

Judgement judge_statistics(const qmi::Crossing& crossing, Json& values) {
  if (crossing.message->id != kVsGetStatsMsg) return {};
  const auto& resp = *static_cast<const vs_get_stats_resp_msg_v01*>(crossing.c_struct);
  if (resp.stats_valid == 0 || resp.stats_len == 0) return malformed("no record");
  const vs_stat_v01& record = resp.stats[0];
  const Statistic* statistic = find_statistic(record.id);
  // The list of what is asked for: a count, then subscription, a word, the id.
  const auto sub = word_of<uint16_t>(qmi::find_tlv(crossing.request, 0x01));
  const auto list = qmi::find_tlv(crossing.request, 0x03);
  const auto id = list.size() > 5 ? word_of<uint32_t>(list.subspan(5)) : 0;
  if (resp.stats_len != 1 || statistic == nullptr || record.id != id || record.sub != sub) {
    return malformed("another record");
  }
  const auto fields = record_values(*statistic, text_of(record.value, record.value_len));
  if (!fields) {
    return malformed("a record of " + std::to_string(record.value_len) + " bytes");
  }
  for (const auto& [name, value] : *fields) values[name] = value;
  return {};
}

}  // namespace

std::string request_name(const qmi_idl_service_object& service, uint16_t message,
                         std::span<const uint8_t> body) {
  const qmi::Message* known = service.find(qmi::Kind::Request, message);
  const std::string name = known != nullptr ? known->name : "unknown";
  if (service.service_id != kExtension || message != kExtendSendDataMsg) return name;
  const Asked asked(body);
  const char* payload = velmor_extend_payload_of(qmi::Kind::Request, body).name;
  if (asked.request_id == REQUEST_ID_EFS) {
    const auto req = asked.as<velmor_nvefs_req>();
    const bool is_nv = req.op_type <= NvefsOp::NvDelete;
    return payload + (" " + (is_nv ? std::to_string(req.id) : path_of(req)));
  }
  if (asked.request_id == REQUEST_ID_COMMON) return payload;
  return name;
}

Judgement judge_response(const qmi::Crossing& crossing, Json& values) {
  for (const qmi::Field& row : crossing.message->fields) {
    if (row.shape.members != qmi::kResponseTypeMembers) continue;
    qmi_response_type_v01 resp;
    memcpy(&resp, static_cast<const uint8_t*>(crossing.c_struct) + row.offset, sizeof resp);
    if (resp.result != 0) return refused(qmi_error_text(resp.error));
  }
  switch (crossing.service.service_id) {
    case kExtension: return judge_extension(crossing, values);
    case kUim: return judge_uim(crossing, values);
    case kStatistics: return judge_statistics(crossing, values);
    case kNas:
      if (crossing.message->id != QMI_NAS_PERFORM_NETWORK_SCAN_REQ_MSG_V01) return {};
      return judge_scan(
          *static_cast<const nas_perform_network_scan_resp_msg_v01*>(crossing.c_struct), values);
    case kSar: {
      const auto& resp = *static_cast<const sar_rf_get_state_resp_msg_v01*>(crossing.c_struct);
      if (resp.sar_rf_state_valid == 0) return malformed("no DSI");
      values["dsi"] = resp.sar_rf_state;
      return {};
    }
    default: return {};
  }
}

bool owes_indication(const qmi_idl_service_object& service, uint16_t message) {
  // Others of the configuration service's tell of changes that nobody here has asked for.
  return (service.service_id == kPdc && service.find(qmi::Kind::Request, message) != nullptr) ||
         (service.service_id == kNas &&
          message == QMI_NAS_PERFORM_INCREMENTAL_NETWORK_SCAN_REQ_MSG_V01);
}

bool is_left_behind(uint32_t service, uint16_t message) {
  return service != kPdc || message == QMI_PDC_ACTIVATE_CONFIG_REQ_V01;
}

bool is_last_indication(const qmi::Crossing& crossing) {
  constexpr uint32_t kPartial = 1;
  if (crossing.service.service_id != kNas || crossing.c_struct == nullptr) return true;
  return static_cast<const nas_perform_incremental_network_scan_ind_msg_v01*>(crossing.c_struct)
             ->scan_status != kPartial;
}

Verdict judge_indication(const qmi::Crossing& crossing, Json& values) {
  const std::string name = crossing.message->name;
  if (crossing.c_struct == nullptr) {
    return {Status::Malformed, name + ": the indication cannot be decoded"};
  }
  if (crossing.service.service_id == kNas) {
    const auto& ind =
        *static_cast<const nas_perform_incremental_network_scan_ind_msg_v01*>(crossing.c_struct);
    Json& networks = values["networks"];
    if (networks.is_null()) networks = Json::array();
    for (uint32_t i = 0; ind.network_valid != 0 && i < ind.network_len; ++i) {
      add_once(networks, network_of(ind.network[i]));
    }
    if (ind.scan_status <= 1) return {};
    return {Status::Refused, name + ": the scan was aborted"};
  }
  // Each of the configuration service's begins with the error.
  const auto error = *static_cast<const uint32_t*>(crossing.c_struct);
  if (error != 0) return {Status::Refused, name + ": " + qmi_error_text(error)};
  if (crossing.message->id == QMI_PDC_GET_SELECTED_CONFIG_REQ_V01) {
    const auto& ind = *static_cast<const pdc_get_selected_config_ind_msg_v01*>(crossing.c_struct);
    if (ind.active_config_id_valid == 0) return {Status::Refused, name + ": nothing is active"};
    add_once(values["configurations"],
             hex_text(text_of(ind.active_config_id, ind.active_config_id_len)));
  }
  return {};
}

}  // namespace ctl
