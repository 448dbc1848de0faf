#include <string.h>

#include <algorithm>

#include "pdc_utils_info.h"
#include "utilities/qcril_memory_management.h"
#include "utilities/velmor_log.h"
#include "velmor_timer.h"

namespace {

// QMI errors with a meaning of their own for a load.
constexpr uint32_t kNoMemory = 0x02;
constexpr uint32_t kInvalidId = 0x29;

// The outcome of an indication that has only that to tell.
template <typename Ind>
int32_t outcome(const Ind* ind, Speaker speaker = Speaker::here()) {
  if (ind == nullptr) {
    velmor_log(LogLevel::Error, speaker, "NULL pointer for ind_data_ptr");
    return PDC_FAILED;
  }
  if (ind->error != 0) {
    velmor_log(LogLevel::Error, speaker, "QMI error, error code: %d", static_cast<int>(ind->error));
    return PDC_FAILED;
  }
  return PDC_OK;
}

void end_request(pdc_req_type type, int32_t result) EXCLUDES(g_pdc_info.mutex) {
  MutexLock hold(g_pdc_info.mutex);
  pdc_end_request(type, result);
}

// The handlers are called by the id of their indication.
template <typename Ind>
void call_with(void (*handler)(const Ind*, uint32_t), const void* ind, uint32_t ind_len) {
  handler(static_cast<const Ind*>(ind), ind_len);
}
template <auto handler>
void call(const void* ind, uint32_t ind_len) {
  call_with(handler, ind, ind_len);
}

struct Handler {
  unsigned int msg_id;
  void (*call)(const void* ind, uint32_t ind_len);
};
constexpr Handler kHandlers[] = {
    {QMI_PDC_GET_SELECTED_CONFIG_REQ_V01, call<qmi_pdc_get_selected_config_ind_hdlr>},
    {QMI_PDC_SET_SELECTED_CONFIG_REQ_V01, call<qmi_pdc_select_config_ind_hdlr>},
    {QMI_PDC_LIST_CONFIGS_REQ_V01, call<qmi_pdc_list_configs_ind_hdlr>},
    {QMI_PDC_DELETE_CONFIG_REQ_V01, call<qmi_pdc_delete_config_ind_hdlr>},
    {QMI_PDC_LOAD_CONFIG_REQ_V01, call<qmi_pdc_load_config_ind_hdlr>},
    {QMI_PDC_ACTIVATE_CONFIG_REQ_V01, call<qmi_pdc_activate_config_ind_hdlr>},
    {QMI_PDC_GET_CONFIG_INFO_REQ_V01, call<qmi_pdc_get_config_info_ind_hdlr>},
    {QMI_PDC_GET_DEFAULT_CONFIG_INFO_REQ_V01, call<velmor_mbn_get_default_config_info_ind_hdlr>},
    {QMI_PDC_DEACTIVATE_CONFIG_REQ_V01, call<qmi_pdc_deactivate_config_ind_hdlr>},
    {QMI_PDC_SET_FEATURE_REQ_V01, call<qmi_pdc_set_feature_ind_hdlr>},
};

void dispatch(unsigned int msg_id, const void* ind, uint32_t ind_len) {
  for (const Handler& handler : kHandlers) {
    if (handler.msg_id == msg_id) handler.call(ind, ind_len);
  }
}

}  // namespace

void pdc_end_request(pdc_req_type type, int32_t result) {
  pdc_req_holder_s_type& holder = g_pdc_info.holder(type);
  holder.result = result;
  if (holder.is_waiting != 0) {
    qmi_pdc_request_timer_stop(type);
    holder.cond.notify_one();
  }
  holder.is_done = 1;
}

