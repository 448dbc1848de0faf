#include "modem_files.h"

#include <string.h>

#include <algorithm>
#include <charconv>

#include "bus_survey.h"
#include "catalogue.h"
#include "velmor_extend_nvefs.h"

namespace ctl {
namespace {

constexpr uint32_t kOpenMs = 1000;  // for a service that is not there
constexpr size_t kPathMax = 70;     // what can be written and deleted as well

static_assert(kFileMax == kEfsWriteMax);

qmi_idl_service_object_type service() {
  return velmor_extend_get_service_object_internal_v01(1, 1, 6);
}

ModemFiles::Done malformed(const Target& target, const std::string& why) {
  return {{Status::Malformed, target.text() + ": " + why}};
}

velmor_nvefs_req request_for(const Target& target, NvefsOp item_op, NvefsOp file_op) {
  velmor_nvefs_req req{};
  req.op_type = target.is_nv ? item_op : file_op;
  req.sub_id = static_cast<uint8_t>(target.sub);
  if (target.is_nv) {
    req.id = static_cast<uint16_t>(target.id);
  } else {
    req.path_len = static_cast<uint8_t>(target.path.size());
    memcpy(req.path, target.path.data(), target.path.size());
  }
  return req;
}

}  // namespace

std::string Target::name() const {
  return is_nv ? "nv " + std::to_string(id) : path;
}

std::string Target::text() const {
  return (is_nv ? "NV item " + std::to_string(id) : path) + " of subscription " +
         std::to_string(sub);
}

bool parse_target(const std::string& text, unsigned int sub, Target& target, std::string& problem) {
  target = {.is_nv = !text.starts_with('/'), .id = 0, .path = {}, .sub = sub};
  if (!target.is_nv) {
    target.path = text;
    if (text.size() <= kPathMax) return true;
    problem = text + ": a path has at most " + std::to_string(kPathMax) + " bytes";
    return false;
  }
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, target.id);
  if (error == std::errc() && rest == end && target.id <= kNvIdMax) return true;
  problem = text + ": neither an NV item, 0 to " + std::to_string(kNvIdMax) +
            ", nor a path that begins with /";
  return false;
}

ModemFiles::~ModemFiles() {
  if (client_ != nullptr) qmi_client_release(client_);
}

ModemFiles::Done ModemFiles::open() {
  if (client_ != nullptr) return {};
  qmi_client_os_params os_params{};
  const auto error = qmi_client_init_instance(service(), QMI_CLIENT_INSTANCE_ANY, nullptr, nullptr,
                                              &os_params, kOpenMs, &client_);
  if (error == QMI_NO_ERR) return {};
  client_ = nullptr;
  return {why_no_client(*service())};
}

ModemFiles::Done ModemFiles::send(uint32_t request_id, const void* req, void* rsp, size_t least,
                                  size_t room, size_t& held) {
  if (Done opened = open(); !opened.ok()) return opened;
  message_.request_id = request_id;
  message_.data_len = kExtendDataBytes;
  message_.data_valid = 1;
  memcpy(message_.data, req, kExtendDataBytes);
  const auto error =
      qmi_client_send_msg_sync(client_, kExtendSendDataMsg, &message_, sizeof message_, &answer_,
                               sizeof answer_, answer_ms_);
  if (error == QMI_SERVICE_ERR || error == QMI_PORT_NOT_OPEN_ERR) {
    qmi_client_release(client_);  // another client may find the service again
    client_ = nullptr;
    return {{Status::NoAnswer, "the extension service went away"}};
  }
  if (error == QMI_INTERNAL_ERR) return {{Status::Malformed, "the answer cannot be decoded"}};
  if (error != QMI_NO_ERR) return {{Status::NoAnswer, "the extension service does not answer"}};
  if (answer_.result != 0) {
    return {{Status::Refused, "the extension service: " + qmi_error_text(answer_.result)}};
  }
  held = answer_.data_valid != 0 ? std::min<size_t>(answer_.data_len, room) : 0;
  if (held < least) {
    return {{Status::Malformed, "an answer of " + std::to_string(held) + " bytes"}};
  }
  memcpy(rsp, answer_.data, room);
  return {};
}

ModemFiles::Done ModemFiles::exchange(const Target& target, const velmor_nvefs_req& req,
                                      velmor_nvefs_rsp& rsp, size_t& data_held) {
  constexpr size_t kHeader = offsetof(velmor_nvefs_rsp, data);
  size_t held = 0;
  Done done = send(REQUEST_ID_EFS, &req, &rsp, kHeader, sizeof rsp, held);
  if (!done.ok()) {
    done.cause = target.text() + ": " + done.cause;
    return done;
  }
  data_held = held - kHeader;
  const bool refused = req.op_type == NvefsOp::EfsWrite ? rsp.result < 0 : rsp.result != 0;
  if (!refused) return {};
  const auto [text, absent] =
      target.is_nv ? std::pair(nv_result_text(rsp.result), nv_is_absent(rsp.result))
                   : std::pair(efs_result_text(rsp.result), efs_is_absent(rsp.result));
  return {{Status::Refused, target.text() + ": " + text}, absent};
}

