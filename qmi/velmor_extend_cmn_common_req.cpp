#include <string.h>

#include "utilities/velmor_log.h"
#include "utilities/velmor_result.h"
#include "velmor_extend_cmn.h"

namespace {

constexpr unsigned int kDirectMax = 499;
constexpr unsigned int kRspHeaderBytes = offsetof(velmor_common_rsp, data);

template <typename Request>
int send(const Request& req, velmor_common_rsp* rsp, unsigned int& length) {
  length = sizeof *rsp;
  return velmor_extend_qmi_send_sync(REQUEST_ID_COMMON,
                                     reinterpret_cast<const unsigned char*>(&req), sizeof req,
                                     reinterpret_cast<unsigned char*>(rsp), &length);
}

// An answer too short to hold a result counts as a failed exchange.
template <typename Request>
int exchange(const Request& req, velmor_common_rsp* rsp) {
  unsigned int length = 0;
  const int result = send(req, rsp, length);
  if (result != VELMOR_EXTEND_OK || length >= kRspHeaderBytes) return result;
  memset(rsp, 0, sizeof *rsp);
  return VELMOR_EXTEND_FAILED;
}

}  // namespace

int velmor_send_common_payload(const velmor_common_tlv_req& req, velmor_common_rsp* rsp) {
  unsigned int length = 0;
  return send(req, rsp, length);
}

int velmor_send_common_payload(const velmor_common_direct_req& req, velmor_common_rsp* rsp) {
  unsigned int length = 0;
  return send(req, rsp, length);
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
  velmor_common_tlv_req req{.type = t, .length = l, .value = {}};
  if (l > 0) memcpy(req.value, v, l);
  return exchange(req, static_cast<velmor_common_rsp*>(rsp));
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
  velmor_common_direct_req req{.type = t, .value = {}};
  if (l > 0) memcpy(req.value, v, l);
  return exchange(req, static_cast<velmor_common_rsp*>(rsp));
}
