#include "pdc_service.h"

namespace {

using namespace qmi;

// clang-format off

using config_info = pdc_config_info_v01;
using load_frame  = pdc_load_frame_v01;

constexpr Shape Id          = Counted8(U8, kPdcMaxId);
constexpr Shape Description = Text(Counted8(U8, kPdcMaxDescription));

constexpr Field kConfigInfo[] = {
  { U32, QMI_FIELD(config_info, config_type) },
  { Id,  QMI_LIST(config_info, config_id)    },
};
constexpr Field kLoadFrame[] = {
  { U32,                         QMI_FIELD(load_frame, config_type) },
  { Id,                          QMI_LIST(load_frame, config_id)    },
  { U32,                         QMI_FIELD(load_frame, total_size)  },
  { Counted16(U8, kPdcMaxFrame), QMI_LIST(load_frame, frame)        },
};
constexpr Shape ConfigInfo = Struct(kConfigInfo, sizeof(config_info));
constexpr Shape LoadFrame  = Struct(kLoadFrame, sizeof(load_frame));

using get_selected_req = pdc_get_selected_config_req_msg_v01;
using get_selected_ind = pdc_get_selected_config_ind_msg_v01;
using set_selected_req = pdc_set_selected_config_req_msg_v01;
using list_req         = pdc_list_configs_req_msg_v01;
using list_ind         = pdc_list_configs_ind_msg_v01;
using delete_req       = pdc_delete_config_req_msg_v01;
using load_req         = pdc_load_config_req_msg_v01;
using load_ind         = pdc_load_config_ind_msg_v01;
using activate_req     = pdc_activate_config_req_msg_v01;
using info_req         = pdc_get_config_info_req_msg_v01;
using info_ind         = pdc_get_config_info_ind_msg_v01;
using default_ind      = pdc_get_default_config_info_ind_msg_v01;
using deactivate_req   = pdc_deactivate_config_req_msg_v01;
using type_req         = pdc_type_req_msg_v01;
using result_ind       = pdc_result_ind_msg_v01;
using opaque_ind       = pdc_opaque_ind_msg_v01;
using any_resp         = pdc_resp_msg_v01;

// What is marked (*) stands in no open description. The slots, the kind of an activation and what
// 0x24 has in 0x12 stand in one open source each; no other source and no hardware confirms them.
constexpr Field kGetSelectedReq[] = {
  { 0x01, Required, U32, QMI_FIELD(get_selected_req, config_type)        },
  { 0x10, Optional, U32, QMI_OPTIONAL(get_selected_req, ind_token)       },
  { 0x11, Optional, U32, QMI_OPTIONAL(get_selected_req, subscription_id) },
  { 0x12, Optional, U32, QMI_OPTIONAL(get_selected_req, slot_id)         },
};
constexpr Field kGetSelectedInd[] = {
  { 0x01, Required, U16as32, QMI_FIELD(get_selected_ind, error)                     },
  { 0x10, Optional, U32,     QMI_OPTIONAL(get_selected_ind, ind_token)              },
  { 0x11, Optional, Id,      QMI_OPTIONAL_LIST(get_selected_ind, active_config_id)  },
  { 0x12, Optional, Id,      QMI_OPTIONAL_LIST(get_selected_ind, pending_config_id) },
};
constexpr Field kSetSelectedReq[] = {
  { 0x01, Required, ConfigInfo, QMI_FIELD(set_selected_req, new_config_info)    },
  { 0x10, Optional, U32,        QMI_OPTIONAL(set_selected_req, ind_token)       },
  { 0x11, Optional, U32,        QMI_OPTIONAL(set_selected_req, subscription_id) },
  { 0x12, Optional, U32,        QMI_OPTIONAL(set_selected_req, slot_id)         },
};
constexpr Field kListReq[] = {
  { 0x10, Optional, U32, QMI_OPTIONAL(list_req, ind_token)   },
  { 0x11, Optional, U32, QMI_OPTIONAL(list_req, config_type) },
  { 0x12, Optional, U8,  QMI_OPTIONAL(list_req, multi_config)   },
};
constexpr Field kListInd[] = {
  { 0x01, Required, U16as32,                           QMI_FIELD(list_ind, error)               },
  { 0x10, Optional, U32,                               QMI_OPTIONAL(list_ind, ind_token)        },
  { 0x11, Optional, Counted8(ConfigInfo, kPdcMaxList), QMI_OPTIONAL_LIST(list_ind, config_list) },
  { 0x12, Optional, U8,                                QMI_OPTIONAL(list_ind, more_available)   },
};
constexpr Field kDeleteReq[] = {
  { 0x01, Required, U32, QMI_FIELD(delete_req, config_type)       },
  { 0x10, Optional, U32, QMI_OPTIONAL(delete_req, ind_token)      },
  { 0x11, Optional, Id,  QMI_OPTIONAL_LIST(delete_req, config_id) },
};
constexpr Field kLoadReq[] = {
  { 0x01, Required, LoadFrame, QMI_FIELD(load_req, load_config)  },
  { 0x10, Optional, U32,       QMI_OPTIONAL(load_req, ind_token) },
};
constexpr Field kLoadInd[] = {
  { 0x01, Required, U16as32, QMI_FIELD(load_ind, error)             },
  { 0x10, Optional, U32,     QMI_OPTIONAL(load_ind, ind_token)      },
  { 0x11, Optional, U32,     QMI_OPTIONAL(load_ind, received_size)  },
  { 0x12, Optional, U32,     QMI_OPTIONAL(load_ind, remaining_size) },
  { 0x13, Optional, U8,      QMI_OPTIONAL(load_ind, frame_reset)    },
};
constexpr Field kActivateReq[] = {
  { 0x01, Required, U32, QMI_FIELD(activate_req, config_type)        },
  { 0x10, Optional, U32, QMI_OPTIONAL(activate_req, ind_token)       },
  { 0x11, Optional, U32, QMI_OPTIONAL(activate_req, activation_type) },
  { 0x12, Optional, U32, QMI_OPTIONAL(activate_req, subscription_id) },
  { 0x13, Optional, U32, QMI_OPTIONAL(activate_req, slot_id)         },
};
constexpr Field kInfoReq[] = {
  { 0x01, Required, ConfigInfo, QMI_FIELD(info_req, config_info)  },
  { 0x10, Optional, U32,        QMI_OPTIONAL(info_req, ind_token) },
};
constexpr Field kInfoInd[] = {
  { 0x01, Required, U16as32,     QMI_FIELD(info_ind, error)               },
  { 0x10, Optional, U32,         QMI_OPTIONAL(info_ind, ind_token)        },
  { 0x11, Optional, U32,         QMI_OPTIONAL(info_ind, total_size)       },
  { 0x12, Optional, Description, QMI_OPTIONAL_LIST(info_ind, config_desc) },
  { 0x13, Optional, U32,         QMI_OPTIONAL(info_ind, config_version)   },
  { 0x16, Optional, U32,         QMI_OPTIONAL(info_ind, base_version)     },
};
constexpr Field kDefaultInd[] = {
  { 0x01, Required, U16as32,     QMI_FIELD(default_ind, error)               },
  { 0x10, Optional, U32,         QMI_OPTIONAL(default_ind, ind_token)        },
  { 0x11, Optional, U32,         QMI_OPTIONAL(default_ind, config_version)   },
  { 0x12, Optional, U32,         QMI_OPTIONAL(default_ind, total_size)       },
  { 0x13, Optional, Description, QMI_OPTIONAL_LIST(default_ind, config_desc) },
};
constexpr Field kDeactivateReq[] = {
  { 0x01, Required, U32, QMI_FIELD(deactivate_req, config_type)        },
  { 0x10, Optional, U32, QMI_OPTIONAL(deactivate_req, ind_token)       },
  { 0x11, Optional, U32, QMI_OPTIONAL(deactivate_req, subscription_id) },
};
constexpr Field kTypeReq[] = {
  { 0x01, Required, U32, QMI_FIELD(type_req, config_type)  },
  { 0x10, Optional, U32, QMI_OPTIONAL(type_req, ind_token) },
};
constexpr Field kResultInd[] = {
  { 0x01, Required, U16as32, QMI_FIELD(result_ind, error)        },
  { 0x10, Optional, U32,     QMI_OPTIONAL(result_ind, ind_token) },
};
constexpr Field kAnyResp[] = {
  { 0x02, Required, Result, QMI_FIELD(any_resp, resp) },
};

constexpr Message kMessages[] = {
  { Kind::Request,    0x22, "get_selected",     28,    sizeof(get_selected_req), kGetSelectedReq },
  { Kind::Response,   0x22, "get_selected",     7,     sizeof(any_resp),         kAnyResp        },
  { Kind::Indication, 0x22, "get_selected",     268,   sizeof(get_selected_ind), kGetSelectedInd },
  { Kind::Request,    0x23, "set_selected",     153,   sizeof(set_selected_req), kSetSelectedReq },
  { Kind::Response,   0x23, "set_selected",     7,     sizeof(any_resp),         kAnyResp        },
  { Kind::Indication, 0x23, "set_selected",     12,    sizeof(result_ind),       kResultInd      },
  { Kind::Request,    0x24, "list_configs",     18,    sizeof(list_req),         kListReq        },
  { Kind::Response,   0x24, "list_configs",     7,     sizeof(any_resp),         kAnyResp        },
  { Kind::Indication, 0x24, "list_configs",     3245,  sizeof(list_ind),         kListInd        },
  { Kind::Request,    0x25, "delete",           142,   sizeof(delete_req),       kDeleteReq      },
  { Kind::Response,   0x25, "delete",           7,     sizeof(any_resp),         kAnyResp        },
  { Kind::Indication, 0x25, "delete",           12,    sizeof(result_ind),       kResultInd      },
  { Kind::Request,    0x26, "load",             32913, sizeof(load_req),         kLoadReq        },
  { Kind::Response,   0x26, "load",             7,     sizeof(any_resp),         kAnyResp        },
  { Kind::Indication, 0x26, "load",             30,    sizeof(load_ind),         kLoadInd        },
  { Kind::Request,    0x27, "activate",         35,    sizeof(activate_req),     kActivateReq    },
  { Kind::Response,   0x27, "activate",         7,     sizeof(any_resp),         kAnyResp        },
  { Kind::Indication, 0x27, "activate",         12,    sizeof(result_ind),       kResultInd      },
  { Kind::Request,    0x28, "get_info",         139,   sizeof(info_req),         kInfoReq        },
  { Kind::Response,   0x28, "get_info",         7,     sizeof(any_resp),         kAnyResp        },
  { Kind::Indication, 0x28, "get_info",         292,   sizeof(info_ind),         kInfoInd        },
  { Kind::Request,    0x2A, "get_default_info", 14,    sizeof(type_req),         kTypeReq        },
  { Kind::Response,   0x2A, "get_default_info", 7,     sizeof(any_resp),         kAnyResp        },
  { Kind::Indication, 0x2A, "get_default_info", 285,   sizeof(default_ind),      kDefaultInd     },
  { Kind::Request,    0x2B, "deactivate",       21,    sizeof(deactivate_req),   kDeactivateReq  },
  { Kind::Response,   0x2B, "deactivate",       7,     sizeof(any_resp),         kAnyResp        },
  { Kind::Indication, 0x2B, "deactivate",       12,    sizeof(result_ind),       kResultInd      },
  { Kind::Request,    0x2E, "set_feature",      14,    sizeof(type_req),         kTypeReq        },  // (*)
  { Kind::Response,   0x2E, "set_feature",      7,     sizeof(any_resp),         kAnyResp        },  // (*)
  { Kind::Indication, 0x2E, "set_feature",      12,    sizeof(result_ind),       kResultInd      },  // (*)
  { Kind::Indication, 0x20, "register",         sizeof(opaque_ind) },
  { Kind::Indication, 0x21, "config_change",    sizeof(opaque_ind) },
  { Kind::Indication, 0x29, "get_limits",       sizeof(opaque_ind) },
  { Kind::Indication, 0x2C, "msg_002c",         sizeof(opaque_ind) },
  { Kind::Indication, 0x2D, "msg_002d",         sizeof(opaque_ind) },
  { Kind::Indication, 0x2F, "refresh",          sizeof(opaque_ind) },
};

// clang-format on

static_assert(sizeof(get_selected_req) == 28 && sizeof(set_selected_req) == 156);
static_assert(sizeof(list_req) == 20 && sizeof(activate_req) == 36);
static_assert(sizeof(deactivate_req) == 20 && sizeof(any_resp) == 8);

constexpr qmi_idl_service_object kService = {
    .name = "pdc",
    .service_id = 0x24,
    .major_version = 1,
    .minor_version = 16,
    .library_version = 6,
    .wire_max = 32920,
    .messages = kMessages,
};

}  // namespace

qmi_idl_service_object_type pdc_get_service_object_internal_v01(int major, int minor, int library) {
  return kService.if_version(major, minor, library);
}
