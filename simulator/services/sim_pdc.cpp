#include "sim_pdc.h"

namespace sim {
namespace {

constexpr uint32_t kOutcomeMs = 20;

// The request is taken up, but no indication will follow.
constexpr uint32_t kNothingToIndicate = UINT32_MAX;

bool is_valid(uint32_t type, uint32_t sub = 0) {
  return type < kConfigTypes && sub < 2;
}

std::string id_of(const uint8_t* bytes, uint32_t len) {
  return std::string(reinterpret_cast<const char*>(bytes), len);
}

template <size_t N>
void put(const std::string& text, uint32_t& len, uint8_t (&bytes)[N]) {
  len = static_cast<uint32_t>(text.copy(reinterpret_cast<char*>(bytes), N));
}

// Without a subscription the request means the first.
template <typename Request>
uint32_t sub_of(const Request& req) {
  return req.subscription_id_valid != 0 ? req.subscription_id : 0;
}

template <typename Ind>
void describe(const Configuration& configuration, Ind& ind) {
  ind.total_size_valid = ind.config_desc_valid = ind.config_version_valid = 1;
  ind.total_size = configuration.size;
  ind.config_version = configuration.version;
  put(configuration.description, ind.config_desc_len, ind.config_desc);
}

}  // namespace

const qmi_idl_service_object& PdcService::description() const {
  return *pdc_get_service_object_internal_v01(1, 16, 6);
}

uint32_t PdcService::answer(qmi::Address client, uint16_t message, const void* request, void*,
                            Aftermath& aftermath) {
  const auto carry_out = [&]<typename Request, typename Ind>(uint32_t (PdcService::*operation)(
                             qmi::Address, const Request&, Ind&)) {
    const auto& req = *static_cast<const Request*>(request);
    Ind ind{};
    ind.ind_token_valid = req.ind_token_valid;
    ind.ind_token = req.ind_token;
    const uint32_t result = (this->*operation)(client, req, ind);
    if (result == 0) aftermath.indicate(message, &ind, kOutcomeMs);
    return result == kNothingToIndicate ? 0 : result;
  };
  switch (message) {
    case QMI_PDC_GET_SELECTED_CONFIG_REQ_V01: return carry_out(&PdcService::get_selected);
    case QMI_PDC_SET_SELECTED_CONFIG_REQ_V01: return carry_out(&PdcService::set_selected);
    case QMI_PDC_LIST_CONFIGS_REQ_V01: return carry_out(&PdcService::list);
    case QMI_PDC_DELETE_CONFIG_REQ_V01: return carry_out(&PdcService::remove);
    case QMI_PDC_LOAD_CONFIG_REQ_V01: return carry_out(&PdcService::load);
    case QMI_PDC_ACTIVATE_CONFIG_REQ_V01: return carry_out(&PdcService::activate);
    case QMI_PDC_GET_CONFIG_INFO_REQ_V01: return carry_out(&PdcService::get_info);
    case QMI_PDC_GET_DEFAULT_CONFIG_INFO_REQ_V01: return carry_out(&PdcService::get_default_info);
    case QMI_PDC_DEACTIVATE_CONFIG_REQ_V01: return carry_out(&PdcService::deactivate);
    case QMI_PDC_SET_FEATURE_REQ_V01: return carry_out(&PdcService::set_feature);
    default: return kQmiNotSupported;
  }
}

void PdcService::client_gone(qmi::Address client) {
  lists_.erase(client);
  loads_.erase(client);
}

uint32_t PdcService::get_selected(qmi::Address, const pdc_get_selected_config_req_msg_v01& req,
                                  pdc_get_selected_config_ind_msg_v01& ind) {
  if (!is_valid(req.config_type, sub_of(req))) return kQmiInvalidArgument;
  const Selection selection = configurations_.selection(req.config_type, sub_of(req));
  if (selection.selected.empty()) return 0;
  if (!selection.active.empty()) {
    ind.active_config_id_valid = 1;
    put(selection.active, ind.active_config_id_len, ind.active_config_id);
  }
  if (!selection.pending.empty()) {
    ind.pending_config_id_valid = 1;
    put(selection.pending, ind.pending_config_id_len, ind.pending_config_id);
  }
  return 0;
}

uint32_t PdcService::set_selected(qmi::Address, const pdc_set_selected_config_req_msg_v01& req,
                                  pdc_result_ind_msg_v01& ind) {
  const pdc_config_info_v01& config = req.new_config_info;
  if (!is_valid(config.config_type, sub_of(req))) return kQmiInvalidArgument;
  const std::string id = id_of(config.config_id, config.config_id_len);
  if (!configurations_.find(config.config_type, id)) {
    ind.error = kQmiInvalidId;
  } else if (!configurations_.select(config.config_type, sub_of(req), id)) {
    ind.error = kQmiInternal;
  }
  return 0;
}

// One page at a time, in the order of the state folder; the same token asks for the next one.
uint32_t PdcService::list(qmi::Address client, const pdc_list_configs_req_msg_v01& req,
                          pdc_list_configs_ind_msg_v01& ind) {
  if (!is_valid(req.config_type)) return kQmiInvalidArgument;
  const auto all = configurations_.list(req.config_type);
  ListPosition& position = lists_[client];
  if (position.token != req.ind_token) position = {.token = req.ind_token};
  size_t& done = position.done;
  if (done >= all.size()) {
    lists_.erase(client);
    return kNothingToIndicate;
  }
  ind.config_list_valid = 1;
  while (done < all.size() && ind.config_list_len < kPdcMaxList) {
    pdc_config_info_v01& entry = ind.config_list[ind.config_list_len++];
    entry.config_type = req.config_type;
    put(all[done++].id, entry.config_id_len, entry.config_id);
  }
  ind.more_available_valid = 1;
  ind.more_available = done < all.size();
  if (ind.more_available == 0) lists_.erase(client);
  return 0;
}

uint32_t PdcService::remove(qmi::Address, const pdc_delete_config_req_msg_v01& req,
                            pdc_result_ind_msg_v01& ind) {
  if (!is_valid(req.config_type) || req.config_id_valid == 0) return kQmiInvalidArgument;
  const std::string id = id_of(req.config_id, req.config_id_len);
  if (!configurations_.find(req.config_type, id)) {
    ind.error = kQmiInvalidId;
  } else if (!configurations_.remove(req.config_type, id)) {
    ind.error = kQmiInternal;
  }
  return 0;
}

// A configuration comes in frames; it is kept when the last one is there.
uint32_t PdcService::load(qmi::Address client, const pdc_load_config_req_msg_v01& req,
                          pdc_load_config_ind_msg_v01& ind) {
  const pdc_load_frame_v01& frame = req.load_config;
  if (!is_valid(frame.config_type) || frame.config_id_len == 0) return kQmiInvalidArgument;
  const std::string id = id_of(frame.config_id, frame.config_id_len);
  if (configurations_.find(frame.config_type, id)) {
    ind.error = kQmiInvalidId;
    return 0;
  }
  Configuration& loading = loads_[client];
  const bool is_next = loading.type == frame.config_type && loading.id == id;
  if (!is_next) loading = {frame.config_type, id, 0x01000000, 0, "Loaded"};
  if (uint64_t{loading.size} + frame.frame_len > frame.total_size) {
    loads_.erase(client);
    ind.frame_reset_valid = ind.frame_reset = 1;
    return 0;
  }
  loading.size += frame.frame_len;
  ind.received_size_valid = ind.remaining_size_valid = 1;
  ind.received_size = loading.size;
  ind.remaining_size = frame.total_size - loading.size;
  if (ind.remaining_size > 0) return 0;
  if (!configurations_.add(loading)) ind.error = kQmiNoMemory;
  loads_.erase(client);
  return 0;
}

uint32_t PdcService::activate(qmi::Address, const pdc_activate_config_req_msg_v01& req,
                              pdc_result_ind_msg_v01& ind) {
  if (!is_valid(req.config_type, sub_of(req))) return kQmiInvalidArgument;
  if (configurations_.selection(req.config_type, sub_of(req)).selected.empty()) {
    ind.error = kQmiNotProvisioned;
  } else if (!configurations_.activate(req.config_type, sub_of(req))) {
    ind.error = kQmiInternal;
  }
  return 0;
}

uint32_t PdcService::get_info(qmi::Address, const pdc_get_config_info_req_msg_v01& req,
                              pdc_get_config_info_ind_msg_v01& ind) {
  const pdc_config_info_v01& config = req.config_info;
  if (!is_valid(config.config_type)) return kQmiInvalidArgument;
  const auto found =
      configurations_.find(config.config_type, id_of(config.config_id, config.config_id_len));
  if (found) {
    describe(*found, ind);
  } else {
    ind.error = kQmiInvalidId;
  }
  return 0;
}

uint32_t PdcService::get_default_info(qmi::Address, const pdc_type_req_msg_v01& req,
                                      pdc_get_default_config_info_ind_msg_v01& ind) {
  if (!is_valid(req.config_type)) return kQmiInvalidArgument;
  const auto all = configurations_.list(req.config_type);
  if (all.empty()) {
    ind.error = kQmiNotProvisioned;
  } else {
    describe(all.front(), ind);
  }
  return 0;
}

uint32_t PdcService::deactivate(qmi::Address, const pdc_deactivate_config_req_msg_v01& req,
                                pdc_result_ind_msg_v01& ind) {
  if (!is_valid(req.config_type, sub_of(req))) return kQmiInvalidArgument;
  if (configurations_.selection(req.config_type, sub_of(req)).active.empty()) {
    ind.error = kQmiNoEffect;
  } else if (!configurations_.deactivate(req.config_type, sub_of(req))) {
    ind.error = kQmiInternal;
  }
  return 0;
}

uint32_t PdcService::set_feature(qmi::Address, const pdc_type_req_msg_v01&,
                                 pdc_result_ind_msg_v01&) {
  return 0;
}

}  // namespace sim