void qmi_pdc_unsol_ind_cb(qmi_client_type handle, unsigned int msg_id, void* buf, unsigned int len,
                          void*) {
  uint32_t ind_len = 0;
  if (qmi_idl_get_message_c_struct_len(pdc_get_service_object_internal_v01(1, 16, 6),
                                       QMI_IDL_INDICATION, msg_id, &ind_len) != QMI_NO_ERR) {
    VELMOR_LOG_ERROR("failed to get message c_struct len");
    return;
  }
  void* ind = qcril_malloc_adv(ind_len, __func__, __LINE__);
  if (ind == nullptr) {
    VELMOR_LOG_ERROR("failed to allocate memory for payload");
    return;
  }
  if (qmi_client_message_decode(handle, QMI_IDL_INDICATION, msg_id, buf, len, ind, ind_len) ==
      QMI_NO_ERR) {
    dispatch(msg_id, ind, ind_len);
  } else {
    VELMOR_LOG_ERROR("failed to decode qmi message, msg_id: 0x%02x", msg_id);
  }
  qcril_free_adv(ind, __func__, __LINE__);
}

void qmi_pdc_deactivate_config_ind_hdlr(const pdc_result_ind_msg_v01* ind, uint32_t) {
  end_request(PDC_DEACT, outcome(ind));
}

void qmi_pdc_select_config_ind_hdlr(const pdc_result_ind_msg_v01* ind, uint32_t) {
  end_request(PDC_SEL_CONFIG, outcome(ind));
}

void qmi_pdc_delete_config_ind_hdlr(const pdc_result_ind_msg_v01* ind, uint32_t) {
  end_request(PDC_DEL, outcome(ind));
}

void qmi_pdc_activate_config_ind_hdlr(const pdc_result_ind_msg_v01* ind, uint32_t) {
  VELMOR_LOG_DEBUG("entering %s", __func__);
  end_request(PDC_ACT_CONFIG, outcome(ind));
}

void qmi_pdc_set_feature_ind_hdlr(const pdc_result_ind_msg_v01* ind, uint32_t) {
  VELMOR_LOG_DEBUG("entering %s", __func__);
  end_request(PDC_SET_FEATURE, outcome(ind));
}

namespace {

// Copies the id of the active configuration to the caller who asked for it.
int32_t take_active_id(const pdc_get_selected_config_ind_msg_v01& ind, Speaker speaker)
    REQUIRES(g_pdc_info.mutex) {
  if (g_pdc_info.get_sel_holder == nullptr) {
    velmor_log(LogLevel::Debug, speaker, "NULL pointer for get_sel_holder");
    return PDC_FAILED;
  }
  if (ind.active_config_id_valid == 0 || ind.active_config_id_len == 0) {
    if (ind.pending_config_id_valid != 0) {
      velmor_log(LogLevel::Debug, speaker, "has pending configuration");
    }
    return PDC_NO_CONFIGURATION;
  }
  if (ind.active_config_id_len > kPdcMaxId) return PDC_FAILED;
  pdc_config_pdc_info& out = *g_pdc_info.get_sel_holder;
  out.config_id_len = ind.active_config_id_len;
  memcpy(out.config_id, ind.active_config_id, ind.active_config_id_len);
  return PDC_OK;
}

}  // namespace

void qmi_pdc_get_selected_config_ind_hdlr(const pdc_get_selected_config_ind_msg_v01* ind,
                                          uint32_t) {
  int32_t result = outcome(ind);
  MutexLock hold(g_pdc_info.mutex);
  if (result == PDC_OK) result = take_active_id(*ind, Speaker::here());
  pdc_end_request(PDC_GET_SEL, result);
}

namespace {

int32_t load_outcome(const pdc_load_config_ind_msg_v01* ind, Speaker speaker)
    REQUIRES(g_pdc_info.mutex) {
  if (ind == nullptr) {
    velmor_log(LogLevel::Error, speaker, "NULL pointer for ind_dat_ptr");
    return PDC_FAILED;
  }
  switch (ind->error) {
    case 0: break;
    case kNoMemory:
      velmor_log(LogLevel::Debug, speaker, "no memory in modem EFS");
      return PDC_NO_MEMORY;
    case kInvalidId:
      velmor_log(LogLevel::Debug, speaker, "Invalid config id, maybe already exists");
      return PDC_INVALID_ID;
    default:
      velmor_log(LogLevel::Debug, speaker, "load configuration error, code = %d",
                 static_cast<int>(ind->error));
      return PDC_FAILED;
  }
  if (ind->frame_reset_valid != 0 && ind->frame_reset != 0) {
    velmor_log(LogLevel::Debug, speaker, "PDC frame data is reset");
    return PDC_FRAME_RESET;
  }
  if (ind->remaining_size_valid != 0) g_pdc_info.remaining_config_size = ind->remaining_size;
  if (ind->received_size_valid != 0) g_pdc_info.received_config_size = ind->received_size;
  return PDC_OK;
}

}  // namespace

