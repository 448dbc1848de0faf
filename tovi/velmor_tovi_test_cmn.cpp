// Module 5: diag commands, SIM cards and eSIM, card hot swap, SAR DSI.
//
//   tovi 5 0 mode type time_out byte...    diag command
//   tovi 5 1|4                             card status, card type
//   tovi 5 2 sub                           card status of one subscription
//   tovi 5 3 sub mode set_val              set it
//   tovi 5 5                               SAR DSI
//   tovi 5 6 opt [seconds seconds count]   card hot-swap test
//   tovi 5 10 esim_on debug_on             eSIM test
//
// What the modem answers is printed whether messages are echoed or not, except the SAR DSI.
#include "velmor_tovi_test_cmn.h"

#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "utilities/velmor_log.h"
#include "utilities/velmor_result.h"
#include "velmor_diag.h"
#include "velmor_extend_cmn.h"
#include "velmor_tovi_test_cmn_esim.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"
#include "velmor_utils.h"

namespace {

constexpr int kModule = 5;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: cmn option cmd: ", {kModule}},
  {"   tovi %d %d mode type time_out cmd_cnt", {kModule, 0}},
  {"                                 /* diag cmd */", {}},
  {"                                    mode: 0 - callback, 1 - dci; ", {}},
  {"                                    type: 0 - with result, 1 - without result; ", {}},
  {"                                    time_out: set time - with result, set 0 - without result. unit:ms */", {}},
  {"                                    cmd_cnt: diag cmd bytes */", {}},
  {"   tovi %d %d                       /* card status query: 0 - absent, 1 - present", {kModule, 1}},
  {"   tovi %d %d sub                   /* card status get, sub: 0 or 1; ret: 0 - absent, 1 - present */", {kModule, 2}},
  {"   tovi %d %d sub mode set_val      /* card status set, sub: 0 or 1; mode: 0 - general, 1 - sim; set_val: 0 - low, 1 - high */", {kModule, 3}},
  {"   tovi %d %d                       /* card type query: 0 - err, 1 - single sim, 2 - mult sim */", {kModule, 4}},
  {"   tovi %d %d                       /* get sar dsi */", {kModule, 5}},
  {"   tovi %d %d opt option_list       /* card slot hotswap test */", {kModule, 6}},
  {"                                    opt: 0 - stop hotswap test, 1 - start hotswap test ", {}},
  {"                                    option_list(when opt is 1 for blew inputs): ", {}},
  {"                                      seconds_after_push : the seconds of waiting after push the card slot ", {}},
  {"                                      seconds_after_pull : the seconds of waiting after pull the card slot ", {}},
  {"                                      count_push_and_pull: the count of push and pull the card slot ", {}},
  {"   tovi %d %d esim_on debug_on     /* set esim state */", {kModule, 10}},
  {"                                    esim_on  : 1 - switch to eSIM,2 - switch to PSIM2 ", {}},
  {"                                    debug_on : 0 - disable log print,1 - enable log print ", {}},
};
// clang-format on

constexpr size_t kDiagCommandMax = 4096;
constexpr unsigned int kDiagAnswerMax = 10240;

void print_bytes(const char* format, std::span<const unsigned char> bytes) {
  for (const unsigned char byte : bytes) printf(format, byte);
  putchar('\n');
}

using Bytes = std::vector<unsigned char>;

// Sends in the way that `mode` names and gives the library's result; `answer` becomes what came.
int send_for_answer(int mode, Bytes& cmd, unsigned int time_out_ms, Bytes& answer,
                    Speaker speaker) {
  const bool by_callback = mode == 0;
  velmor_log(LogLevel::Debug, speaker,
             by_callback ? "callback mode with result" : "dci mode with result");
  const auto send = by_callback ? velmor_diag_cmd_send_with_result_by_callback_mode
                                : velmor_diag_cmd_send_with_result_by_dci_mode;
  answer.resize(kDiagAnswerMax);
  unsigned int size = kDiagAnswerMax;
  const int code =
      send(cmd.data(), static_cast<unsigned int>(cmd.size()), time_out_ms, answer.data(), &size);
  answer.resize(std::min(size, kDiagAnswerMax));
  return code;
}

