#include "sim_extension.h"

#include <errno.h>
#include <string.h>

#include <algorithm>

#include "state_reader.h"

namespace sim {
namespace {

constexpr uint8_t kRequestIdTlv = 0x01;
constexpr uint32_t kRefused = 1;  // `result` for a request id the service does not know

// What the modem's NV manager answers.
constexpr int kNvBadCommand = 2;
constexpr int kNvFail = 4;
constexpr int kNvNotActive = 5;
constexpr int kNvBadParameter = 6;

constexpr size_t kMaxOpenWrites = 16;
// Beyond 8 bits, of which 255 asks for a new one: a client that cuts an id quotes a wrong one.
constexpr int kFirstInstance = 1000;
constexpr int kLastInstance = 9999;

constexpr int32_t kCommonNotSupported = 94;
constexpr int32_t kCommonInvalidArgument = 48;
constexpr int32_t kCommonFailed = 3;

// A restart or a dump begins a moment after its request was answered.
constexpr uint32_t kCrashMs = 100;
constexpr uint32_t kRestartMs = 300;

std::string path_of(const velmor_nvefs_req& req) {
  const size_t told = std::min<size_t>(req.path_len, sizeof req.path);
  const auto* path = reinterpret_cast<const char*>(req.path);
  return std::string(path, strnlen(path, told));
}

// The structure that a value begins with. False when the value is too short.
template <typename Value>
bool read_value(std::span<const uint8_t> bytes, Value& value) {
  if (bytes.size() < sizeof value) return false;
  memcpy(&value, bytes.data(), sizeof value);
  return true;
}

void put_payload(const void* bytes, size_t size, velmor_extend_send_data_resp_msg_v01& response) {
  response.data_valid = 1;
  response.data_len = static_cast<uint32_t>(size);
  memcpy(response.data, bytes, size);
}

// An answer of the modem that is nothing but a result.
void put_result(uint32_t request_id, int32_t result,
                velmor_extend_send_data_resp_msg_v01& response) {
  velmor_nvefs_rsp nvefs{};
  velmor_common_rsp common{};
  nvefs.result = common.result = result;
  if (request_id == REQUEST_ID_EFS) {
    put_payload(&nvefs, offsetof(velmor_nvefs_rsp, data), response);
  } else {
    put_payload(&common, offsetof(velmor_common_rsp, data), response);
  }
}

}  // namespace

const qmi_idl_service_object& ExtensionService::description() const {
  return *velmor_extend_get_service_object_internal_v01(1, 1, 6);
}

uint32_t ExtensionService::answer(qmi::Address client, uint16_t message, const void* request,
                                  void* response, Aftermath& aftermath) {
  // Messages 0x03, 0x04 and 0x0A are sent by nobody; what they mean is not known.
  if (message != kExtendSendDataMsg) return kQmiNotSupported;
  const auto& req = *static_cast<const velmor_extend_send_data_req_msg_v01*>(request);
  auto& resp = *static_cast<velmor_extend_send_data_resp_msg_v01*>(response);
  const Payload payload(req.data);
  try {
    switch (req.request_id) {
      case REQUEST_ID_EFS: answer_nvefs(client, payload, resp); break;
      case REQUEST_ID_COMMON: answer_common(payload, resp, aftermath); break;
      default: resp.result = kRefused; break;
    }
  } catch (const StateError&) {
    put_result(req.request_id, -EIO, resp);  // it cannot say: its state cannot be read
  }
  return 0;
}

// The service has a result of its own in place of the standard one.
std::vector<uint8_t> ExtensionService::refusal(const qmi::Header& request, uint32_t error) const {
  if (request.message != kExtendSendDataMsg) return Service::refusal(request, error);
  return packet_of(request, {.result = error, .data_len = 0, .data_valid = 0, .data = {}});
}

std::vector<uint8_t> ExtensionService::refusal_inside(std::span<const uint8_t> request,
                                                      int32_t result) const {
  const qmi::Header header = *qmi::read_header(request);
  const auto id = qmi::find_tlv(request.subspan(qmi::kHeaderBytes), kRequestIdTlv);
  uint32_t request_id = 0;
  if (!read_value(id, request_id)) return refusal(header, static_cast<uint32_t>(result));
  velmor_extend_send_data_resp_msg_v01 resp{};
  put_result(request_id, result, resp);
  return packet_of(header, resp);
}

std::vector<uint8_t> ExtensionService::packet_of(
    const qmi::Header& request, const velmor_extend_send_data_resp_msg_v01& response) const {
  const qmi::Message& message = *description().find(qmi::Kind::Response, kExtendSendDataMsg);
  return make_packet(qmi::Kind::Response, request.transaction, request.message, message, &response);
}

void ExtensionService::client_gone(qmi::Address client) {
  std::erase_if(open_writes_, [&](const OpenWrite& write) { return write.client == client; });
}

void ExtensionService::answer_nvefs(qmi::Address client, Payload payload,
                                    velmor_extend_send_data_resp_msg_v01& response) {
  velmor_nvefs_req req;
  memcpy(&req, payload.data(), sizeof req);
  velmor_nvefs_rsp rsp{};
  size_t data_bytes = 0;
  if (req.sub_id >= kSubscriptions) {
    rsp.result = -EINVAL;
  } else {
    switch (req.op_type) {
      case NvefsOp::NvRead: rsp.result = nv_read(req, rsp, data_bytes); break;
      case NvefsOp::NvWrite: rsp.result = nv_write(req); break;
      case NvefsOp::NvDelete:
        rsp.result = modem_.nv_delete(req.sub_id, req.id) ? 0 : kNvNotActive;
        break;
      case NvefsOp::EfsRead: rsp.result = efs_read(req, rsp, data_bytes); break;
      case NvefsOp::EfsWrite: rsp.result = efs_write(client, req); break;
      case NvefsOp::EfsDelete: rsp.result = modem_.efs_delete(req.sub_id, path_of(req)); break;
      default: rsp.result = kNvBadCommand; break;
    }
  }
  put_payload(&rsp, offsetof(velmor_nvefs_rsp, data) + data_bytes, response);
}

int ExtensionService::nv_read(const velmor_nvefs_req& req, velmor_nvefs_rsp& rsp,
                              size_t& data_bytes) {
  const auto item = modem_.nv_read(req.sub_id, req.id);
  if (!item) return kNvNotActive;
  data_bytes = std::min(item->size(), sizeof rsp.data);
  rsp.data_len_all = static_cast<uint32_t>(data_bytes);
  memcpy(rsp.data, item->data(), data_bytes);
  return 0;
}

int ExtensionService::nv_write(const velmor_nvefs_req& req) {
  if (req.data_len_all < 1 || req.data_len_all > sizeof req.data) return kNvBadParameter;
  const std::string_view value(reinterpret_cast<const char*>(req.data), req.data_len_all);
  return modem_.nv_write(req.sub_id, req.id, value) ? 0 : kNvFail;
}

int ExtensionService::efs_read(const velmor_nvefs_req& req, velmor_nvefs_rsp& rsp,
                               size_t& data_bytes) {
  Modem::EfsChunk chunk;
  const int result =
      modem_.efs_read(req.sub_id, path_of(req), req.data_len_cur, sizeof rsp.data, chunk);
  if (result != 0) return result;
  data_bytes = chunk.bytes.size();
  rsp.data_len_all = static_cast<uint32_t>(chunk.file_size);
  rsp.data_len_send = static_cast<uint32_t>(data_bytes);
  memcpy(rsp.data, chunk.bytes.data(), data_bytes);
  return 0;
}

int ExtensionService::efs_write(qmi::Address client, const velmor_nvefs_req& req) {
  OpenWrite* write =
      req.id == kNoEfsInstance ? begin_write(client, req) : continue_write(client, req);
  if (write == nullptr) return -EINVAL;
  const int instance = write->instance;
  const size_t wanted = write->file_size - write->bytes.size();
  const size_t least = write->file_size == 0 ? 0 : 1;
  if (req.data_len_cur != write->bytes.size() || req.data_len_send < least ||
      req.data_len_send > std::min(wanted, sizeof req.data)) {
    end_write(instance);
    return -EINVAL;
  }
  write->bytes.append(reinterpret_cast<const char*>(req.data), req.data_len_send);
  if (write->bytes.size() < write->file_size) return instance;
  const int result = modem_.efs_write(write->sub, write->path, write->bytes);
  end_write(instance);
  return result != 0 ? result : instance;
}

ExtensionService::OpenWrite* ExtensionService::begin_write(qmi::Address client,
                                                           const velmor_nvefs_req& req) {
  if (req.data_len_all > kMaxEfsBytes) return nullptr;
  if (!Modem::is_efs_path(path_of(req))) return nullptr;
  if (open_writes_.size() == kMaxOpenWrites) open_writes_.pop_front();
  do {
    last_instance_ = last_instance_ < kLastInstance ? last_instance_ + 1 : kFirstInstance;
  } while (std::any_of(open_writes_.begin(), open_writes_.end(), [this](const OpenWrite& write) {
    return write.instance == last_instance_;
  }));
  return &open_writes_.emplace_back(
      OpenWrite{last_instance_, client, req.sub_id, path_of(req), req.data_len_all, ""});
}

ExtensionService::OpenWrite* ExtensionService::continue_write(qmi::Address client,
                                                              const velmor_nvefs_req& req) {
  for (OpenWrite& write : open_writes_) {
    if (write.instance == req.id && write.client == client && write.sub == req.sub_id &&
        write.path == path_of(req) && write.file_size == req.data_len_all) {
      return &write;
    }
  }
  return nullptr;
}

void ExtensionService::end_write(int instance) {
  std::erase_if(open_writes_, [&](const OpenWrite& write) { return write.instance == instance; });
}

void ExtensionService::answer_common(Payload payload,
                                     velmor_extend_send_data_resp_msg_v01& response,
                                     Aftermath& aftermath) {
  velmor_common_direct_req direct;
  velmor_common_tlv_req tlv;
  memcpy(&direct, payload.data(), sizeof direct);
  memcpy(&tlv, payload.data(), sizeof tlv);
  velmor_common_rsp rsp{};
  std::vector<uint32_t> words;
  uint32_t type = direct.type;
  if (type == kCommonTypeLengthValueForm) {
    type = tlv.type;
    rsp.result =
        common(type, {tlv.value, std::min<size_t>(tlv.length, sizeof tlv.value)}, words, aftermath);
  } else {
    rsp.result = common(type, direct.value, words, aftermath);
  }
  size_t data_bytes = 0;
  if (rsp.result == 0 && type == VELMOR_COMMON_STATS_DEBUG_INFO) {
    data_bytes =
        modem_.statistics().debug_info().copy(reinterpret_cast<char*>(rsp.data), sizeof rsp.data);
  } else if (rsp.result == 0 && type == VELMOR_COMMON_STATS_UNSUPPORTED) {
    data_bytes = put_unsupported_logs(rsp);
  } else if (!words.empty()) {
    velmor_common_rsp_value value{};
    value.type = type;
    value.length = static_cast<uint32_t>(words.size() * sizeof words[0]);
    memcpy(value.value, words.data(), value.length);
    memcpy(rsp.data, &value, sizeof value);
    data_bytes = offsetof(velmor_common_rsp_value, value) + value.length;
  }
  put_payload(&rsp, offsetof(velmor_common_rsp, data) + data_bytes, response);
}

// The number of logs, then their ids.
size_t ExtensionService::put_unsupported_logs(velmor_common_rsp& rsp) {
  std::vector<uint16_t> logs = modem_.statistics().unsupported_logs();
  logs.resize(std::min(logs.size(), sizeof rsp.data / sizeof logs[0] - 1));
  logs.insert(logs.begin(), static_cast<uint16_t>(logs.size()));
  memcpy(rsp.data, logs.data(), logs.size() * sizeof logs[0]);
  return logs.size() * sizeof logs[0];
}

// Carries out one common request; what it answers, if anything, goes into `words`.
int ExtensionService::common(uint32_t type, std::span<const uint8_t> value,
                             std::vector<uint32_t>& words, Aftermath& aftermath) {
  switch (type) {
    case VELMOR_COMMON_GPIO_SET: return set_gpio(value);
    case VELMOR_COMMON_TX_SET: return set_tx(value);
    case VELMOR_COMMON_STATS_DEBUG_INFO:
    case VELMOR_COMMON_STATS_UNSUPPORTED:
    case VELMOR_COMMON_NV_SYNC: return 0;
    case VELMOR_COMMON_MODEM_SSR: aftermath.take_down(kCrashMs, kRestartMs); return 0;
    case VELMOR_COMMON_FULL_DUMP: aftermath.take_down(kCrashMs, std::nullopt); return 0;
    case VELMOR_COMMON_CARD_STATUS_QUERY:
      for (unsigned int slot = 1; slot <= kSlots; ++slot) {
        words.push_back(modem_.slot(slot).has_card());
      }
      return 0;
    case VELMOR_COMMON_CARD_TYPE_QUERY: words.push_back(kSlots); return 0;
    case VELMOR_COMMON_CARD_STATUS_GET: {
      uint32_t sub;
      if (!read_value(value, sub) || sub >= kSlots) return kCommonInvalidArgument;
      words.push_back(modem_.slot(sub + 1).has_card());
      return 0;
    }
    case VELMOR_COMMON_CARD_STATUS_SET: {
      velmor_card_status status;
      if (!read_value(value, status) || status.sub >= kSlots) return kCommonInvalidArgument;
      return modem_.set_sim_present(status.sub + 1, status.set_val != 0) ? 0 : kCommonFailed;
    }
    case VELMOR_COMMON_CARD_HOTSWAP_TEST: {
      uint32_t start;
      velmor_hotswap_test test;
      const bool good = read_value(value, start) && (start == 0 || read_value(value, test));
      return good ? 0 : kCommonInvalidArgument;
    }
    default: return kCommonNotSupported;
  }
}

// A setting is kept as it came, in a file that is followed at the next start.
int ExtensionService::set_gpio(std::span<const uint8_t> value) {
  velmor_gpio_setting setting;
  if (!read_value(value, setting)) return kCommonInvalidArgument;
  if (setting.count < 0 || setting.count > kMaxGpioValues) return kCommonInvalidArgument;
  const size_t size = sizeof setting.count * (1 + static_cast<size_t>(setting.count));
  return store(kEfsGpio, &setting, size);
}

int ExtensionService::set_tx(std::span<const uint8_t> value) {
  velmor_tx_setting setting;
  if (!read_value(value, setting)) return kCommonInvalidArgument;
  return store(kEfsTx, &setting, sizeof setting);
}

int ExtensionService::store(const velmor_efs_file& file, const void* bytes, size_t size) {
  const std::string_view content(static_cast<const char*>(bytes), size);
  return modem_.efs_write(0, file.path, content) == 0 ? 0 : kCommonFailed;
}

}  // namespace sim
