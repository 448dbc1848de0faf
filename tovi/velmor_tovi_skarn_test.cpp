// Module 7: decodes diagnostic statistics records, reads the debug information of the
// statistics framework in the modem.
//
//   tovi 7 0 print    unpack a built-in record; print 1: with every step
//   tovi 7 1 type     type 0: does the modem support what it should; else all counters
#include "velmor_tovi_skarn_test.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "utilities/velmor_log.h"
#include "velmor_extend_cmn.h"
#include "velmor_tovi_skarn_unpk.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"

namespace {

constexpr int kModule = 7;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: velmor modem stats test", {kModule}},
  {"   tovi %d 0 print                 /* modem stats diag-parsed test */", {kModule}},
  {"                                    print: 0 - print-off for temp info, 1 - print-on for temp info ", {}},
  {"   tovi %d 1 type                  /* get the debug info of modem stats */", {kModule}},
  {"                                    type: 0 - check, 1 - debuginfo ", {}},
};
// clang-format on

// A record of version 0x30001.
constexpr uint8_t kSampleRecord[48] = {
    0x01, 0x00, 0x03, 0x00, 0x01, 0x49, 0x27, 0x03, 0xc7, 0xb4, 0xfc, 0x60, 0x17, 0x01, 0x4f, 0x06,
    0x6e, 0x8b, 0x06, 0x00, 0xe8, 0xeb, 0x05, 0x00, 0x14, 0x00, 0x14, 0x00, 0xc7, 0xb4, 0xfc, 0x60,
    0x07, 0x00, 0x00, 0x00, 0xcc, 0x01, 0x02, 0x0b, 0x00, 0x02, 0x0a, 0x8a, 0x76, 0x00, 0x01, 0x00};

int velmor_test_modem_stats_parsing_process(int argc, char** argv) {
  if (!velmor_check_module_args(argc, argv, kModule, 4)) return 0;
  const int print = velmor_atoi(argv[3]);
  VELMOR_LOG_DEBUG("length = %d, print_flag = %d", static_cast<int>(sizeof kSampleRecord), print);
  uint8_t payload[kUnpkBufBytes] = {};
  std::copy(std::begin(kSampleRecord), std::end(kSampleRecord), payload);
  velmor_test_modem_stats_parsing_process_do(payload, print != 0);
  return 1;
}

// Fields of a block of debug information, packed one behind the other. A field is there from a
// version on.
struct InfoField {
  int bytes;
  const char* name;
  int first_version;
};