int send_only(int mode, Bytes& cmd, Speaker speaker) {
  const bool by_callback = mode == 0;
  velmor_log(LogLevel::Debug, speaker,
             by_callback ? "callback mode without result" : "dci mode without result");
  const auto send = by_callback ? velmor_diag_cmd_send_without_result_by_callback_mode
                                : velmor_diag_cmd_send_without_result_by_dci_mode;
  return send(cmd.data(), static_cast<unsigned int>(cmd.size()));
}

int velmor_cmn_diag_cmd_send(int argc, char** argv) {
  LogScope scope;
  if (argc <= 6) {
    VELMOR_LOG_DEBUG("note: Too few inputs, Pls refer to the following cmd:");
    return 0;
  }
  const int mode = velmor_atoi(argv[3]);
  const bool wants_answer = velmor_atoi(argv[4]) == 0;
  const auto time_out_ms = static_cast<unsigned int>(std::max(velmor_atoi(argv[5]), 0));

  Bytes cmd;
  for (int i = 6; i < argc && cmd.size() < kDiagCommandMax; ++i) {
    cmd.push_back(static_cast<unsigned char>(velmor_string_to_int(argv[i])));
  }
  puts("diag cmd:");
  print_bytes("0x%02X ", cmd);

  Bytes answer;
  const int code = wants_answer ? send_for_answer(mode, cmd, time_out_ms, answer, Speaker::here())
                                : send_only(mode, cmd, Speaker::here());
  if (code != 0) {
    g_velmor_test_outcome = {TestOutcome::NoAnswer, "/dev/diag"};
    VELMOR_LOG_DEBUG("velmor_diag_cmd_send fail");
  } else if (wants_answer) {
    // A refusal has a code of its own in front of the command.
    if (!answer.empty() && answer[0] != cmd[0]) {
      g_velmor_test_outcome = {TestOutcome::Refused, "/dev/diag", answer[0]};
    }
    printf("rsp data len(%d)\nrsp data:", static_cast<int>(answer.size()));
    print_bytes(" 0x%02X", answer);
  } else {
    puts("done without rsp data");
  }
  return code;
}

// What the answer's value begins with, its type and its length, is part of the dump.
void dump_value(const velmor_common_rsp& rsp) {
  velmor_common_rsp_value value;
  memcpy(&value, rsp.data, sizeof value);
  constexpr size_t kHeaderBytes = offsetof(velmor_common_rsp_value, value);
  const size_t size = kHeaderBytes + std::min<size_t>(value.length, sizeof value.value);
  printf("data len(%d)\ndata:", static_cast<int>(size));
  print_bytes(" %02X", {rsp.data, size});
}

// Sends the common request `t` with `l` bytes of `data` and prints the answer. The exchange's
// result: the modem's refusal is only logged.
int velmor_cmn_cmd_send(uint32_t t, unsigned int l, const void* data) {
  VELMOR_LOG_DEBUG("velmor_cmn_cmd_send, t: %d, l: %d", static_cast<int>(t), static_cast<int>(l));
  velmor_common_tlv_req req{.type = t, .length = 0, .value = {}};
  if (data != nullptr && l <= kCommonTlvValueMax) {
    req.length = l;
    memcpy(req.value, data, l);
  }
  velmor_common_rsp rsp{};
  const int result = velmor_send_common_payload(req, &rsp);
  VELMOR_LOG_DEBUG("result = %d, rsp.result = %d", result, rsp.result);
  if (result != 0) {
    VELMOR_LOG_DEBUG("velmor_extend_qmi_send_sync fail");
  } else if (rsp.result != 0) {
    VELMOR_LOG_DEBUG("rsp.result fail");
  } else {
    dump_value(rsp);
  }
  return result;
}

constexpr int kMaxValues = 100;

