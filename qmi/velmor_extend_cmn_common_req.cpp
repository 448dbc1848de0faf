#include <string.h>

#include "utilities/velmor_log.h"
#include "utilities/velmor_result.h"
#include "velmor_extend_cmn.h"

namespace {

constexpr unsigned int kDirectMax = 499;

}  // namespace

int velmor_send_common_payload(const void* payload, velmor_common_rsp* rsp) {
  static_assert(sizeof(velmor_common_tlv_req) == sizeof(velmor_common_direct_req));
  auto* req = static_cast<unsigned char*>(const_cast<void*>(payload));
  unsigned int room = sizeof *rsp;
  return velmor_extend_qmi_send_sync(REQUEST_ID_COMMON, req, sizeof(velmor_common_tlv_req),
                                     reinterpret_cast<unsigned char*>(rsp), &room);
}

int velmor_send_common_qmi_msg(unsigned int t, unsigned int l, void* v, void* rsp) {
  LogScope scope;
  if (rsp == nullptr) {
    VELMOR_LOG_DEBUG("rsp is NULL");
    return VELMOR_INVALID_ARGUMENT;
  }
  memset(rsp, 0, sizeof(velmor_common_rsp));
  VELMOR_LOG_DEBUG("t %d", static_cast<int>(t));
  VELMOR_LOG_DEBUG("l %d", static_cast<int>(l));
  if (l > kCommonTlvValueMax) {
    VELMOR_LOG_DEBUG("l is out of range");
    return VELMOR_INVALID_ARGUMENT;
  }
  if (l > 0 && v == nullptr) {
    VELMOR_LOG_DEBUG("v is null");
    return VELMOR_INVALID_ARGUMENT;
  }
  velmor_common_tlv_req payload{.type = t, .length = l, .value = {}};
  if (l > 0) memcpy(payload.value, v, l);
  return velmor_send_common_payload(&payload, static_cast<velmor_common_rsp*>(rsp));
}

int velmor_common_qmi_req(unsigned int t, unsigned int l, void* v, void* rsp) {
  LogScope scope;
  if (rsp == nullptr) {
    VELMOR_LOG_DEBUG("rsp is NULL");
    return VELMOR_INVALID_ARGUMENT;
  }
  if (l > kDirectMax) {
    VELMOR_LOG_DEBUG("l is out of range");
    return VELMOR_INVALID_ARGUMENT;
  }
  memset(rsp, 0, sizeof(velmor_common_rsp));
  if (l > 0 && v == nullptr) {
    VELMOR_LOG_DEBUG("v is null");
    return VELMOR_INVALID_ARGUMENT;
  }
  velmor_common_direct_req payload{.type = t, .value = {}};
  if (l > 0) memcpy(payload.value, v, l);
  return velmor_send_common_payload(&payload, static_cast<velmor_common_rsp*>(rsp));
}