constexpr InfoField kMainInfo[] = {
    {1, "g_modem_stats_feature_enable_status", 0},
    {8, "g_unpk_version_not_support_num", 0},
    {8, "g_modem_stats_cmd_ok_count", 0},
    {8, "g_modem_stats_cmd_fail_count", 0},
    {8, "skarn_system_heapi_mem_max_num", 2},
    {8, "skarn_system_heapi_mem_cur_num", 2},
    {4, "modem_statsi_cmd_q_count", 2},
    {4, "modem_statsi_cmd_free_q_count", 2},
    {4, "g_skarn_log_mask", 4},
    {4, "g_skarn_log_stats_mask", 4},
};
constexpr InfoField kDiagInfo[] = {
    {1, "init_state", 0},
    {4, "listener_event_num", 0},
    {1, "listener_event_state", 0},
    {4, "listener_event_call_num", 0},
    {4, "listener_event_parse_num", 0},
    {4, "listener_log_num", 0},
    {1, "listener_log_state", 0},
    {8, "listener_log_call_num", 0},
    {8, "listener_log_parse_num", 0},
    {4, "poll_update_call_num", 0},
    {4, "poll_update_parse_num", 0},
    {8, "listener_event_callback_num", 1},
    {8, "listener_log_callback_num", 1},
    {4, "lte_cell_id_invalid_num", 1},
    {4, "nr5g_cell_id_invalid_num", 1},
    {4, "event_duration_ms_max", 2},
    {4, "log_duration_ms_max", 2},
    {4, "do_duration_ms_max", 2},
    {4, "debug_call_num", 2},
    {4, "debug_parse_num", 2},
    {4, "cust_event_call_num", 3},
    {4, "cust_event_parse_num", 3},
};
constexpr InfoField kCmInfo[] = {
    {1, "init_state", 0},
    {1, "listener_state", 0},
    {4, "listener_call_event_call_num", 0},
    {4, "listener_call_event_parse_num", 0},
    {4, "listener_subs_event_call_num", 0},
    {4, "listener_subs_event_parse_num", 0},
    {4, "listener_ss_event_call_num", 0},
    {4, "listener_ss_event_parse_num", 0},
    {4, "listener_stats_event_call_num", 0},
    {4, "listener_stats_event_parse_num", 0},
    {4, "poll_update_rf_call_num", 0},
    {4, "poll_update_rf_parse_num", 0},
    {4, "poll_update_lte_call_num", 0},
    {4, "poll_update_lte_parse_num", 0},
    {4, "poll_update_nr5g_call_num", 0},
    {4, "poll_update_nr5g_parse_num", 0},
};
constexpr InfoField kUimInfo[] = {
    {1, "init_state", 0},
    {1, "listener_state", 0},
    {4, "listener_event_call_num", 0},
    {4, "listener_event_parse_num", 0},
};
constexpr InfoField kSupportInfo[] = {
    {1, "version", 0},
    {1, "modem_stats_feature_enable_status", 0},
    {8, "version_not_support_num", 0},
    {8, "modem_stats_cmd_ok_count", 0},
    {8, "modem_stats_cmd_fail_count", 0},
};

uint64_t read_number(const uint8_t* data, int bytes) {
  uint64_t value = 0;
  memcpy(&value, data, static_cast<size_t>(bytes));
  return value;
}

uint64_t print_number(const uint8_t* data, int bytes, const char* name) {
  const uint64_t value = read_number(data, bytes);
  printf("UNPK[size:%d], %s = %llu\n", bytes, name, static_cast<unsigned long long>(value));
  return value;
}

// Prints a block; the number of its bytes.
int print_info(const uint8_t* data, std::span<const InfoField> fields, int version) {
  if (data == nullptr) {
    puts("ptr is null");
    return 0;
  }
  int offset = 0;
  for (const InfoField& field : fields) {
    if (version < field.first_version) continue;
    print_number(data + offset, field.bytes, field.name);
    offset += field.bytes;
  }
  return offset;
}

void print_banner(const char* word) {
  constexpr const char* kRule = "===========================================";
  puts(kRule);
  puts(word);
  puts(kRule);
}

// Sends a common request without a value. False when it failed or was refused, which is noted with
// `fail_words` and what the result is called.
bool request(uint32_t type, velmor_common_rsp& rsp, const char* fail_words, const char* rsp_word,
             Speaker speaker) {
  const int result = velmor_common_qmi_req(type, 0, nullptr, &rsp);
  if (result == 0 && rsp.result == 0) return true;
  velmor_log(LogLevel::Debug, speaker, "%s, result = %d, %s.result = %d",
             result != 0 ? fail_words : "qmi response fail", result, rsp_word, rsp.result);
  return false;
}

// Names the diag logs that the modem should support in a newer version.
void print_unsupported_logs(Speaker speaker) {
  velmor_common_rsp rsp{};
  if (!request(VELMOR_COMMON_STATS_UNSUPPORTED, rsp, "velmor_common_qmi_req fail",
               "rsp_not_support", speaker)) {
    return;
  }
  const auto log_num = static_cast<int>(print_number(rsp.data, 2, "log_num"));
  print_banner("================= FAIL ====================");
  printf("Diag logs to be upgraded[num:%d]:\n", log_num);
  for (int i = 0; i < log_num; ++i) {
    // The place in the list is counted in 8 bits.
    const auto at = static_cast<uint8_t>(2 + 2 * i);
    printf("log_id[%d]: 0x%04X\n", i, static_cast<unsigned int>(read_number(rsp.data + at, 2)));
  }
}

}  // namespace