void qmi_pdc_load_config_ind_hdlr(const pdc_load_config_ind_msg_v01* ind, uint32_t) {
  MutexLock hold(g_pdc_info.mutex);
  pdc_end_request(PDC_LOAD, load_outcome(ind, Speaker::here()));
}

namespace {

int32_t no_config_info(Speaker speaker) {
  velmor_log(LogLevel::Debug, speaker, "NULL pointer for config_info");
  return PDC_FAILED;
}

// What both kinds of config info tell.
template <typename Ind>
void copy_version(const Ind& ind, pdc_config_info_holder& info) {
  info.config_version_valid = ind.config_version_valid;
  info.config_version = ind.config_version;
}

}  // namespace

void qmi_pdc_get_config_info_ind_hdlr(const pdc_get_config_info_ind_msg_v01* ind, uint32_t) {
  MutexLock hold(g_pdc_info.mutex);
  pdc_config_info_holder* info = g_pdc_info.config_info;
  int32_t result = PDC_OK;
  if (ind == nullptr) {
    result = outcome(ind);
  } else if (info == nullptr) {
    result = no_config_info(Speaker::here());
  } else {
    info->config_desc_valid = ind->config_desc_valid;
    if (ind->config_desc_valid != 0) {
      info->config_desc_len = std::min(ind->config_desc_len, kPdcMaxDescription);
      memcpy(info->config_desc, ind->config_desc, info->config_desc_len);
    }
    copy_version(*ind, *info);
    info->base_version_valid = ind->base_version_valid;
    info->base_version = ind->base_version;
  }
  pdc_end_request(PDC_INFO, result);
}

void velmor_mbn_get_default_config_info_ind_hdlr(
    const pdc_get_default_config_info_ind_msg_v01* def_ind, uint32_t ind_data_len) {
  if (def_ind != nullptr) {
    VELMOR_LOG_DEBUG("ind_data_len = %d", static_cast<int>(ind_data_len));
    VELMOR_LOG_DEBUG("def_ind->error = %d", static_cast<int>(def_ind->error));
    VELMOR_LOG_DEBUG("def_ind->config_desc_valid = %d", def_ind->config_desc_valid);
    VELMOR_LOG_DEBUG("def_ind->config_desc_len = %d", static_cast<int>(def_ind->config_desc_len));
    VELMOR_LOG_DEBUG("def_ind->config_version_valid = %d", def_ind->config_version_valid);
    VELMOR_LOG_DEBUG("def_ind->config_version = %d", static_cast<int>(def_ind->config_version));
  }
  int32_t result = outcome(def_ind);
  MutexLock hold(g_pdc_info.mutex);
  pdc_config_info_holder* info = g_pdc_info.default_config_info;
  if (result == PDC_OK && info == nullptr) result = no_config_info(Speaker::here());
  if (result == PDC_OK) {
    info->config_desc_valid = def_ind->config_desc_valid;
    info->config_desc_len = std::min(def_ind->config_desc_len, kPdcMaxDescription);
    memcpy(info->config_desc, def_ind->config_desc, kPdcMaxDescription);
    copy_version(*def_ind, *info);
  }
  pdc_end_request(PDC_DEFAULT_INFO, result);
}

