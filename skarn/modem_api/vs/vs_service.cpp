#include "modem_api/vs/vs_service.h"

namespace {

using namespace qmi;

// clang-format off

using stat = vs_stat_v01;
using item = vs_item_v01;

constexpr Field kStat[] = {
  { U16,                                 QMI_FIELD(stat, sub)  },
  { U16,                                 QMI_FIELD(stat, word) },
  { U32,                                 QMI_FIELD(stat, id)   },
  { Clipped(Counted16(U8, kVsMaxValue)), QMI_LIST(stat, value) },
};
constexpr Field kItem[] = {
  { U32,              QMI_FIELD(item, word) },
  { Counted8(U32, 5), QMI_LIST(item, words) },
  { U8,               QMI_FIELD(item, flag) },
};
constexpr Shape RawBytes   = Counted16(U8, kVsMaxRawBytes);
constexpr Shape Bytes256   = Counted16(U8, kVsMaxBytes);
constexpr Shape ShortBytes = Clipped(Counted8(U8, kVsMaxItems));
constexpr Shape Name       = Counted8(U8, kVsMaxName);
constexpr Shape Words      = Counted8(U32, kVsMaxItems);
constexpr Shape Ids        = Counted8(U32, kVsMaxStats);
constexpr Shape Items      = Counted8(Struct(kItem, sizeof(item)), kVsMaxItems);
constexpr Shape Stats      = Counted8(Struct(kStat, sizeof(stat)), kVsMaxStats);
// What the modem tells is kept as far as there is room for it.
constexpr Shape ToldStats  = Clipped(Stats);
constexpr Shape MoreStats  = Clipped(Counted8(Struct(kStat, sizeof(stat)), kVsMaxMoreStats));

using raw_req            = vs_raw_req_msg_v01;
using raw_resp           = vs_raw_resp_msg_v01;
using flags_req          = vs_flags_req_msg_v01;
using word_req           = vs_word_req_msg_v01;
using flags_resp         = vs_flags_resp_msg_v01;
using set_feature_req    = vs_set_feature_req_msg_v01;
using by_id_req          = vs_by_id_req_msg_v01;
using write_by_id_req    = vs_write_by_id_req_msg_v01;
using by_index_req       = vs_by_index_req_msg_v01;
using write_by_index_req = vs_write_by_index_req_msg_v01;
using by_name_req        = vs_by_name_req_msg_v01;
using write_by_name_req  = vs_write_by_name_req_msg_v01;
using write_word_req     = vs_write_word_req_msg_v01;
using mixed_req          = vs_mixed_req_msg_v01;
using switch_req         = vs_switch_req_msg_v01;
using switch_resp        = vs_switch_resp_msg_v01;
using items_req          = vs_items_req_msg_v01;
using words_req          = vs_words_req_msg_v01;
using get_stats_req      = vs_get_stats_req_msg_v01;
using get_stats_resp     = vs_get_stats_resp_msg_v01;
using ids_req            = vs_ids_req_msg_v01;
using bytes_resp         = vs_bytes_resp_msg_v01;
using resp               = vs_resp_msg_v01;
using feature_ind        = vs_feature_ind_msg_v01;
using report_ind         = vs_report_ind_msg_v01;
using bytes_ind          = vs_bytes_ind_msg_v01;
using state_ind          = vs_state_ind_msg_v01;

constexpr Field kRawReq[] = {
  { 0x01, Required, RawBytes, QMI_LIST(raw_req, data) },
};
constexpr Field kRawResp[] = {
  { 0x02, Required, Result,   QMI_FIELD(raw_resp, resp) },
  { 0x03, Required, RawBytes, QMI_LIST(raw_resp, data)  },
};
constexpr Field kFlagsReq[] = {
  { 0x10, Optional, U8, QMI_OPTIONAL(flags_req, field_10) },
  { 0x11, Optional, U8, QMI_OPTIONAL(flags_req, field_11) },
};
constexpr Field kWordReq[] = {
  { 0x01, Required, U32, QMI_FIELD(word_req, field_01) },
};
constexpr Field kFlagsResp[] = {
  { 0x02, Required, Result, QMI_FIELD(flags_resp, resp)     },
  { 0x03, Required, U8,     QMI_FIELD(flags_resp, field_03) },
  { 0x04, Required, U8,     QMI_FIELD(flags_resp, field_04) },
};
constexpr Field kSetFeatureReq[] = {
  { 0x01, Required, U32, QMI_FIELD(set_feature_req, feature)   },
  { 0x02, Required, U8,  QMI_FIELD(set_feature_req, status)    },
  { 0x10, Optional, U8,  QMI_OPTIONAL(set_feature_req, option) },
};
constexpr Field kByIdReq[] = {
  { 0x01, Required, U32, QMI_FIELD(by_id_req, field_01) },
  { 0x02, Required, U8,  QMI_FIELD(by_id_req, field_02) },
  { 0x03, Required, U16, QMI_FIELD(by_id_req, field_03) },
};
constexpr Field kWriteByIdReq[] = {
  { 0x01, Required, U32,      QMI_FIELD(write_by_id_req, field_01) },
  { 0x02, Required, U8,       QMI_FIELD(write_by_id_req, field_02) },
  { 0x03, Required, U16,      QMI_FIELD(write_by_id_req, field_03) },
  { 0x04, Required, Bytes256, QMI_LIST(write_by_id_req, data)      },
};
constexpr Field kByIndexReq[] = {
  { 0x01, Required, U32, QMI_FIELD(by_index_req, field_01) },
  { 0x02, Required, U16, QMI_FIELD(by_index_req, field_02) },
};
constexpr Field kWriteByIndexReq[] = {
  { 0x01, Required, U32,      QMI_FIELD(write_by_index_req, field_01) },
  { 0x02, Required, U16,      QMI_FIELD(write_by_index_req, field_02) },
  { 0x03, Required, Bytes256, QMI_LIST(write_by_index_req, data)      },
};
constexpr Field kByNameReq[] = {
  { 0x01, Required, Name, QMI_LIST(by_name_req, name)      },
  { 0x02, Required, U16,  QMI_FIELD(by_name_req, field_02) },
  { 0x03, Required, U8,   QMI_FIELD(by_name_req, field_03) },
};
constexpr Field kWriteByNameReq[] = {
  { 0x01, Required, Name,     QMI_LIST(write_by_name_req, name)      },
  { 0x02, Required, U16,      QMI_FIELD(write_by_name_req, field_02) },
  { 0x03, Required, U8,       QMI_FIELD(write_by_name_req, field_03) },
  { 0x04, Required, Bytes256, QMI_LIST(write_by_name_req, data)      },
};
constexpr Field kWriteWordReq[] = {
  { 0x01, Required, U32,      QMI_FIELD(write_word_req, field_01) },
  { 0x02, Required, Bytes256, QMI_LIST(write_word_req, data)      },
};
constexpr Field kMixedReq[] = {
  { 0x01, Required, U8,  QMI_FIELD(mixed_req, field_01) },
  { 0x02, Required, U32, QMI_FIELD(mixed_req, field_02) },
  { 0x03, Required, U16, QMI_FIELD(mixed_req, field_03) },
};
constexpr Field kSwitchReq[] = {
  { 0x01, Required, U8,  QMI_FIELD(switch_req, field_01)    },
  { 0x10, Optional, U32, QMI_OPTIONAL(switch_req, field_10) },
};
constexpr Field kSwitchResp[] = {
  { 0x02, Required, Result, QMI_FIELD(switch_resp, resp)        },
  { 0x10, Optional, U32,    QMI_OPTIONAL(switch_resp, field_10) },
};
constexpr Field kItemsReq[] = {
  { 0x01, Required, U32,   QMI_FIELD(items_req, field_01)    },
  { 0x02, Required, Items, QMI_LIST(items_req, items)        },
  { 0x10, Optional, U16,   QMI_OPTIONAL(items_req, field_10) },
  { 0x11, Optional, U16,   QMI_OPTIONAL(items_req, field_11) },
};
constexpr Field kWordsReq[] = {
  { 0x01, Required, U32,   QMI_FIELD(words_req, field_01)    },
  { 0x02, Required, Words, QMI_LIST(words_req, words)        },
  { 0x10, Optional, U16,   QMI_OPTIONAL(words_req, field_10) },
  { 0x11, Optional, U16,   QMI_OPTIONAL(words_req, field_11) },
};
constexpr Field kGetStatsReq[] = {
  { 0x01, Required, U16,   QMI_FIELD(get_stats_req, sub)  },
  { 0x02, Required, U16,   QMI_FIELD(get_stats_req, slot) },
  { 0x03, Required, Stats, QMI_LIST(get_stats_req, stats) },
};
constexpr Field kGetStatsResp[] = {
  { 0x02, Required, Result,    QMI_FIELD(get_stats_resp, resp)          },
  { 0x10, Optional, ToldStats, QMI_OPTIONAL_LIST(get_stats_resp, stats) },
};
constexpr Field kIdsReq[] = {
  { 0x01, Required, U16, QMI_FIELD(ids_req, sub)  },
  { 0x02, Required, U16, QMI_FIELD(ids_req, slot) },
  { 0x03, Required, Ids, QMI_LIST(ids_req, ids)   },
};
constexpr Field kBytesResp[] = {
  { 0x02, Required, Result,   QMI_FIELD(bytes_resp, resp) },
  { 0x03, Required, Bytes256, QMI_LIST(bytes_resp, data)  },
};
constexpr Field kResp[] = {
  { 0x02, Required, Result, QMI_FIELD(resp, resp) },
};
constexpr Field kFeatureInd[] = {
  { 0x01, Required, U32, QMI_FIELD(feature_ind, feature) },
  { 0x02, Required, U8,  QMI_FIELD(feature_ind, status)  },
  { 0x03, Required, U8,  QMI_FIELD(feature_ind, option)  },
};
constexpr Field kReportInd[] = {
  { 0x01, Required, U32,       QMI_FIELD(report_ind, field_01)           },
  { 0x02, Required, ToldStats, QMI_LIST(report_ind, stats)               },
  { 0x10, Optional, MoreStats, QMI_OPTIONAL_LIST(report_ind, more_stats) },
  { 0x11, Optional, U32,       QMI_OPTIONAL(report_ind, field_11)        },
};
constexpr Field kBytesInd[] = {
  { 0x01, Required, U32,        QMI_FIELD(bytes_ind, field_01) },
  { 0x02, Required, ShortBytes, QMI_LIST(bytes_ind, data)      },
  { 0x03, Required, U16,        QMI_FIELD(bytes_ind, field_03) },
  { 0x04, Required, U16,        QMI_FIELD(bytes_ind, field_04) },
};
constexpr Field kStateInd[] = {
  { 0x01, Required, U8, QMI_FIELD(state_ind, state) },
};

constexpr Message kMessages[] = {
  { Kind::Request,    0x0000, "raw",         517,   sizeof(raw_req),            kRawReq },
  { Kind::Response,   0x0000, "raw",         524,   sizeof(raw_resp),           kRawResp },
  { Kind::Request,    0x0001, "msg_0001",    8,     sizeof(flags_req),          kFlagsReq },
  { Kind::Response,   0x0001, "msg_0001",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0002, "msg_0002",    7,     sizeof(word_req),           kWordReq },
  { Kind::Response,   0x0002, "msg_0002",    15,    sizeof(flags_resp),         kFlagsResp },
  { Kind::Request,    0x0003, "set_feature", 15,    sizeof(set_feature_req),    kSetFeatureReq },
  { Kind::Response,   0x0003, "set_feature", 7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0100, "msg_0100",    16,    sizeof(by_id_req),          kByIdReq },
  { Kind::Response,   0x0100, "msg_0100",    268,   sizeof(bytes_resp),         kBytesResp },
  { Kind::Request,    0x0101, "msg_0101",    277,   sizeof(write_by_id_req),    kWriteByIdReq },
  { Kind::Response,   0x0101, "msg_0101",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0102, "msg_0102",    16,    sizeof(by_id_req),          kByIdReq },
  { Kind::Response,   0x0102, "msg_0102",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0103, "msg_0103",    12,    sizeof(by_index_req),       kByIndexReq },
  { Kind::Response,   0x0103, "msg_0103",    268,   sizeof(bytes_resp),         kBytesResp },
  { Kind::Request,    0x0104, "msg_0104",    273,   sizeof(write_by_index_req), kWriteByIndexReq },
  { Kind::Response,   0x0104, "msg_0104",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0105, "msg_0105",    12,    sizeof(by_index_req),       kByIndexReq },
  { Kind::Response,   0x0105, "msg_0105",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0106, "msg_0106",    113,   sizeof(by_name_req),        kByNameReq },
  { Kind::Response,   0x0106, "msg_0106",    268,   sizeof(bytes_resp),         kBytesResp },
  { Kind::Request,    0x0107, "msg_0107",    374,   sizeof(write_by_name_req),  kWriteByNameReq },
  { Kind::Response,   0x0107, "msg_0107",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0108, "msg_0108",    113,   sizeof(by_name_req),        kByNameReq },
  { Kind::Response,   0x0108, "msg_0108",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0109, "msg_0109",    7,     sizeof(word_req),           kWordReq },
  { Kind::Response,   0x0109, "msg_0109",    268,   sizeof(bytes_resp),         kBytesResp },
  { Kind::Request,    0x010A, "msg_010a",    268,   sizeof(write_word_req),     kWriteWordReq },
  { Kind::Response,   0x010A, "msg_010a",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x010B, "msg_010b",    7,     sizeof(word_req),           kWordReq },
  { Kind::Response,   0x010B, "msg_010b",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x010C, "msg_010c",    16,    sizeof(mixed_req),          kMixedReq },
  { Kind::Response,   0x010C, "msg_010c",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0200, "msg_0200",    11,    sizeof(switch_req),         kSwitchReq },
  { Kind::Response,   0x0200, "msg_0200",    14,    sizeof(switch_resp),        kSwitchResp },
  { Kind::Request,    0x0201, "msg_0201",    2621,  sizeof(items_req),          kItemsReq },
  { Kind::Response,   0x0201, "msg_0201",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0202, "msg_0202",    421,   sizeof(words_req),          kWordsReq },
  { Kind::Response,   0x0202, "msg_0202",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0207, "get_stats",   7114,  sizeof(get_stats_req),      kGetStatsReq },
  { Kind::Response,   0x0207, "get_stats",   7111,  sizeof(get_stats_resp),     kGetStatsResp },
  { Kind::Request,    0x0208, "msg_0208",    54,    sizeof(ids_req),            kIdsReq },
  { Kind::Response,   0x0208, "msg_0208",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0400, "msg_0400" },
  { Kind::Response,   0x0400, "msg_0400",    7,     sizeof(resp),               kResp },
  { Kind::Request,    0x0401, "msg_0401" },
  { Kind::Response,   0x0401, "msg_0401",    7,     sizeof(resp),               kResp },
  { Kind::Indication, 0x0004, "feature",     15,    sizeof(feature_ind),        kFeatureInd },
  { Kind::Indication, 0x0203, "report",      10672, sizeof(report_ind),         kReportInd },
  { Kind::Indication, 0x0204, "bytes",       121,   sizeof(bytes_ind),          kBytesInd },
  { Kind::Indication, 0x0601, "state",       4,     sizeof(state_ind),          kStateInd },
};

// clang-format on

constexpr qmi_idl_service_object kService = {
    .name = "vs",
    .service_id = 0xE4,
    .major_version = 1,
    .minor_version = 2,
    .library_version = 6,
    .wire_max = 10672,
    .messages = kMessages,
};

}  // namespace

qmi_idl_service_object_type vs_get_service_object_internal_v01(int major, int minor, int library) {
  return kService.if_version(major, minor, library);
}
