#include "velmor_extend_nvefs.h"

#include <string.h>

#include <algorithm>

#include "mutex.h"
#include "utilities/velmor_log.h"
#include "velmor_extend_cmn.h"
#include "velmor_extend_payload.h"

namespace {

constexpr int kMaxExchanges = 300;
constexpr unsigned int kEfsReadMax = 102409;  // a read stops once more has arrived
static_assert(kEfsReadPathMax == kNvefsPathBytes);
constexpr unsigned int kRspHeaderBytes = offsetof(velmor_nvefs_rsp, data);

// Each is held for a whole operation, and taken before the extension client's lock.
Mutex g_nv_lock;
Mutex g_efs_lock;

int velmor_qmi_result_map(int result) {
  int mapped = result;
  switch (result) {
    case VELMOR_EXTEND_BAD_ARGUMENT: mapped = VELMOR_NVEFS_EXCHANGE_BAD_ARGUMENT; break;
    case VELMOR_EXTEND_NO_CLIENT: mapped = VELMOR_NVEFS_NO_CLIENT; break;
    case VELMOR_EXTEND_FAILED: mapped = VELMOR_NVEFS_EXCHANGE_FAILED; break;
  }
  VELMOR_LOG_DEBUG("velmor_qmi_result_map, old_result %d, new_result %d", result, mapped);
  return mapped;
}

// One operation's request and answer, and the checks that operations share. It logs in the name of
// the function that made it.
class Operation {
 public:
  Operation(NvefsOp op, unsigned int sub_id, Speaker speaker) : speaker_(speaker) {
    req.op_type = op;
    req.sub_id = static_cast<uint8_t>(sub_id);
  }

  velmor_nvefs_req req{};
  velmor_nvefs_rsp rsp{};

  int refuse(int code, const char* why) const {
    velmor_log(LogLevel::Debug, speaker_, "%s", why);
    return code;
  }

  int check_sub(unsigned int sub_id) const {
    return sub_id > 1 ? refuse(VELMOR_NVEFS_BAD_SUB, "sub invalid") : VELMOR_NVEFS_OK;
  }

  int check_nv(unsigned int sub_id, unsigned int nv_id) {
    if (const int error = check_sub(sub_id)) return error;
    if (nv_id > kNvIdMax) {
      velmor_log(LogLevel::Debug, speaker_, "nv_id is out range(%d)", static_cast<int>(kNvIdMax));
      return VELMOR_NVEFS_BAD_NV_ID;
    }
    req.id = static_cast<uint16_t>(nv_id);
    return VELMOR_NVEFS_OK;
  }

  int check_path(unsigned int sub_id, const char* path, int path_len, int path_max) const {
    if (const int error = check_sub(sub_id)) return error;
    if (path == nullptr) return refuse(VELMOR_NVEFS_NO_PATH, "efs_path is null");
    if (path_len < 1 || path_len > path_max) {
      return refuse(VELMOR_NVEFS_BAD_PATH_LEN, "len invalid");
    }
    return VELMOR_NVEFS_OK;
  }

  int check_room(const unsigned char* buf, const unsigned int* p_buf_len) const {
    if (buf == nullptr) return refuse(VELMOR_NVEFS_NO_BUF, "buf is null");
    if (p_buf_len == nullptr) return refuse(VELMOR_NVEFS_BAD_LEN, "p_buf_len is null");
    velmor_log(LogLevel::Debug, speaker_, "buf_len: %d", static_cast<int>(*p_buf_len));
    if (*p_buf_len == 0) return refuse(VELMOR_NVEFS_BAD_LEN, "buf_len is invalid");
    return VELMOR_NVEFS_OK;
  }

  int check_data(const unsigned char* buf, bool len_is_valid) const {
    if (buf == nullptr) return refuse(VELMOR_NVEFS_NO_BUF, "buf is null");
    if (!len_is_valid) return refuse(VELMOR_NVEFS_BAD_LEN, "buf_len is invalid");
    return VELMOR_NVEFS_OK;
  }

  void put_path(const char* path, int path_len) {
    char local[kEfsReadPathMax + 1] = {};
    memcpy(local, path, static_cast<size_t>(path_len));
    velmor_log(LogLevel::Debug, speaker_, "path_value: %s", local);
    req.path_len = static_cast<uint8_t>(path_len);
    memcpy(req.path, local, static_cast<size_t>(path_len));
  }

