// Where a request of the PDC client and its indication meet: one holder for each kind of request.
//
// The caller of a request waits in its holder. It is woken by the handler of the indication, on the
// QMI library's thread, or by the request's timer, on a thread of the timer library. Everything
// in here belongs to the one mutex; it is taken before the locks of those libraries.
#pragma once

#include <array>
#include <cstdint>

#include "pdc_utils.h"
#include "qmi_client.h"
#include "qti_shared_mutex.h"

// The kinds of requests; a kind is also the holder's position, and a number in the log.
enum pdc_req_type : int {
  PDC_LIST = 1,
  PDC_LOAD,
  PDC_INFO,
  PDC_DEACT,
  PDC_DEL,
  PDC_GET_SEL,
  PDC_SEL_CONFIG,
  PDC_ACT_CONFIG,
  PDC_SET_FEATURE,
  PDC_DEFAULT_INFO,
};
inline constexpr int kPdcReqTypes = 10;

struct pdc_req_holder_s_type {
  Condition cond;
  uint32_t is_handling = 0;  // a blocking call is running
  uint32_t is_waiting = 0;   // its caller sleeps on `cond`
  uint32_t is_done = 0;      // an indication or a time-out has been processed since it began
  int32_t result = 0;
  uint32_t timer_id = 0;  // the running request timer, 0 for none
};

// What the handlers of configuration infos fill in.
struct pdc_config_info_holder {
  uint8_t config_desc_valid;
  uint32_t config_desc_len;
  uint8_t config_desc[kPdcMaxDescription];
  uint8_t config_version_valid;
  uint32_t config_version;
  uint8_t base_version_valid;
  uint32_t base_version;
};

// One configuration of a list; the newest stands first.
struct pdc_config_list_node {
  uint32_t config_id_len;
  uint8_t config_id[kPdcMaxId];
  pdc_config_list_node* next;
};
static_assert(sizeof(void*) != 8 || sizeof(pdc_config_list_node) == 136);

// The pointers are the callers', borrowed while their request runs.
struct pdc_info_s_type {
  qtimutex::QtiSharedMutex mutex;
  std::array<pdc_req_holder_s_type, kPdcReqTypes> holders GUARDED_BY(mutex);

  pdc_config_list_node** config_list_holder GUARDED_BY(mutex) = nullptr;
  uint32_t* num_of_configs GUARDED_BY(mutex) = nullptr;
  uint32_t ind_token GUARDED_BY(mutex) = 0;  // of the list's next page
  uint32_t received_config_size GUARDED_BY(mutex) = 0;
  uint32_t remaining_config_size GUARDED_BY(mutex) = 0;
  pdc_config_info_holder* config_info GUARDED_BY(mutex) = nullptr;
  pdc_config_info_holder* default_config_info GUARDED_BY(mutex) = nullptr;
  pdc_config_pdc_info* get_sel_holder GUARDED_BY(mutex) = nullptr;

  pdc_req_holder_s_type& holder(pdc_req_type type) REQUIRES(mutex) {
    return holders[static_cast<size_t>(type) - 1];
  }
};
extern pdc_info_s_type& g_pdc_info;

// Stops timers that still run and forgets everything. A request that waits fails.
void qmi_pdc_init_pdc_info() EXCLUDES(g_pdc_info.mutex);

// Ends a request: its result, for whoever waits or comes to wait.
void pdc_end_request(pdc_req_type type, int32_t result) REQUIRES(g_pdc_info.mutex);

// The indication callback of the client, and what it calls with the decoded indication (null for
// none) and the size of its structure.
void qmi_pdc_unsol_ind_cb(qmi_client_type handle, unsigned int msg_id, void* buf, unsigned int len,
                          void* cb_data);
void qmi_pdc_get_selected_config_ind_hdlr(const pdc_get_selected_config_ind_msg_v01* ind,
                                          uint32_t ind_len);
void qmi_pdc_select_config_ind_hdlr(const pdc_result_ind_msg_v01* ind, uint32_t ind_len);
void qmi_pdc_list_configs_ind_hdlr(const pdc_list_configs_ind_msg_v01* ind, uint32_t ind_len);
void qmi_pdc_delete_config_ind_hdlr(const pdc_result_ind_msg_v01* ind, uint32_t ind_len);
void qmi_pdc_load_config_ind_hdlr(const pdc_load_config_ind_msg_v01* ind, uint32_t ind_len);
void qmi_pdc_activate_config_ind_hdlr(const pdc_result_ind_msg_v01* ind, uint32_t ind_len);
void qmi_pdc_get_config_info_ind_hdlr(const pdc_get_config_info_ind_msg_v01* ind, uint32_t ind_len);
void velmor_mbn_get_default_config_info_ind_hdlr(const pdc_get_default_config_info_ind_msg_v01* ind,
                                                 uint32_t ind_len);
void qmi_pdc_deactivate_config_ind_hdlr(const pdc_result_ind_msg_v01* ind, uint32_t ind_len);
void qmi_pdc_set_feature_ind_hdlr(const pdc_result_ind_msg_v01* ind, uint32_t ind_len);

// The timer callback that asks for the next page of the list.
void qmi_pdc_list_configs_follow_up_request(uint32_t* timer_id);

// The request timers, one of 5 s for each kind of request. When one fires, it ends every request
// that waits at that moment, and marks all holders done. A type that none of them has counts as
// PDC_DEFAULT_INFO.
void qmi_pdc_request_timer_start(int req_type) REQUIRES(g_pdc_info.mutex);
void qmi_pdc_request_timer_stop(int req_type) REQUIRES(g_pdc_info.mutex);
void qmi_pdc_request_timer_timeout_proc(uint32_t* timer_id) EXCLUDES(g_pdc_info.mutex);
uint32_t* qmi_pdc_request_timer_get_ptr_by_req_type(int req_type) REQUIRES(g_pdc_info.mutex);
// Null when no request has that timer.
uint32_t* qmi_pdc_request_timer_get_ptr_by_timer_id(uint32_t timer_id) REQUIRES(g_pdc_info.mutex);
// 1 when no request has that timer.
int qmi_pdc_request_timer_get_req_type_by_timer_id(uint32_t timer_id) REQUIRES(g_pdc_info.mutex);