// Sends exactly `n` values from the command line, each through `convert`.
int send_values(uint32_t t, int n, int argc, char** argv, int32_t (*convert)(int),
                Speaker speaker) {
  if (argc != n + 3) {
    velmor_log(LogLevel::Debug, speaker,
               "note: need %d inputs, Pls refer to the following cmd:", n + 3);
    return VELMOR_INVALID_ARGUMENT;
  }
  int32_t values[kMaxValues] = {};
  const int count = std::min(n, kMaxValues);
  printf("param(cnt: %d):", n);
  for (int i = 0; i < count; ++i) {
    values[i] = convert(velmor_atoi(argv[3 + i]));
    printf(" %d", values[i]);
  }
  putchar('\n');
  return velmor_cmn_cmd_send(t, static_cast<unsigned int>(count) * sizeof values[0], values);
}

// Values are switches: 0 or 1.
int velmor_cmn_card_status_cmd(uint32_t t, int n, int argc, char** argv) {
  constexpr auto reduce = [](int value) { return value != 0 ? 1 : 0; };
  return send_values(t, n, argc, argv, reduce, Speaker::here());
}

int velmor_cmn_card_status_cmd_ex(uint32_t t, int n, int argc, char** argv) {
  constexpr auto keep = [](int value) { return value; };
  return send_values(t, n, argc, argv, keep, Speaker::here());
}

int velmor_cmn_card_status_query(int argc, char** argv) {
  VELMOR_LOG_DEBUG("velmor_cmn_card_status_query");
  return velmor_cmn_card_status_cmd(VELMOR_COMMON_CARD_STATUS_QUERY, 0, argc, argv);
}

int velmor_cmn_card_status_get(int argc, char** argv) {
  VELMOR_LOG_DEBUG("velmor_cmn_card_status_get");
  return velmor_cmn_card_status_cmd(VELMOR_COMMON_CARD_STATUS_GET, 1, argc, argv);
}

int velmor_cmn_card_status_set(int argc, char** argv) {
  VELMOR_LOG_DEBUG("velmor_cmn_card_status_set");
  return velmor_cmn_card_status_cmd(VELMOR_COMMON_CARD_STATUS_SET, 3, argc, argv);
}

int velmor_cmn_card_type_query(int argc, char** argv) {
  VELMOR_LOG_DEBUG("velmor_cmn_card_type_query");
  return velmor_cmn_card_status_cmd(VELMOR_COMMON_CARD_TYPE_QUERY, 0, argc, argv);
}

void velmor_cmn_test_get_sar_dsi() {
  if (velmor_utils_get_shell_print_flag() != 0) printf("SAR DSI: %d\n", velmor_get_sar_dsi());
}

int velmor_cmn_card_hotswap_test(int argc, char** argv) {
  VELMOR_LOG_DEBUG("velmor_cmn_card_hotswap_test");
  if (argc < 4) {
    VELMOR_LOG_DEBUG("note: need %d inputs at least, Pls refer to the following cmd:", 4);
    return VELMOR_INVALID_ARGUMENT;
  }
  const int32_t opt = velmor_atoi(argv[3]);
  VELMOR_LOG_DEBUG("opt: %d", opt);
  if (opt == 0) return velmor_cmn_cmd_send(VELMOR_COMMON_CARD_HOTSWAP_TEST, sizeof opt, &opt);
  return velmor_cmn_card_status_cmd_ex(VELMOR_COMMON_CARD_HOTSWAP_TEST, 4, argc, argv);
}

int sar_dsi(int, char**) {
  velmor_cmn_test_get_sar_dsi();
  return 0;
}

constexpr TestCommand kCommands[] = {
    {0, velmor_cmn_diag_cmd_send},     {1, velmor_cmn_card_status_query},
    {2, velmor_cmn_card_status_get},   {3, velmor_cmn_card_status_set},
    {4, velmor_cmn_card_type_query},   {5, sar_dsi},
    {6, velmor_cmn_card_hotswap_test}, {10, velmor_cmn_esim_test},
};

}  // namespace

void velmor_test_cmn_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_cmn_do(int argc, char** argv) {
  return velmor_run_test_command(argc, argv, kModule, kCommands);
}
