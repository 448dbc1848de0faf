// Module 6: sends one raw payload through the vendor extension service and shows the answer.
//
//   tovi 6 qmi_id data...
//
// qmi_id: the request id, 0 to 5. data: one number a byte, decimal or 0x hexadecimal, cut to its
// low eight bits.
#include "velmor_tovi_qmi_send_data.h"

#include <algorithm>

#include "velmor_extend_cmn.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"

namespace {

constexpr int kModule = 6;
constexpr int kFirstData = 3;  // index of the first data argument
constexpr int kIdEnd = 6;
constexpr int kMaxBytes = 500;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: velmor qmi send_data",                                                           {kModule}},
  {"   tovi %d qmi_id qmi_data         /* qmi_id: Any binary data you will send */",     {kModule}},
  {"                                    qmi_data: Any binary data you will send ",       {}},
};
// clang-format on

}  // namespace

void velmor_test_qmi_send_data_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_qmi_send_data_do(int argc, char** argv) {
  if (!velmor_check_module_args(argc, argv, kModule, kFirstData + 1)) return 0;
  const int qmi_id = velmor_atoi(argv[2]);
  if (qmi_id < 0 || qmi_id >= kIdEnd) {
    VELMOR_LOG_DEBUG("note: the second parameters(qmi_id) should be >= %d && < %d", 0, kIdEnd);
    show_help(kModule);
    return 0;
  }

  const int given = argc - kFirstData;
  VELMOR_LOG_DEBUG("velmor_qmi req data(qmi_id: %d, len: %d[max: %d]):", qmi_id, given, kMaxBytes);
  unsigned char request[kMaxBytes] = {};
  const int count = std::min(given, kMaxBytes);
  for (int i = 0; i < count; ++i) {
    request[i] = static_cast<unsigned char>(velmor_string_to_int(argv[kFirstData + i]));
    VELMOR_LOG_DEBUG("0x%02X ", request[i]);
  }

  unsigned char response[kMaxBytes] = {};
  unsigned int received = sizeof response;
  const int result = velmor_extend_qmi_send_sync(static_cast<unsigned int>(qmi_id), request, count,
                                                 response, &received);
  VELMOR_LOG_DEBUG("qmi_id = %d, result = %d", qmi_id, result);
  if (result != VELMOR_EXTEND_OK) {
    VELMOR_LOG_DEBUG("velmor_extend_qmi_send_sync fail");
    show_help(kModule);
    return 0;
  }
  VELMOR_LOG_DEBUG("velmor_qmi rsp data(qmi_id: %d, len: %d[max: %d]):", qmi_id,
                   static_cast<int>(received), kMaxBytes);
  velmor_log_bytes({response, received});
  return 0;
}