namespace {

// Pushes one configuration at the head of the caller's list.
bool push_config(const pdc_config_info_v01& config) REQUIRES(g_pdc_info.mutex) {
  auto* node = static_cast<pdc_config_list_node*>(
      qcril_malloc_adv(sizeof(pdc_config_list_node), __func__, __LINE__));
  if (node == nullptr) return false;
  node->config_id_len = std::min(config.config_id_len, kPdcMaxId);
  memcpy(node->config_id, config.config_id, node->config_id_len);
  node->next = *g_pdc_info.config_list_holder;
  *g_pdc_info.config_list_holder = node;
  return true;
}

struct ListPage {
  int32_t result;
  bool is_last;
};

// Takes one page of the list.
ListPage take_page(const pdc_list_configs_ind_msg_v01& ind, Speaker speaker)
    REQUIRES(g_pdc_info.mutex) {
  if (ind.error != 0) {
    velmor_log(LogLevel::Debug, speaker, "pdc_list_configs_flag, QMI error, error code: %d",
               static_cast<int>(ind.error));
    return {PDC_FAILED, true};
  }
  if (ind.config_list_valid == 0 || ind.config_list_len == 0) {
    velmor_log(LogLevel::Debug, speaker, "pdc_list_configs_flag, None MBN available in modem EFS");
    return {PDC_NO_CONFIGURATION, true};
  }
  const int len = static_cast<int>(ind.config_list_len);
  if (ind.config_list_len > kPdcMaxList) {
    velmor_log(LogLevel::Debug, speaker,
               "pdc_list_configs_flag, PDC_ERROR, more_available_valid %d, ind_token_valid %d, "
               "more_available %d, config_list_len %d",
               ind.more_available_valid, ind.ind_token_valid, ind.more_available, len);
    return {PDC_FAILED, true};
  }
  velmor_log(LogLevel::Debug, speaker, "pdc_list_configs_flag, succeed to get config_list %d ",
             len);
  velmor_log(LogLevel::Debug, speaker,
             "pdc_list_configs_flag, config_list_len %d, old num_of_configs %d", len,
             static_cast<int>(*g_pdc_info.num_of_configs));
  *g_pdc_info.num_of_configs += ind.config_list_len;
  velmor_log(LogLevel::Debug, speaker, "pdc_list_configs_flag, new num_of_configs %d",
             static_cast<int>(*g_pdc_info.num_of_configs));
  for (int i = 0; i < len; ++i) {
    if (push_config(ind.config_list[i])) continue;
    velmor_log(LogLevel::Debug, speaker,
               "pdc_list_configs_flag, Unable to allocate memory for the list element: %d", i);
  }
  const bool is_last =
      ind.more_available_valid == 0 || ind.ind_token_valid == 0 || ind.more_available == 0;
  velmor_log(LogLevel::Debug, speaker,
             "pdc_list_configs_flag, PDC_SUCCESS, more_available_valid %d, ind_token_valid %d, "
             "more_available %d, get_list_complete %d",
             ind.more_available_valid, ind.ind_token_valid, ind.more_available, is_last);
  return {PDC_OK, is_last};
}

}  // namespace

void qmi_pdc_list_configs_ind_hdlr(const pdc_list_configs_ind_msg_v01* ind, uint32_t) {
  MutexLock hold(g_pdc_info.mutex);
  pdc_req_holder_s_type& holder = g_pdc_info.holder(PDC_LIST);
  if (ind == nullptr || g_pdc_info.num_of_configs == nullptr ||
      g_pdc_info.config_list_holder == nullptr) {
    VELMOR_LOG_DEBUG(
        "pdc_list_configs_flag, NULL pointer for ind_data_ptr or  g_pdc_info.num_of_configs or "
        "g_pdc_info.config_list_holder");
    pdc_end_request(PDC_LIST, PDC_FAILED);
    return;
  }
  if (holder.is_handling == 0) {
    VELMOR_LOG_DEBUG(
        "pdc_list_configs_flag, g_pdc_info.is_pdc_list_handling is not running, do nothing");
    holder.result = PDC_FAILED;
    holder.is_done = 1;
    return;
  }
  const ListPage page = take_page(*ind, Speaker::here());
  if (page.is_last) {
    VELMOR_LOG_DEBUG("pdc_list_configs_flag, Abort to req, get_list_complete %d", page.is_last);
    pdc_end_request(PDC_LIST, page.result);
    return;
  }
  holder.result = page.result;
  g_pdc_info.ind_token = ind->ind_token;
  VELMOR_LOG_DEBUG("pdc_list_configs_flag, Continue to req, get_list_complete %d", page.is_last);
  if (velmor_timer_start(qmi_pdc_list_configs_follow_up_request, 0) == 0) {
    pdc_end_request(PDC_LIST, PDC_FAILED);
  }
}
