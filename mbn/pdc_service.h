// The published PDC service, id 0x24: the modem's configurations (MBN). Every request is answered
// twice, by a response that says whether it is taken up and by an indication with its outcome.
#pragma once

#include <cstdint>

#include "qmi_message.h"

inline constexpr uint16_t QMI_PDC_GET_SELECTED_CONFIG_REQ_V01 = 0x0022;
inline constexpr uint16_t QMI_PDC_SET_SELECTED_CONFIG_REQ_V01 = 0x0023;
inline constexpr uint16_t QMI_PDC_LIST_CONFIGS_REQ_V01 = 0x0024;
inline constexpr uint16_t QMI_PDC_DELETE_CONFIG_REQ_V01 = 0x0025;
inline constexpr uint16_t QMI_PDC_LOAD_CONFIG_REQ_V01 = 0x0026;
inline constexpr uint16_t QMI_PDC_ACTIVATE_CONFIG_REQ_V01 = 0x0027;
inline constexpr uint16_t QMI_PDC_GET_CONFIG_INFO_REQ_V01 = 0x0028;
inline constexpr uint16_t QMI_PDC_GET_DEFAULT_CONFIG_INFO_REQ_V01 = 0x002A;
inline constexpr uint16_t QMI_PDC_DEACTIVATE_CONFIG_REQ_V01 = 0x002B;
inline constexpr uint16_t QMI_PDC_SET_FEATURE_REQ_V01 = 0x002E;

inline constexpr unsigned int kPdcMaxId = 124;
inline constexpr unsigned int kPdcMaxList = 25;
inline constexpr unsigned int kPdcMaxDescription = 255;
inline constexpr unsigned int kPdcMaxFrame = 32768;

enum pdc_config_type_enum_v01 : uint32_t {
  PDC_CONFIG_TYPE_MODEM_PLATFORM_V01 = 0,
  PDC_CONFIG_TYPE_MODEM_SW_V01 = 1,
};

enum pdc_activation_type_enum_v01 : uint32_t {
  PDC_ACTIVATION_REGULAR_V01 = 0,
  PDC_ACTIVATION_REFRESH_ONLY_V01 = 1,
};

struct pdc_config_info_v01 {
  uint32_t config_type;
  uint32_t config_id_len;
  uint8_t config_id[kPdcMaxId];
};

struct pdc_get_selected_config_req_msg_v01 {
  uint32_t config_type;
  uint8_t ind_token_valid;
  uint32_t ind_token;
  uint8_t subscription_id_valid;
  uint32_t subscription_id;
  uint8_t slot_id_valid;
  uint32_t slot_id;
};

struct pdc_set_selected_config_req_msg_v01 {
  pdc_config_info_v01 new_config_info;
  uint8_t ind_token_valid;
  uint32_t ind_token;
  uint8_t subscription_id_valid;
  uint32_t subscription_id;
  uint8_t slot_id_valid;
  uint32_t slot_id;
};

struct pdc_list_configs_req_msg_v01 {
  uint8_t ind_token_valid;
  uint32_t ind_token;
  uint8_t config_type_valid;
  uint32_t config_type;
  uint8_t multi_config_valid;
  uint8_t multi_config;  // 1: the client takes a list in several pages
};

struct pdc_activate_config_req_msg_v01 {
  uint32_t config_type;
  uint8_t ind_token_valid;
  uint32_t ind_token;
  uint8_t activation_type_valid;
  uint32_t activation_type;
  uint8_t subscription_id_valid;
  uint32_t subscription_id;
  uint8_t slot_id_valid;
  uint32_t slot_id;
};

struct pdc_deactivate_config_req_msg_v01 {
  uint32_t config_type;
  uint8_t ind_token_valid;
  uint32_t ind_token;
  uint8_t subscription_id_valid;
  uint32_t subscription_id;
};

struct pdc_delete_config_req_msg_v01 {
  uint32_t config_type;
  uint8_t ind_token_valid;
  uint32_t ind_token;
  uint8_t config_id_valid;
  uint32_t config_id_len;
  uint8_t config_id[kPdcMaxId];
};

// One part of a configuration.
struct pdc_load_frame_v01 {
  uint32_t config_type;
  uint32_t config_id_len;
  uint8_t config_id[kPdcMaxId];
  uint32_t total_size;
  uint32_t frame_len;
  uint8_t frame[kPdcMaxFrame];
};

struct pdc_load_config_req_msg_v01 {
  pdc_load_frame_v01 load_config;
  uint8_t ind_token_valid;
  uint32_t ind_token;
};

struct pdc_get_config_info_req_msg_v01 {
  pdc_config_info_v01 config_info;
  uint8_t ind_token_valid;
  uint32_t ind_token;
};

// The request for the default configuration's info, and that for a feature.
struct pdc_type_req_msg_v01 {
  uint32_t config_type;
  uint8_t ind_token_valid;
  uint32_t ind_token;
};

// The response to every request.
struct pdc_resp_msg_v01 {
  qmi_response_type_v01 resp;
};

// The indication of a request that has nothing to tell but its outcome.
struct pdc_result_ind_msg_v01 {
  uint32_t error;  // QMI error number, 0 on success
  uint8_t ind_token_valid;
  uint32_t ind_token;
};

struct pdc_get_selected_config_ind_msg_v01 {
  uint32_t error;
  uint8_t ind_token_valid;
  uint32_t ind_token;
  uint8_t active_config_id_valid;
  uint32_t active_config_id_len;
  uint8_t active_config_id[kPdcMaxId];
  uint8_t pending_config_id_valid;
  uint32_t pending_config_id_len;
  uint8_t pending_config_id[kPdcMaxId];
};

struct pdc_list_configs_ind_msg_v01 {
  uint32_t error;
  uint8_t ind_token_valid;
  uint32_t ind_token;
  uint8_t config_list_valid;
  uint32_t config_list_len;
  pdc_config_info_v01 config_list[kPdcMaxList];
  uint8_t more_available_valid;
  uint8_t more_available;
};

struct pdc_load_config_ind_msg_v01 {
  uint32_t error;
  uint8_t ind_token_valid;
  uint32_t ind_token;
  uint8_t received_size_valid;
  uint32_t received_size;
  uint8_t remaining_size_valid;
  uint32_t remaining_size;
  uint8_t frame_reset_valid;
  uint8_t frame_reset;
};

struct pdc_get_config_info_ind_msg_v01 {
  uint32_t error;
  uint8_t ind_token_valid;
  uint32_t ind_token;
  uint8_t total_size_valid;
  uint32_t total_size;
  uint8_t config_desc_valid;
  uint32_t config_desc_len;
  uint8_t config_desc[kPdcMaxDescription];
  uint8_t config_version_valid;
  uint32_t config_version;
  uint8_t base_version_valid;
  uint32_t base_version;
};

struct pdc_get_default_config_info_ind_msg_v01 {
  uint32_t error;
  uint8_t ind_token_valid;
  uint32_t ind_token;
  uint8_t config_version_valid;
  uint32_t config_version;
  uint8_t total_size_valid;
  uint32_t total_size;
  uint8_t config_desc_valid;
  uint32_t config_desc_len;
  uint8_t config_desc[kPdcMaxDescription];
};

// An indication whose content nobody here reads.
struct pdc_opaque_ind_msg_v01 {
  uint8_t unread;
};

// The description of the service, or null for any version but (1, 16, 6).
qmi_idl_service_object_type pdc_get_service_object_internal_v01(int major, int minor, int library);
