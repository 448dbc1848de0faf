#include "pdc_utils_info.h"
#include "utilities/velmor_log.h"
#include "velmor_timer.h"

namespace {

constexpr uint64_t kRequestS = 5;

// What each kind of request is called in the log, from 1 on.
constexpr const char* kWords[kPdcReqTypes] = {
    "pdc_list", "pdc_load",   "pdc_info",   "pdc_deact",   "pdc_del",
    "get_sel",  "sel_config", "act_config", "set_feature", "default_info"};

// The kind of request whose timer that is, or 0.
int find_req_type(uint32_t timer_id, Speaker speaker) REQUIRES(g_pdc_info.mutex) {
  for (int type = 1; type <= kPdcReqTypes; ++type) {
    if (*qmi_pdc_request_timer_get_ptr_by_req_type(type) == timer_id) return type;
  }
  velmor_log(LogLevel::Error, speaker, "not find this timer_id(%u)", timer_id);
  return 0;
}

}  // namespace

uint32_t* qmi_pdc_request_timer_get_ptr_by_req_type(int req_type) {
  const bool known = req_type >= PDC_LIST && req_type <= PDC_SET_FEATURE;
  return &g_pdc_info.holder(known ? static_cast<pdc_req_type>(req_type) : PDC_DEFAULT_INFO)
              .timer_id;
}

uint32_t* qmi_pdc_request_timer_get_ptr_by_timer_id(uint32_t timer_id) {
  const int type = find_req_type(timer_id, Speaker::here());
  return type != 0 ? qmi_pdc_request_timer_get_ptr_by_req_type(type) : nullptr;
}

int qmi_pdc_request_timer_get_req_type_by_timer_id(uint32_t timer_id) {
  const int type = find_req_type(timer_id, Speaker::here());
  return type != 0 ? type : PDC_LIST;
}

void qmi_pdc_request_timer_start(int req_type) {
  uint32_t* slot = qmi_pdc_request_timer_get_ptr_by_req_type(req_type);
  if (*slot != 0) {
    VELMOR_LOG_DEBUG(
        "find the timer is running, will stop it af first, timer_id = %u, req_type = %d", *slot,
        req_type);
    qmi_pdc_request_timer_stop(req_type);
  }
  const uint32_t timer_id = velmor_timer_start(qmi_pdc_request_timer_timeout_proc, kRequestS);
  VELMOR_LOG_DEBUG("req_type = %d, timer_id = %u", req_type, timer_id);
  *slot = timer_id;
}

void qmi_pdc_request_timer_stop(int req_type) {
  uint32_t* slot = qmi_pdc_request_timer_get_ptr_by_req_type(req_type);
  VELMOR_LOG_DEBUG("req_type = %d, timer_id = %u", req_type, *slot);
  velmor_timer_stop(*slot);
  *slot = 0;
}

void qmi_pdc_request_timer_timeout_proc(uint32_t* timer_id) {
  VELMOR_LOG_DEBUG("timer_id = %u", *timer_id);
  MutexLock hold(g_pdc_info.mutex);
  for (int type = 1; type <= kPdcReqTypes; ++type) {
    pdc_req_holder_s_type& holder = g_pdc_info.holder(static_cast<pdc_req_type>(type));
    if (holder.is_waiting != 0) {
      VELMOR_LOG_DEBUG("%s is waiting, will stop it.", kWords[type - 1]);
      holder.result = PDC_FAILED;
      holder.cond.notify_one();
    }
    holder.is_done = 1;
  }
  uint32_t* slot = qmi_pdc_request_timer_get_ptr_by_timer_id(*timer_id);
  const int type = qmi_pdc_request_timer_get_req_type_by_timer_id(*timer_id);
  if (slot != nullptr) {
    *slot = 0;
    VELMOR_LOG_DEBUG("reset this timer_id(%u), req_type = %d.", *timer_id, type);
  }
}