  // Sends `req` and receives `rsp`. 0; the mapped result of an exchange that failed; an error that
  // the modem gives. The room is never raised again: an answer that is shorter than it lowers it
  // for the exchanges that follow.
  int exchange() {
    const bool is_efs_read = req.op_type == NvefsOp::EfsRead;
    const bool is_efs_write = req.op_type == NvefsOp::EfsWrite;
    const int result = send();
    velmor_log(LogLevel::Debug, speaker_, "result = %d, %s = %d", result,
               is_efs_write ? "rsp.result[>=0 is instance id]" : "rsp.result", rsp.result);
    if (result != VELMOR_NVEFS_OK) {
      return refuse(result, is_efs_read ? "velmor_extend_qmi_send_sync fail, ABORT"
                                        : "velmor_extend_qmi_send_sync fail");
    }
    const bool is_refused = is_efs_write ? rsp.result < 0 : rsp.result != 0;
    return is_refused ? refuse(rsp.result, "qmi response fail") : VELMOR_NVEFS_OK;
  }

  // How many of `told` data bytes the answer of a good exchange really holds.
  unsigned int held(unsigned int told) const { return std::min(told, room_ - kRspHeaderBytes); }

 private:
  // An answer too short to hold a result counts as a failed exchange.
  int send() {
    memset(&rsp, 0, sizeof rsp);
    int result =
        velmor_extend_qmi_send_sync(REQUEST_ID_EFS, reinterpret_cast<const unsigned char*>(&req),
                                    sizeof req, reinterpret_cast<unsigned char*>(&rsp), &room_);
    if (result == VELMOR_EXTEND_OK && room_ < kRspHeaderBytes) {
      memset(&rsp, 0, sizeof rsp);
      result = VELMOR_EXTEND_FAILED;
    }
    return velmor_qmi_result_map(result);
  }

  const Speaker speaker_;
  unsigned int room_ = sizeof rsp;
};

}  // namespace

int velmor_nv_read(unsigned int sub_id, unsigned int nv_id, unsigned char* buf,
                   unsigned int* p_buf_len) {
  LogScope scope;
  MutexLock hold(g_nv_lock);
  VELMOR_LOG_DEBUG("velmor_nv_read, sub_id %d, nv_id: %d", static_cast<int>(sub_id),
                   static_cast<int>(nv_id));
  Operation op(NvefsOp::NvRead, sub_id, Speaker::here());
  if (const int error = op.check_nv(sub_id, nv_id)) return error;
  if (const int error = op.check_room(buf, p_buf_len)) return error;

  if (const int error = op.exchange()) return error;
  VELMOR_LOG_DEBUG("rsp.data_len_all = %d", static_cast<int>(op.rsp.data_len_all));
  const unsigned int held = op.held(op.rsp.data_len_all);
  if (held == 0) return op.refuse(VELMOR_NVEFS_BAD_LEN, "rsp.data_len_all is invalid");
  *p_buf_len = std::min(*p_buf_len, held);
  memcpy(buf, op.rsp.data, *p_buf_len);
  return VELMOR_NVEFS_OK;
}

int velmor_nv_write_ex(unsigned int sub_id, unsigned int nv_id, unsigned char* buf, int buf_len) {
  LogScope scope;
  MutexLock hold(g_nv_lock);
  VELMOR_LOG_DEBUG("velmor_nv_write, sub_id %d, nv_id: %d, buf_len: %d", static_cast<int>(sub_id),
                   static_cast<int>(nv_id), buf_len);
  Operation op(NvefsOp::NvWrite, sub_id, Speaker::here());
  if (const int error = op.check_nv(sub_id, nv_id)) return error;
  const bool len_is_valid = buf_len >= 1 && buf_len <= static_cast<int>(kNvefsDataMax);
  if (const int error = op.check_data(buf, len_is_valid)) return error;

  op.req.data_len_all = static_cast<uint32_t>(buf_len);
  memcpy(op.req.data, buf, static_cast<size_t>(buf_len));
  return op.exchange();
}

int velmor_nv_delete(unsigned int sub_id, unsigned int nv_id) {
  LogScope scope;
  MutexLock hold(g_nv_lock);
  VELMOR_LOG_DEBUG("velmor_nv_delete, sub_id %d, nv_id: %d", static_cast<int>(sub_id),
                   static_cast<int>(nv_id));
  Operation op(NvefsOp::NvDelete, sub_id, Speaker::here());
  if (const int error = op.check_nv(sub_id, nv_id)) return error;
  return op.exchange();
}