void velmor_modem_stats_support_status_check(const uint8_t* data) {
  if (data == nullptr) {
    puts("velmor_modem_stats_support_status_check, ptr is null");
    return;
  }
  print_info(data, kSupportInfo, 0);
  const bool enabled = data[1] != 0;
  const bool all_supported = read_number(data + 2, 8) == 0;
  if (!enabled) {
    print_banner("================ CLOSED ===================");
  } else if (all_supported) {
    print_banner("================ SUCCES ===================");
  } else {
    print_unsupported_logs(Speaker::here());
  }
}

int velmor_modem_stats_main_info_unpk(const uint8_t* data, int version) {
  return print_info(data, kMainInfo, version);
}

int velmor_modem_stats_diag_info_unpk(const uint8_t* data, int version) {
  return print_info(data, kDiagInfo, version);
}

int velmor_modem_stats_cm_info_unpk(const uint8_t* data) {
  return print_info(data, kCmInfo, 0);
}

int velmor_modem_stats_uim_info_unpk(const uint8_t* data) {
  return print_info(data, kUimInfo, 0);
}

namespace {

void print_debug_info(const uint8_t* data) {
  const int version = data[0];
  print_number(data, 1, "version");
  const struct {
    const char* name;
    int (*print)(const uint8_t* data, int version);
  } blocks[] = {
      {"main", velmor_modem_stats_main_info_unpk},
      {"diag", velmor_modem_stats_diag_info_unpk},
      {"cm", [](const uint8_t* at, int) { return velmor_modem_stats_cm_info_unpk(at); }},
      {"uim", [](const uint8_t* at, int) { return velmor_modem_stats_uim_info_unpk(at); }},
  };
  int cnt = 1;
  for (const auto& block : blocks) {
    printf("-------- stats %s info start --------\n", block.name);
    cnt += block.print(data + cnt, version);
    // The count of the markers has 8 bits; the first two blocks never need more.
    printf("-------- stats %s info end, cnt(%d) --------\n", block.name, static_cast<uint8_t>(cnt));
  }
}

void velmor_test_modem_stats_get_debug_info_do(int type) {
  VELMOR_LOG_DEBUG("Get the debug info of modem_stats, mask = 0x%x", static_cast<unsigned>(type));
  velmor_common_rsp rsp{};
  if (!request(VELMOR_COMMON_STATS_DEBUG_INFO, rsp, "velmor_common_qmi_req fail, REQUEST_ID_COMMON",
               "rsp", Speaker::here())) {
    return;
  }
  if (type == 0) {
    velmor_modem_stats_support_status_check(rsp.data);
  } else {
    print_debug_info(rsp.data);
  }
}

int velmor_test_modem_stats_get_debug_info(int argc, char** argv) {
  if (!velmor_check_module_args(argc, argv, kModule, 4)) return 0;
  velmor_test_modem_stats_get_debug_info_do(velmor_atoi(argv[3]));
  return 1;
}

}  // namespace

// This function and that of module 9 carry each other's names.
void velmor_test_qmi_modem_stats_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_modem_stats_do(int argc, char** argv) {
  if (!velmor_check_module_args(argc, argv, kModule, 3)) return 0;
  const int cmd = velmor_atoi(argv[2]);
  if (cmd == 0) {
    if (velmor_test_modem_stats_parsing_process(argc, argv) == 0) {
      VELMOR_LOG_DEBUG("velmor_test_modem_stats_parsing_process FAIL");
    }
  } else if (cmd == 1) {
    velmor_test_modem_stats_get_debug_info(argc, argv);
  } else {
    VELMOR_LOG_DEBUG("invalid type = %d", cmd);
  }
  return 0;
}