ModemFiles::Done ModemFiles::read(const Target& target, std::string& bytes) {
  bytes.clear();
  return target.is_nv ? read_item(target, bytes) : read_file(target, bytes);
}

ModemFiles::Done ModemFiles::read_item(const Target& target, std::string& bytes) {
  velmor_nvefs_rsp rsp;
  size_t held = 0;
  Done done = exchange(target, request_for(target, NvefsOp::NvRead, NvefsOp::EfsRead), rsp, held);
  if (!done.ok()) return done;
  if (rsp.data_len_all > held) return malformed(target, "fewer bytes than the answer says");
  if (rsp.data_len_all == 0) return malformed(target, "an item without a byte");
  bytes.assign(reinterpret_cast<const char*>(rsp.data), rsp.data_len_all);
  return done;
}

ModemFiles::Done ModemFiles::read_file(const Target& target, std::string& bytes) {
  velmor_nvefs_req req = request_for(target, NvefsOp::NvRead, NvefsOp::EfsRead);
  for (;;) {
    velmor_nvefs_rsp rsp;
    size_t held = 0;
    req.data_len_cur = static_cast<uint32_t>(bytes.size());
    if (Done done = exchange(target, req, rsp, held); !done.ok()) return done;
    const size_t size = rsp.data_len_all, chunk = rsp.data_len_send;
    if (size > kFileMax) return malformed(target, "a file of " + std::to_string(size) + " bytes");
    if (chunk > held) return malformed(target, "fewer bytes than the answer says");
    if (chunk > size - std::min(size, bytes.size())) {
      return malformed(target, "more bytes than the file has");
    }
    bytes.append(reinterpret_cast<const char*>(rsp.data), chunk);
    if (bytes.size() == size) return {};
    if (chunk == 0) return malformed(target, "an answer without a byte");
  }
}

ModemFiles::Done ModemFiles::write(const Target& target, std::string_view bytes) {
  return target.is_nv ? write_item(target, bytes) : write_file(target, bytes);
}

ModemFiles::Done ModemFiles::write_item(const Target& target, std::string_view bytes) {
  if (bytes.empty() || bytes.size() > kNvefsDataMax) {
    return {{Status::Usage, target.text() + ": an item has 1 to " + std::to_string(kNvefsDataMax) +
                                " bytes, not " + std::to_string(bytes.size())}};
  }
  velmor_nvefs_req req = request_for(target, NvefsOp::NvWrite, NvefsOp::EfsWrite);
  req.data_len_all = static_cast<uint32_t>(bytes.size());
  memcpy(req.data, bytes.data(), bytes.size());
  velmor_nvefs_rsp rsp;
  size_t held = 0;
  return exchange(target, req, rsp, held);
}

// A file without a byte is one exchange as well.
ModemFiles::Done ModemFiles::write_file(const Target& target, std::string_view bytes) {
  if (bytes.size() > kFileMax) {
    return {{Status::Usage, target.text() + ": a file has at most " + std::to_string(kFileMax) +
                                " bytes, not " + std::to_string(bytes.size())}};
  }
  velmor_nvefs_req req = request_for(target, NvefsOp::NvWrite, NvefsOp::EfsWrite);
  req.id = kNoEfsInstance;
  req.data_len_all = static_cast<uint32_t>(bytes.size());
  size_t sent = 0;
  do {
    const size_t chunk = std::min<size_t>(bytes.size() - sent, kEfsWriteChunkMax);
    req.data_len_send = static_cast<uint32_t>(chunk);
    req.data_len_cur = static_cast<uint32_t>(sent);
    memcpy(req.data, bytes.data() + sent, chunk);
    memset(req.data + chunk, 0, sizeof req.data - chunk);
    velmor_nvefs_rsp rsp;
    size_t held = 0;
    if (Done done = exchange(target, req, rsp, held); !done.ok()) return done;
    req.id = static_cast<uint16_t>(rsp.result);
    sent += chunk;
  } while (sent < bytes.size());
  return {};
}

ModemFiles::Done ModemFiles::remove(const Target& target) {
  velmor_nvefs_rsp rsp;
  size_t held = 0;
  return exchange(target, request_for(target, NvefsOp::NvDelete, NvefsOp::EfsDelete), rsp, held);
}

ModemFiles::Done ModemFiles::commit() {
  const velmor_common_tlv_req req{.type = VELMOR_COMMON_NV_SYNC, .length = 0, .value = {}};
  velmor_common_rsp rsp;
  size_t held = 0;
  Done done =
      send(REQUEST_ID_COMMON, &req, &rsp, offsetof(velmor_common_rsp, data), sizeof rsp, held);
  if (done.ok() && rsp.result != 0) {
    done = {{Status::Refused, common_result_text(rsp.result)}};
  }
  if (!done.ok()) done.cause = "the commit: " + done.cause;
  return done;
}

}  // namespace ctl
