#include "sim_uim.h"

#include <algorithm>

#include "sim_card.h"

namespace sim {
namespace {

constexpr uint8_t kBasicChannel = 0;
constexpr uint8_t kMaxChannels = 3;  // besides

bool has_slot(uint32_t slot) {
  return slot >= 1 && slot <= kSlots;
}

uim_card_info_v01 card_info(const Slot& slot) {
  uim_card_info_v01 info{};
  if (slot.card == Card::Absent) return info;
  if (!slot.answers()) {
    info.card_state = UIM_CARD_STATE_ERROR_V01;
    info.error_code = slot.powered ? 0 : 1;
    return info;
  }
  info.card_state = UIM_CARD_STATE_PRESENT_V01;
  if (slot.card != Card::Sim) return info;
  uim_app_info_v01& usim = info.app_info[info.app_info_len++];
  usim.app_type = 2;
  usim.app_state = 7;
  usim.perso_state = 2;
  usim.perso_feature = 11;
  usim.aid_len = kUsimAid.size();
  std::copy(kUsimAid.begin(), kUsimAid.end(), usim.aid);
  usim.pin1_state = 3;  // disabled
  usim.pin2_state = 1;
  usim.pin1_num_retries = usim.pin2_num_retries = 3;
  usim.puk1_num_retries = usim.puk2_num_retries = 10;
  return info;
}

// The same as the extended status tells it: with three GW and two 1X sessions, which makes its head
// as long as on a phone, and unlike the plain one's.
uim_extended_card_status_v01 extended(const uim_card_status_v01& plain) {
  const auto session = [](uint16_t index) {
    return uim_session_v01{static_cast<uint8_t>(index >> 8), static_cast<uint8_t>(index)};
  };
  uim_extended_card_status_v01 status{};
  status.index_gw_len = 3;
  status.index_1x_len = 2;
  status.index_gw[0] = session(plain.index_gw_pri);
  status.index_gw[1] = status.index_gw[2] = session(plain.index_gw_sec);
  status.index_1x[0] = session(plain.index_1x_pri);
  status.index_1x[1] = session(plain.index_1x_sec);
  status.card_info_len = plain.card_info_len;
  std::copy(std::begin(plain.card_info), std::end(plain.card_info), status.card_info);
  return status;
}

}  // namespace

const qmi_idl_service_object& UimService::description() const {
  return *uim_get_service_object_internal_v01(1, 109, 6);
}

uint32_t UimService::answer(qmi::Address client, uint16_t message, const void* request,
                            void* response, Aftermath&) {
  const auto carry_out = [&]<typename Request, typename Response>(uint32_t (UimService::*operation)(
                             qmi::Address, const Request&, Response&)) {
    return (this->*operation)(client, *static_cast<const Request*>(request),
                              *static_cast<Response*>(response));
  };
  switch (message) {
    case QMI_UIM_GET_CARD_STATUS_REQ_V01: return carry_out(&UimService::card_status);
    case QMI_UIM_POWER_DOWN_REQ_V01: return carry_out(&UimService::power_down);
    case QMI_UIM_POWER_UP_REQ_V01: return carry_out(&UimService::power_up);
    case QMI_UIM_OPEN_LOGICAL_CHANNEL_REQ_V01: return carry_out(&UimService::open_channel);
    case QMI_UIM_LOGICAL_CHANNEL_REQ_V01: return carry_out(&UimService::close_channel);
    case QMI_UIM_SEND_APDU_REQ_V01: return carry_out(&UimService::send_apdu);
    case QMI_UIM_GET_EID_REQ_V01: return carry_out(&UimService::eid);
    default: return kQmiNotSupported;
  }
}

void UimService::client_gone(qmi::Address client) {
  std::erase_if(channels_, [&](const Channel& channel) { return channel.client == client; });
}

uint32_t UimService::card_status(qmi::Address, const uim_get_card_status_req_msg_v01& req,
                                 uim_get_card_status_resp_msg_v01& resp) {
  uim_card_status_v01& status = resp.card_status;
  status.index_gw_pri = status.index_1x_pri = status.index_gw_sec = status.index_1x_sec = 0xFFFF;
  for (unsigned int slot = kSlots; slot > 0; --slot) {
    status.card_info[slot - 1] = card_info(modem_.slot(slot));
    const auto first_application = static_cast<uint16_t>((slot - 1) << 8);
    if (status.card_info[slot - 1].app_info_len > 0) status.index_gw_pri = first_application;
  }
  status.card_info_len = kSlots;
  resp.card_status_valid = 1;
  resp.extended_card_status_valid = req.extended_card_status;
  resp.extended_card_status = extended(status);
  return 0;
}

uint32_t UimService::power_down(qmi::Address, const uim_power_down_req_msg_v01& req,
                                uim_power_down_resp_msg_v01&) {
  if (!has_slot(req.slot)) return kQmiInvalidArgument;
  if (!modem_.slot(req.slot).powered) return kQmiNoEffect;
  std::erase_if(channels_, [&](const Channel& channel) { return channel.slot == req.slot; });
  return modem_.power_down(req.slot) ? 0 : kQmiInternal;
}

uint32_t UimService::power_up(qmi::Address, const uim_power_up_req_msg_v01& req,
                              uim_power_up_resp_msg_v01&) {
  if (!has_slot(req.slot)) return kQmiInvalidArgument;
  if (modem_.slot(req.slot).powered) return kQmiNoEffect;
  return modem_.power_up(req.slot) ? 0 : kQmiInternal;
}

uint32_t UimService::open_channel(qmi::Address client,
                                  const uim_open_logical_channel_req_msg_v01& req,
                                  uim_open_logical_channel_resp_msg_v01& resp) {
  if (!has_slot(req.slot)) return kQmiInvalidArgument;
  const Slot slot = modem_.slot(req.slot);
  if (!slot.answers()) return kQmiNoSim;
  uint8_t id = 1;
  while (is_open(req.slot, id)) ++id;
  if (id > kMaxChannels) return kQmiNoMemory;
  std::vector<uint8_t> information;
  if (req.aid_valid != 0) {
    information = select_application(slot.card, {req.aid, req.aid_len});
    if (information.empty()) return kQmiNoEntry;
  }
  channels_.push_back({req.slot, id, client, slot.card == Card::Euicc && req.aid_valid != 0});
  resp.channel_id_valid = 1;
  resp.channel_id = id;
  resp.card_result_valid = 1;
  resp.card_result = {0x90, 0x00};
  resp.select_response_valid = req.file_control_information_valid;
  resp.select_response_len = static_cast<uint32_t>(information.size());
  std::copy(information.begin(), information.end(), resp.select_response);
  return 0;
}

uint32_t UimService::close_channel(qmi::Address client, const uim_logical_channel_req_msg_v01& req,
                                   uim_logical_channel_resp_msg_v01&) {
  const Channel* channel = find_channel(client, req.slot, req.channel_id);
  if (channel == nullptr || channel->id == kBasicChannel) return kQmiInvalidArgument;
  channels_.erase(channels_.begin() + (channel - channels_.data()));
  return 0;
}

uint32_t UimService::send_apdu(qmi::Address client, const uim_send_apdu_req_msg_v01& req,
                               uim_send_apdu_resp_msg_v01& resp) {
  if (!has_slot(req.slot)) return kQmiInvalidArgument;
  const Slot slot = modem_.slot(req.slot);
  if (!slot.answers()) return kQmiNoSim;
  const uint8_t id = req.channel_id_valid != 0 ? req.channel_id : kBasicChannel;
  Channel* channel = find_channel(client, req.slot, id);
  if (channel == nullptr && id == kBasicChannel) {
    channel = &channels_.emplace_back(Channel{req.slot, id, client, false});  // always open
  }
  if (channel == nullptr) return kQmiInvalidArgument;
  const auto answer = card_answer(modem_, slot.card, channel->isd_r, {req.apdu, req.apdu_len});
  resp.apdu_valid = 1;
  resp.apdu_len = static_cast<uint32_t>(answer.size());
  std::copy(answer.begin(), answer.end(), resp.apdu);
  return 0;
}

uint32_t UimService::eid(qmi::Address, const uim_get_eid_req_msg_v01& req,
                         uim_get_eid_resp_msg_v01& resp) {
  if (!has_slot(req.slot)) return kQmiInvalidArgument;
  const Slot slot = modem_.slot(req.slot);
  if (slot.card != Card::Euicc) return kQmiNotSupported;
  if (!slot.powered) return kQmiNoSim;
  const auto eid = modem_.eid();
  resp.eid_valid = 1;
  resp.eid_len = static_cast<uint32_t>(eid.size());
  std::copy(eid.begin(), eid.end(), resp.eid);
  return 0;
}

bool UimService::is_open(uint32_t slot, uint8_t id) const {
  return std::any_of(channels_.begin(), channels_.end(), [&](const Channel& channel) {
    return channel.slot == slot && channel.id == id;
  });
}

UimService::Channel* UimService::find_channel(qmi::Address client, uint32_t slot, uint8_t id) {
  for (Channel& channel : channels_) {
    if (channel.slot == slot && channel.id == id && channel.client == client) return &channel;
  }
  return nullptr;
}

}  // namespace sim