int velmor_efs_read(unsigned int sub_id, const char* efs_path, int path_len, unsigned char* buf,
                    unsigned int* p_buf_len) {
  LogScope scope;
  MutexLock hold(g_efs_lock);
  VELMOR_LOG_DEBUG("velmor_efs_read, sub_id %d, path_len: %d", static_cast<int>(sub_id), path_len);
  Operation op(NvefsOp::EfsRead, sub_id, Speaker::here());
  if (const int error = op.check_path(sub_id, efs_path, path_len, kEfsReadPathMax)) return error;
  if (const int error = op.check_room(buf, p_buf_len)) return error;
  op.put_path(efs_path, path_len);

  const unsigned int room = *p_buf_len;
  unsigned int received = 0;
  for (int count = 1;; ++count) {
    const unsigned int offset = received;
    op.req.data_len_cur = offset;
    if (const int error = op.exchange()) return error;
    const unsigned int chunk = op.held(op.rsp.data_len_send);
    received += chunk;
    VELMOR_LOG_DEBUG(
        "data_len_all = %d, data_len_send = %d, data_len_recv = %d, read_count = %d, "
        "data_len_cur = %d",
        static_cast<int>(op.rsp.data_len_all), static_cast<int>(op.rsp.data_len_send),
        static_cast<int>(received), count, static_cast<int>(offset));
    if (chunk == 0) return op.refuse(VELMOR_NVEFS_BAD_LEN, "abort, data_len_send <= 0");
    if (room <= received) {
      *p_buf_len = room;
      if (offset < room) {
        memcpy(buf + offset, op.rsp.data, room - offset);
        VELMOR_LOG_DEBUG("abort, buf_len <= data_len_recv");
      } else {
        VELMOR_LOG_DEBUG("errro, abort, buf_len <= req.data_len_cur");
      }
      return VELMOR_NVEFS_OK;
    }
    *p_buf_len = received;
    memcpy(buf + offset, op.rsp.data, chunk);
    if (received >= op.rsp.data_len_all || received > kEfsReadMax || count == kMaxExchanges) {
      return VELMOR_NVEFS_OK;
    }
  }
}

int velmor_efs_write(unsigned int sub_id, const char* efs_path, int path_len, unsigned char* buf,
                     unsigned int buf_len) {
  LogScope scope;
  MutexLock hold(g_efs_lock);
  VELMOR_LOG_DEBUG("velmor_efs_write, sub_id %d, path_len: %d, buf_len: %d",
                   static_cast<int>(sub_id), path_len, static_cast<int>(buf_len));
  Operation op(NvefsOp::EfsWrite, sub_id, Speaker::here());
  if (const int error = op.check_path(sub_id, efs_path, path_len, kEfsPathMax)) return error;
  const bool len_is_valid = buf_len >= 1 && buf_len <= kEfsWriteMax;
  if (const int error = op.check_data(buf, len_is_valid)) return error;
  op.put_path(efs_path, path_len);

  op.req.id = kNoEfsInstance;
  op.req.data_len_all = buf_len;
  unsigned int sent = 0;
  for (int count = 1;; ++count) {
    const unsigned int left = buf_len - sent;
    VELMOR_LOG_DEBUG("left_num(%d)", static_cast<int>(left));
    const unsigned int chunk = std::min(left, kEfsWriteChunkMax);
    VELMOR_LOG_DEBUG("send_num(%d)", static_cast<int>(chunk));
    op.req.data_len_send = chunk;
    op.req.data_len_cur = sent;
    memset(op.req.data, 0, sizeof op.req.data);
    memcpy(op.req.data, buf + sent, chunk);
    if (const int error = op.exchange()) return error;
    op.req.id = static_cast<uint16_t>(op.rsp.result);
    sent += chunk;
    VELMOR_LOG_DEBUG(
        "data_len_all = %d, data_len_send = %d, data_len_recv = %d, send_count = %d, "
        "data_len_cur = %d",
        static_cast<int>(buf_len), static_cast<int>(chunk), static_cast<int>(sent), count,
        static_cast<int>(sent - chunk));
    if (sent >= buf_len || count == kMaxExchanges) return VELMOR_NVEFS_OK;
  }
}

int velmor_efs_delete(unsigned int sub_id, const char* efs_path, int path_len) {
  LogScope scope;
  MutexLock hold(g_efs_lock);
  VELMOR_LOG_DEBUG("velmor_efs_delete, sub_id %d, path_len: %d", static_cast<int>(sub_id),
                   path_len);
  Operation op(NvefsOp::EfsDelete, sub_id, Speaker::here());
  if (const int error = op.check_path(sub_id, efs_path, path_len, kEfsPathMax)) return error;
  op.put_path(efs_path, path_len);
  return op.exchange();
}

int velmor_nvefs_sync() {
  velmor_common_rsp rsp{};
  const int ret_sync = velmor_send_common_qmi_msg(VELMOR_COMMON_NV_SYNC, 0, nullptr, &rsp);
  VELMOR_LOG_DEBUG("velmor_send_common_qmi_msg, ret_sync: %d, rsp.result: %d", ret_sync,
                   rsp.result);
  return ret_sync | rsp.result;
}
