#include "modem_api/nas/nas_service.h"

namespace {

using namespace qmi;

// clang-format off

using network       = nas_network_v01;
using network_rat   = nas_network_rat_v01;
using network_mnc   = nas_network_mnc_v01;
using found_network = nas_found_network_v01;

constexpr Shape Name = Text(Counted8(U8, kNasMaxName));

constexpr Field kNetwork[] = {
  { U16,  QMI_FIELD(network, mcc)    },
  { U16,  QMI_FIELD(network, mnc)    },
  { U8,   QMI_FIELD(network, status) },
  { Name, QMI_LIST(network, name)    },
};
constexpr Field kNetworkRat[] = {
  { U16, QMI_FIELD(network_rat, mcc) },
  { U16, QMI_FIELD(network_rat, mnc) },
  { U8,  QMI_FIELD(network_rat, rat) },
};
constexpr Field kNetworkMnc[] = {
  { U16, QMI_FIELD(network_mnc, mcc)          },
  { U16, QMI_FIELD(network_mnc, mnc)          },
  { U8,  QMI_FIELD(network_mnc, three_digits) },
};
constexpr Field kFoundNetwork[] = {
  { U16,  QMI_FIELD(found_network, mcc)          },
  { U16,  QMI_FIELD(found_network, mnc)          },
  { U8,   QMI_FIELD(found_network, status)       },
  { U8,   QMI_FIELD(found_network, rat)          },
  { U8,   QMI_FIELD(found_network, three_digits) },
  { Name, QMI_LIST(found_network, name)          },
};
// Lenient: how many networks a modem may list is not known, and nobody here counts them.
constexpr Shape Networks      = Lenient(Counted16(Struct(kNetwork, sizeof(network)), kNasMaxNetworks));
constexpr Shape Rats          = Lenient(Counted16(Struct(kNetworkRat, sizeof(network_rat)), kNasMaxNetworks));
constexpr Shape Mncs          = Lenient(Counted16(Struct(kNetworkMnc, sizeof(network_mnc)), kNasMaxNetworks));
constexpr Shape FoundNetworks = Lenient(Counted16(Struct(kFoundNetwork, sizeof(found_network)), kNasMaxNetworks));

using register_req     = nas_indication_register_req_msg_v01;
using register_resp    = nas_indication_register_resp_msg_v01;
using bind_req         = nas_bind_subscription_req_msg_v01;
using bind_resp        = nas_bind_subscription_resp_msg_v01;
using scan_req         = nas_perform_network_scan_req_msg_v01;
using scan_resp        = nas_perform_network_scan_resp_msg_v01;
using incremental_req  = nas_perform_incremental_network_scan_req_msg_v01;
using incremental_resp = nas_perform_incremental_network_scan_resp_msg_v01;
using incremental_ind  = nas_perform_incremental_network_scan_ind_msg_v01;

constexpr Field kRegisterReq[] = {
  { 0x13, Optional, U8,            QMI_OPTIONAL(register_req, req_serving_system) },
};
constexpr Field kRegisterResp[] = {
  { 0x02, Required, Result,        QMI_FIELD(register_resp, resp)                 },
};
constexpr Field kBindReq[] = {
  { 0x01, Required, U8as32,        QMI_FIELD(bind_req, subscription)              },
};
constexpr Field kBindResp[] = {
  { 0x02, Required, Result,        QMI_FIELD(bind_resp, resp)                     },
};
constexpr Field kScanReq[] = {
  { 0x10, Optional, U8,            QMI_OPTIONAL(scan_req, network_type)        },
};
constexpr Field kScanResp[] = {
  { 0x02, Required, Result,        QMI_FIELD(scan_resp, resp)                  },
  { 0x10, Optional, Networks,      QMI_OPTIONAL_LIST(scan_resp, network)       },
  { 0x11, Optional, Rats,          QMI_OPTIONAL_LIST(scan_resp, rat)           },
  { 0x12, Optional, Mncs,          QMI_OPTIONAL_LIST(scan_resp, mnc)           },
  { 0x13, Optional, U32,           QMI_OPTIONAL(scan_resp, scan_result)        },
};
constexpr Field kIncrementalReq[] = {
  { 0x10, Optional, U8,            QMI_OPTIONAL(incremental_req, network_type) },
};
constexpr Field kIncrementalResp[] = {
  { 0x02, Required, Result,        QMI_FIELD(incremental_resp, resp)           },
};
constexpr Field kIncrementalInd[] = {
  { 0x01, Required, U32,           QMI_FIELD(incremental_ind, scan_status)     },
  { 0x10, Optional, FoundNetworks, QMI_OPTIONAL_LIST(incremental_ind, network) },
};

constexpr Message kMessages[] = {
  { Kind::Request,    0x03, "indication_register", 4, sizeof(register_req),  kRegisterReq  },
  { Kind::Response,   0x03, "indication_register", 7, sizeof(register_resp), kRegisterResp },
  { Kind::Request,    0x45, "bind_subscription",   4, sizeof(bind_req),      kBindReq      },
  { Kind::Response,   0x45, "bind_subscription",   7, sizeof(bind_resp),     kBindResp     },
  { Kind::Request,    0x21, "network_scan",     4,     sizeof(scan_req),         kScanReq         },
  { Kind::Response,   0x21, "network_scan",     16289, sizeof(scan_resp),        kScanResp        },
  { Kind::Request,    0x85, "incremental_scan", 4,     sizeof(incremental_req),  kIncrementalReq  },
  { Kind::Response,   0x85, "incremental_scan", 7,     sizeof(incremental_resp), kIncrementalResp },
  { Kind::Indication, 0x85, "incremental_scan", 15792, sizeof(incremental_ind),  kIncrementalInd  },
};

// clang-format on

static_assert(sizeof(register_req) == 177 && sizeof(bind_req) == 4);
static_assert(sizeof(scan_req) == 272 && sizeof(scan_resp) == 18040);
static_assert(sizeof(incremental_req) == 576 && sizeof(incremental_resp) == 8);

constexpr qmi_idl_service_object kService = {
    .name = "nas",
    .service_id = 0x03,
    .major_version = 1,
    .minor_version = 397,
    .library_version = 6,
    .wire_max = 16289,
    .messages = kMessages,
};

}  // namespace

qmi_idl_service_object_type nas_get_service_object_internal_v01(int major, int minor, int library) {
  return kService.if_version(major, minor, library);
}
