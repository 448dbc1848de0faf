#include "velmor_extend_payload.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include "velmor_efs_files.h"

namespace {

using namespace qmi;

// clang-format off

using nvefs_req  = velmor_nvefs_req;
using nvefs_rsp  = velmor_nvefs_rsp;
using tlv_req    = velmor_common_tlv_req;
using direct_req = velmor_common_direct_req;
using common_rsp = velmor_common_rsp;

constexpr Field kNvefsReq[] = {
  { U8,                           QMI_FIELD(nvefs_req, op_type)       },
  { U8,                           QMI_FIELD(nvefs_req, sub_id)        },
  { U16,                          QMI_FIELD(nvefs_req, id)            },
  { U8,                           QMI_FIELD(nvefs_req, path_len)      },
  { Text(Bytes(kNvefsPathBytes)), QMI_FIELD(nvefs_req, path)          },
  { U32,                          QMI_FIELD(nvefs_req, data_len_all)  },
  { U32,                          QMI_FIELD(nvefs_req, data_len_send) },
  { U32,                          QMI_FIELD(nvefs_req, data_len_cur)  },
  { Bytes(kNvefsDataMax),         QMI_FIELD(nvefs_req, data)          },
};
constexpr Field kNvefsRsp[] = {
  { U32,                          QMI_FIELD(nvefs_rsp, unread_0)      },
  { U32,                          QMI_FIELD(nvefs_rsp, data_len_all)  },
  { U32,                          QMI_FIELD(nvefs_rsp, data_len_send) },
  { U32,                          QMI_FIELD(nvefs_rsp, unread_12)     },
  { I32,                          QMI_FIELD(nvefs_rsp, result)        },
  { Bytes(kNvefsDataMax),         QMI_FIELD(nvefs_rsp, data)          },
};
constexpr Field kTlvReq[] = {
  { U32,                          QMI_FIELD(tlv_req, form)            },
  { U32,                          QMI_FIELD(tlv_req, reserved)        },
  { U32,                          QMI_FIELD(tlv_req, type)            },
  { U32,                          QMI_FIELD(tlv_req, length)          },
  { Bytes(496),                   QMI_FIELD(tlv_req, value)           },
};
constexpr Field kDirectReq[] = {
  { U32,                          QMI_FIELD(direct_req, type)         },
  { U32,                          QMI_FIELD(direct_req, reserved)     },
  { Bytes(504),                   QMI_FIELD(direct_req, value)        },
};
constexpr Field kCommonRsp[] = {
  { U32,                          QMI_FIELD(common_rsp, unread)       },
  { I32,                          QMI_FIELD(common_rsp, result)       },
  { Bytes(500),                   QMI_FIELD(common_rsp, data)         },
};

constexpr const char* kOperations[] = {
  "nv_read", "nv_write", "nv_delete", "efs_read", "efs_write", "efs_delete",
};

constexpr struct { uint32_t type; const char* name; } kCommonTypes[] = {
  { VELMOR_COMMON_GPIO_SET,          "gpio_set"          },
  { VELMOR_COMMON_TX_SET,            "tx_set"            },
  { VELMOR_COMMON_STATS_DEBUG_INFO,  "stats_debug_info"  },
  { VELMOR_COMMON_STATS_UNSUPPORTED, "stats_unsupported" },
  { VELMOR_COMMON_MODEM_SSR,         "modem_ssr"         },
  { VELMOR_COMMON_NV_SYNC,           "nv_sync"           },
  { VELMOR_COMMON_CARD_STATUS_QUERY, "card_status_query" },
  { VELMOR_COMMON_CARD_STATUS_GET,   "card_status_get"   },
  { VELMOR_COMMON_CARD_TYPE_QUERY,   "card_type_query"   },
  { VELMOR_COMMON_CARD_STATUS_SET,   "card_status_set"   },
  { VELMOR_COMMON_CARD_HOTSWAP_TEST, "card_hotswap_test" },
  { VELMOR_COMMON_FULL_DUMP,         "full_dump"         },
};

// NV items that hold the identity of the device.
constexpr uint16_t kHiddenNvItems[] = {
  0,     // ESN
  550,   // IMEI
  1943,  // MEID
};

// clang-format on

template <size_t N>
Payload laid_out(const char* name, const Field (&members)[N], size_t hidden_from = SIZE_MAX) {
  return {name, members, N, hidden_from};
}

// A path as a file system may understand it: without empty parts, "." and "..".
std::string plain_path(std::string_view path) {
  std::string plain;
  while (!path.empty()) {
    const std::string_view part = path.substr(0, path.find('/'));
    path.remove_prefix(std::min(path.size(), part.size() + 1));
    if (part == "..") {
      plain.resize(plain.empty() ? 0 : plain.rfind('/'));
    } else if (!part.empty() && part != ".") {
      plain += '/';
      plain += part;
    }
  }
  return plain;
}

bool is_hidden(const velmor_nvefs_req& req) {
  if (req.op_type <= NvefsOp::NvDelete) {
    return std::count(std::begin(kHiddenNvItems), std::end(kHiddenNvItems), req.id) > 0;
  }
  const auto* bytes = reinterpret_cast<const char*>(req.path);
  const size_t told = std::min<size_t>(req.path_len, kNvefsPathBytes);
  const std::string path = plain_path({bytes, strnlen(bytes, told)});
  for (const velmor_efs_file& file : kKnownEfsFiles) {
    if (file.hidden && path == file.path) return true;
  }
  // NV items are files too.
  for (const uint16_t id : kHiddenNvItems) {
    if (path == "/nvm/num/" + std::to_string(id)) return true;
  }
  return false;
}

Payload nvefs_payload(Kind kind, const uint8_t* payload) {
  velmor_nvefs_req req;
  memcpy(&req, payload, sizeof req);
  const auto op = static_cast<size_t>(req.op_type) - 1;
  const char* name = op < std::size(kOperations) ? kOperations[op] : "nvefs";
  const bool hidden = is_hidden(req);
  if (kind == Kind::Request) {
    return laid_out(name, kNvefsReq, hidden ? offsetof(velmor_nvefs_req, data) : SIZE_MAX);
  }
  return laid_out(name, kNvefsRsp, hidden ? offsetof(velmor_nvefs_rsp, data) : SIZE_MAX);
}

Payload common_payload(Kind kind, const uint8_t* payload) {
  velmor_common_tlv_req req;
  memcpy(&req, payload, sizeof req);
  const bool direct = req.form != kCommonTypeLengthValueForm;
  const uint32_t type = direct ? req.form : req.type;
  const char* name = "common";
  for (const auto& known : kCommonTypes) {
    if (known.type == type) name = known.name;
  }
  if (kind == Kind::Response) return laid_out(name, kCommonRsp);
  return direct ? laid_out(name, kDirectReq) : laid_out(name, kTlvReq);
}

}  // namespace

bool velmor_extend_is_operation(std::string_view name) {
  const auto is_name = [&](const char* known) { return name == known; };
  return std::any_of(std::begin(kOperations), std::end(kOperations), is_name) ||
         std::any_of(std::begin(kCommonTypes), std::end(kCommonTypes),
                     [&](const auto& type) { return is_name(type.name); });
}

Payload velmor_extend_payload_of(Kind kind, std::span<const uint8_t> request) {
  const auto id = find_tlv(request, 0x01);
  const auto payload = find_tlv(request, 0x10);
  uint32_t request_id = 0;
  if (id.size() == sizeof request_id) memcpy(&request_id, id.data(), sizeof request_id);
  if (payload.size() == sizeof(velmor_nvefs_req)) {
    if (request_id == REQUEST_ID_EFS) return nvefs_payload(kind, payload.data());
    if (request_id == REQUEST_ID_COMMON) return common_payload(kind, payload.data());
  }
  // What an indication tells is not known, nor an answer without its request: maybe an identity.
  const bool known = kind == Kind::Request || (kind == Kind::Response && !request.empty());
  return {.hidden_from = known ? SIZE_MAX : 0};
}
