#include "velmor_extend_service.h"

#include "velmor_extend_payload.h"

namespace {

using namespace qmi;

// clang-format off

using item_a    = velmor_extend_item_a_type_v01;
using item_b    = velmor_extend_item_b_type_v01;
using item_list = velmor_extend_item_list_type_v01;

constexpr Field kItemA[] = {
  { U64,            QMI_FIELD(item_a, id)     },
  { Array(U32, 12), QMI_FIELD(item_a, values) },
};
constexpr Field kItemB[] = {
  { U64,            QMI_FIELD(item_b, id)     },
  { Array(U32, 4),  QMI_FIELD(item_b, values) },
};
constexpr Shape ItemA = Struct(kItemA, sizeof(item_a));
constexpr Shape ItemB = Struct(kItemB, sizeof(item_b));

constexpr Field kItemList[] = {
  { Counted8(ItemB, 5), QMI_LIST(item_list, items) },
};
constexpr Shape ItemList = Struct(kItemList, sizeof(item_list));

using send_data_req   = velmor_extend_send_data_req_msg_v01;
using send_data_resp  = velmor_extend_send_data_resp_msg_v01;
using option_data_req = velmor_extend_option_data_req_msg_v01;
using two_words       = velmor_extend_two_words_msg_v01;
using items_req       = velmor_extend_items_req_msg_v01;
using data_ind        = velmor_extend_data_ind_msg_v01;
using items_a_ind     = velmor_extend_items_a_ind_msg_v01;
using item_lists_ind  = velmor_extend_item_lists_ind_msg_v01;
using item_b_ind      = velmor_extend_item_b_ind_msg_v01;
using words_ind       = velmor_extend_words_ind_msg_v01;

constexpr Shape Data = Carries(Bytes(kExtendDataBytes), velmor_extend_payload_of);

// One opaque payload; the array always goes out whole.
constexpr Field kSendDataReq[] = {
  { 0x01, Required, U32,                     QMI_FIELD(send_data_req, request_id)  },
  { 0x02, Required, U32,                     QMI_FIELD(send_data_req, data_len)    },
  { 0x10, Optional, Data,                    QMI_OPTIONAL(send_data_req, data)     },
};
constexpr Field kSendDataResp[] = {
  { 0x01, Required, U32,                     QMI_FIELD(send_data_resp, result)     },
  { 0x02, Required, U32,                     QMI_FIELD(send_data_resp, data_len)   },
  { 0x10, Optional, Data,                    QMI_OPTIONAL(send_data_resp, data)    },
};
constexpr Field kOptionDataReq[] = {
  { 0x01, Required, U32,                     QMI_FIELD(option_data_req, request_id)},
  { 0x02, Required, U32,                     QMI_FIELD(option_data_req, data_len)  },
  { 0x10, Optional, Data,                    QMI_OPTIONAL(option_data_req, data)   },
  { 0x11, Optional, U8,                      QMI_OPTIONAL(option_data_req, option) },
};
constexpr Field kTwoWords[] = {
  { 0x01, Required, U32,                     QMI_FIELD(two_words, first)           },
  { 0x02, Required, U32,                     QMI_FIELD(two_words, second)          },
};
constexpr Field kItemsReq[] = {
  { 0x01, Required, U32,                     QMI_FIELD(items_req, first)           },
  { 0x02, Required, U32,                     QMI_FIELD(items_req, second)          },
  { 0x03, Required, Array(ItemB, 64),        QMI_FIELD(items_req, items)           },
};
constexpr Field kDataInd[] = {
  { 0x01, Required, U32,                     QMI_FIELD(data_ind, ind_id)           },
  { 0x02, Required, U32,                     QMI_FIELD(data_ind, data_len)         },
  { 0x10, Optional, Data,                    QMI_OPTIONAL(data_ind, data)          },
};
constexpr Field kItemsAInd[] = {
  { 0x01, Required, U32,                     QMI_FIELD(items_a_ind, first)         },
  { 0x02, Required, U32,                     QMI_FIELD(items_a_ind, second)        },
  { 0x03, Required, Array(ItemA, 20),        QMI_FIELD(items_a_ind, items)         },
};
constexpr Field kItemListsInd[] = {
  { 0x01, Required, U32,                     QMI_FIELD(item_lists_ind, first)      },
  { 0x02, Required, U32,                     QMI_FIELD(item_lists_ind, second)     },
  { 0x03, Required, Array(ItemList, 10),     QMI_FIELD(item_lists_ind, lists)      },
};
constexpr Field kItemBInd[] = {
  { 0x01, Required, U32,                     QMI_FIELD(item_b_ind, first)          },
  { 0x02, Required, ItemB,                   QMI_FIELD(item_b_ind, item)           },
};
constexpr Field kWordsInd[] = {
  { 0x01, Required, U32,                     QMI_FIELD(words_ind, first)           },
  { 0x02, Required, U32,                     QMI_FIELD(words_ind, second)          },
  { 0x03, Required, Array(U64, 50),          QMI_FIELD(words_ind, words)           },
};

// Only 0x02 is sent by this program; the others are known, so that they can be decoded.
constexpr Message kMessages[] = {
  { Kind::Request,    0x02, "send_data",     529,  sizeof(send_data_req),   kSendDataReq   },
  { Kind::Response,   0x02, "send_data",     529,  sizeof(send_data_resp),  kSendDataResp  },
  { Kind::Request,    0x03, "data_3",        529,  sizeof(send_data_req),   kSendDataReq   },
  { Kind::Response,   0x03, "data_3",        529,  sizeof(send_data_resp),  kSendDataResp  },
  { Kind::Request,    0x04, "option_data",   533,  sizeof(option_data_req), kOptionDataReq },
  { Kind::Response,   0x04, "option_data",   14,   sizeof(two_words),       kTwoWords      },
  { Kind::Request,    0x0A, "items",         1553, sizeof(items_req),       kItemsReq      },
  { Kind::Response,   0x0A, "items",         14,   sizeof(two_words),       kTwoWords      },
  { Kind::Indication, 0x03, "data",          529,  sizeof(data_ind),        kDataInd       },
  { Kind::Indication, 0x05, "items_a",       1137, sizeof(items_a_ind),     kItemsAInd     },
  { Kind::Indication, 0x06, "item_lists",    1227, sizeof(item_lists_ind),  kItemListsInd  },
  { Kind::Indication, 0x07, "two_words",     14,   sizeof(two_words),       kTwoWords      },
  { Kind::Indication, 0x08, "item_b",        34,   sizeof(item_b_ind),      kItemBInd      },
  { Kind::Indication, 0x09, "words",         417,  sizeof(words_ind),       kWordsInd      },
};

// clang-format on

static_assert(sizeof(item_a) == 56 && sizeof(item_b) == 24 && sizeof(item_list) == 128);
static_assert(sizeof(send_data_req) == 524 && sizeof(send_data_resp) == 524);
static_assert(sizeof(option_data_req) == 524 && sizeof(two_words) == 8);
static_assert(sizeof(items_req) == 1544 && sizeof(data_ind) == 524);
static_assert(sizeof(items_a_ind) == 1128 && sizeof(item_lists_ind) == 1288);
static_assert(sizeof(item_b_ind) == 32 && sizeof(words_ind) == 408);

constexpr qmi_idl_service_object kService = {
    .name = "extend",
    .service_id = 0xFFE4,
    .major_version = 1,
    .minor_version = 1,
    .library_version = 6,
    .wire_max = 1553,
    .messages = kMessages,
};

}  // namespace

qmi_idl_service_object_type velmor_extend_get_service_object_internal_v01(int major, int minor,
                                                                          int library) {
  return kService.if_version(major, minor, library);
}
