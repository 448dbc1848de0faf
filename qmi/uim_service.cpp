#include "uim_service.h"

#include <algorithm>

namespace {

using namespace qmi;

// What cards are told and tell may name them, by EID or ICCID. Only the memory reset of an eUICC is
// known not to, and shown: STORE DATA with an EuiccMemoryReset (BF34).
Payload apdu_payload(Kind, std::span<const uint8_t> request) {
  constexpr uint8_t kTag[] = {0xBF, 0x34};
  constexpr size_t kTagAt = 2 + 5;  // behind the count and the APDU's header
  const auto apdu = find_tlv(request, 0x02);
  if (apdu.size() >= kTagAt + sizeof kTag &&
      std::equal(std::begin(kTag), std::end(kTag), apdu.begin() + kTagAt)) {
    return {.name = "memory_reset"};
  }
  return {.hidden_from = 0};
}

// clang-format off

using app       = uim_app_info_v01;
using card      = uim_card_info_v01;
using session   = uim_session_v01;
using status    = uim_card_status_v01;
using extended  = uim_extended_card_status_v01;
using result    = uim_card_result_v01;
using long_apdu = uim_long_apdu_v01;

constexpr Field kApp[] = {
  { U8as32,                   QMI_FIELD(app, app_type)              },
  { U8as32,                   QMI_FIELD(app, app_state)             },
  { U8as32,                   QMI_FIELD(app, perso_state)           },
  { U8as32,                   QMI_FIELD(app, perso_feature)         },
  { U8,                       QMI_FIELD(app, perso_retries)         },
  { U8,                       QMI_FIELD(app, perso_unblock_retries) },
  { Counted8(U8, kUimMaxAid), QMI_LIST(app, aid)                    },
  { U8,                       QMI_FIELD(app, upin_replaces_pin1)    },
  { U8as32,                   QMI_FIELD(app, pin1_state)            },
  { U8,                       QMI_FIELD(app, pin1_num_retries)      },
  { U8,                       QMI_FIELD(app, puk1_num_retries)      },
  { U8as32,                   QMI_FIELD(app, pin2_state)            },
  { U8,                       QMI_FIELD(app, pin2_num_retries)      },
  { U8,                       QMI_FIELD(app, puk2_num_retries)      },
};
constexpr Field kCard[] = {
  { U8as32,                                          QMI_FIELD(card, card_state)       },
  { U8as32,                                          QMI_FIELD(card, upin_state)       },
  { U8,                                              QMI_FIELD(card, upin_num_retries) },
  { U8,                                              QMI_FIELD(card, upuk_num_retries) },
  { U8as32,                                          QMI_FIELD(card, error_code)       },
  { Counted8(Struct(kApp, sizeof(app)), kUimMaxApps), QMI_LIST(card, app_info)         },
};
constexpr Field kSession[] = {
  { U8, QMI_FIELD(session, slot)        },
  { U8, QMI_FIELD(session, application) },
};
// Lenient: modems in the field append to the cards. How many sessions there may be is not known.
constexpr Shape Cards    = Lenient(Counted8(Struct(kCard, sizeof(card)), kUimMaxCards));
constexpr Shape Sessions = Clipped(Counted8(Struct(kSession, sizeof(session)), kUimMaxSessions));

constexpr Field kStatus[] = {
  { U16,      QMI_FIELD(status, index_gw_pri) },
  { U16,      QMI_FIELD(status, index_1x_pri) },
  { U16,      QMI_FIELD(status, index_gw_sec) },
  { U16,      QMI_FIELD(status, index_1x_sec) },
  { Cards,    QMI_LIST(status, card_info)     },
};
constexpr Field kExtended[] = {
  { Sessions, QMI_LIST(extended, index_gw)    },
  { Sessions, QMI_LIST(extended, index_1x)    },
  { Cards,    QMI_LIST(extended, card_info)   },
};
constexpr Field kResult[] = {
  { U8, QMI_FIELD(result, sw1) },
  { U8, QMI_FIELD(result, sw2) },
};
constexpr Field kLongApdu[] = {
  { U16, QMI_FIELD(long_apdu, total_length) },
  { U32, QMI_FIELD(long_apdu, token)        },
};
constexpr Shape Status     = Struct(kStatus, sizeof(status));
constexpr Shape Extended   = Struct(kExtended, sizeof(extended));
constexpr Shape CardResult = Struct(kResult, sizeof(result));
constexpr Shape LongApdu   = Struct(kLongApdu, sizeof(long_apdu));
constexpr Shape Aid        = Counted8(U8, kUimMaxAid);
constexpr Shape Apdu       = Carries(Counted16(U8, kUimMaxApdu), apdu_payload);

using status_req  = uim_get_card_status_req_msg_v01;
using status_resp = uim_get_card_status_resp_msg_v01;
using down_req    = uim_power_down_req_msg_v01;
using down_resp   = uim_power_down_resp_msg_v01;
using up_req      = uim_power_up_req_msg_v01;
using up_resp     = uim_power_up_resp_msg_v01;
using apdu_req    = uim_send_apdu_req_msg_v01;
using apdu_resp   = uim_send_apdu_resp_msg_v01;
using close_req   = uim_logical_channel_req_msg_v01;
using close_resp  = uim_logical_channel_resp_msg_v01;
using open_req    = uim_open_logical_channel_req_msg_v01;
using open_resp   = uim_open_logical_channel_resp_msg_v01;
using eid_req     = uim_get_eid_req_msg_v01;
using eid_resp    = uim_get_eid_resp_msg_v01;

// What is marked (*) stands in no open description; confirm it on hardware.
constexpr Field kStatusReq[] = {
  { 0x10, Optional, U8,         QMI_OPTIONAL(status_req, extended_card_status)          },
};
constexpr Field kStatusResp[] = {
  { 0x02, Required, Result,     QMI_FIELD(status_resp, resp)                            },
  { 0x10, Optional, Status,     QMI_OPTIONAL(status_resp, card_status)                  },
  { 0x13, Optional, Extended,   QMI_OPTIONAL(status_resp, extended_card_status)         },
};
constexpr Field kDownReq[] = {
  { 0x01, Required, U8as32,     QMI_FIELD(down_req, slot)                               },
};
constexpr Field kDownResp[] = {
  { 0x02, Required, Result,     QMI_FIELD(down_resp, resp)                              },
};
constexpr Field kUpReq[] = {
  { 0x01, Required, U8as32,     QMI_FIELD(up_req, slot)                                 },
  { 0x10, Optional, U8,         QMI_OPTIONAL(up_req, ignore_hot_swap_switch)            },
  { 0x11, Optional, U8as32,     QMI_OPTIONAL(up_req, mode)                              },  // (*) width
};
constexpr Field kUpResp[] = {
  { 0x02, Required, Result,     QMI_FIELD(up_resp, resp)                                },
};
constexpr Field kApduReq[] = {
  { 0x01, Required, U8as32,     QMI_FIELD(apdu_req, slot)                               },
  { 0x02, Required, Apdu,       QMI_LIST(apdu_req, apdu)                                },
  { 0x10, Optional, U8,         QMI_OPTIONAL(apdu_req, channel_id)                      },
  { 0x11, Optional, U8,         QMI_OPTIONAL(apdu_req, procedure_bytes)                 },
};
constexpr Field kApduResp[] = {
  { 0x02, Required, Result,     QMI_FIELD(apdu_resp, resp)                              },
  { 0x10, Optional, Apdu,       QMI_OPTIONAL_LIST(apdu_resp, apdu)                      },
  { 0x11, Optional, LongApdu,   QMI_OPTIONAL(apdu_resp, long_apdu)                      },
};
constexpr Field kCloseReq[] = {
  { 0x01, Required, U8as32,     QMI_FIELD(close_req, slot)                              },
  { 0x10, Optional, Aid,        QMI_OPTIONAL_LIST(close_req, aid)                       },
  { 0x11, Optional, U8,         QMI_OPTIONAL(close_req, channel_id)                     },
  { 0x12, Optional, U8,         QMI_OPTIONAL(close_req, file_control_information)       },
  { 0x13, Optional, U8,         QMI_OPTIONAL(close_req, terminate_application)          },
};
constexpr Field kCloseResp[] = {
  { 0x02, Required, Result,     QMI_FIELD(close_resp, resp)                             },
};
constexpr Field kOpenReq[] = {
  { 0x01, Required, U8as32,     QMI_FIELD(open_req, slot)                               },
  { 0x10, Optional, Aid,        QMI_OPTIONAL_LIST(open_req, aid)                        },
  { 0x11, Optional, U8as32,     QMI_OPTIONAL(open_req, file_control_information)        },
};
constexpr Field kOpenResp[] = {
  { 0x02, Required, Result,     QMI_FIELD(open_resp, resp)                              },
  { 0x10, Optional, U8,         QMI_OPTIONAL(open_resp, channel_id)                     },
  { 0x11, Optional, CardResult, QMI_OPTIONAL(open_resp, card_result)                    },
  { 0x12, Optional, Hidden(Counted8(U8, kUimMaxSelectResponse)), QMI_OPTIONAL_LIST(open_resp, select_response) },
};
constexpr Field kEidReq[] = {
  { 0x01, Required, U8as32,     QMI_FIELD(eid_req, slot)                                },  // (*) width
};
constexpr Field kEidResp[] = {
  { 0x02, Required, Result,     QMI_FIELD(eid_resp, resp)                               },
  { 0x10, Optional, Hidden(Counted8(U8, kUimEidBytes)), QMI_OPTIONAL_LIST(eid_resp, eid) },  // (*) count
};

constexpr Message kMessages[] = {
  { Kind::Request,  0x2F, "get_card_status",      4,    sizeof(status_req),  kStatusReq  },
  { Kind::Response, 0x2F, "get_card_status",      4749, sizeof(status_resp), kStatusResp },
  { Kind::Request,  0x30, "power_down",           4,    sizeof(down_req),    kDownReq    },
  { Kind::Response, 0x30, "power_down",           7,    sizeof(down_resp),   kDownResp   },
  { Kind::Request,  0x31, "power_up",             12,   sizeof(up_req),      kUpReq      },
  { Kind::Response, 0x31, "power_up",             7,    sizeof(up_resp),     kUpResp     },
  { Kind::Request,  0x3B, "send_apdu",            1041, sizeof(apdu_req),    kApduReq    },
  { Kind::Response, 0x3B, "send_apdu",            1045, sizeof(apdu_resp),   kApduResp   },
  { Kind::Request,  0x3F, "logical_channel",      52,   sizeof(close_req),   kCloseReq   },
  { Kind::Response, 0x3F, "logical_channel",      7,    sizeof(close_resp),  kCloseResp  },
  { Kind::Request,  0x42, "open_logical_channel", 44,   sizeof(open_req),    kOpenReq    },
  { Kind::Response, 0x42, "open_logical_channel", 275,  sizeof(open_resp),   kOpenResp   },
  { Kind::Request,  0x65, "get_eid",              4,    sizeof(eid_req),     kEidReq     },
  { Kind::Response, 0x65, "get_eid",              27,   sizeof(eid_resp),    kEidResp    },
};

// clang-format on

constexpr qmi_idl_service_object kService = {
    .name = "uim",
    .service_id = 0x0B,
    .major_version = 1,
    .minor_version = 109,
    .library_version = 6,
    .wire_max = 4749,
    .messages = kMessages,
};

}  // namespace

qmi_idl_service_object_type uim_get_service_object_internal_v01(uint32_t major, uint32_t minor,
                                                                uint32_t library_version) {
  return kService.if_version(major, minor, library_version);
}
