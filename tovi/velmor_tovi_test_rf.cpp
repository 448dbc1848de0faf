// Module 3: two factory RF settings, the GPIO values and the TX antenna.
//
//   tovi 3 0 value...                   set GPIO values
//   tovi 3 3 v_ant v_sys v_band_list    fix transmission to one antenna
//   tovi 3 1|4                          show what is set
//   tovi 3 2|5                          end the test
//
// The modem keeps a setting in an EFS file and follows it after the next reboot.
#include "velmor_tovi_test_rf.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "utilities/velmor_result.h"
#include "velmor_efs_files.h"
#include "velmor_extend_cmn.h"
#include "velmor_extend_nvefs.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"

namespace {

constexpr int kModule = 3;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: rf option cmd", {kModule}},
  {"   tovi %d %d ...   /* gpio value setting(pls input enough gpio value by notice)*/", {kModule, 0}},
  {"                    (need to reboot duing first setting) ", {}},
  {"   tovi %d %d       /* get gpio test state */", {kModule, 1}},
  {"   tovi %d %d       /* Close gpio test(need to reboot) */", {kModule, 2}},
  {"   tovi %d %d v_ant v_sys v_band_list", {kModule, 3}},
  {"                 /* fix tx to upper(lower) antenna for given band list */", {}},
  {"                    (need to reboot) ", {}},
  {"                    v_ant: 0 - lower antenna, 1 - upper antenna ", {}},
  {"                    v_sys: 0 - gsm, 1 - wcdma, 2 - cdma, 3 - tds, 4 - lte ", {}},
  {"                    v_band_list: bit0~bi43 - (gsm: 850,900,1800,1900; wcdma: b1,b2,b4,b5,b8; ", {}},
  {"                                            cdma: bc0, tds: b34,b39; lte: b1...b44 ", {}},
  {"                    v_band_list: bit44~bi63 - (only for lte: b28b,b40b,b41b,b41c,b39b,b252,", {}},
  {"                                            b255,b253,b254,b66,b46,b250,b47,b48,b71,b71b,b38k ...  ", {}},
  {"   tovi %d %d       /* get tx test state */", {kModule, 4}},
  {"   tovi %d %d       /* Close tx test(need to reboot) */", {kModule, 5}},
};
// clang-format on

// The modem expects the length of these files' paths with their NUL.
int path_len(const velmor_efs_file& file) {
  return file.path_len() + 1;
}

constexpr int kBufBytes = 365;

bool has_exactly_3_inputs(int argc, int command, Speaker speaker) {
  if (argc == 3) return true;
  velmor_log(LogLevel::Debug, speaker,
             "note: Cmd error, should be: tovi %d %d , Pls refer to the following cmd:", kModule,
             command);
  return false;
}

// Sends a setting; what the modem makes of it is not in its answer.
template <typename Setting>
int send_setting(uint32_t type, const Setting& setting, Speaker speaker = Speaker::here()) {
  velmor_common_direct_req req{.type = type, .value = {}};
  memcpy(req.value, &setting, sizeof setting);
  velmor_common_rsp rsp{};
  const int code = velmor_send_common_payload(req, &rsp);
  if (code != 0) {
    velmor_log(LogLevel::Debug, speaker, "velmor_extend_qmi_send_sync fail, REQUEST_ID_COMMON");
  }
  return code;
}

// Passes a library's code on, with a note when it is a failure.
int noted(int code, Speaker speaker) {
  if (code != 0) {
    velmor_log(LogLevel::Debug, speaker, "velmor_extend_qmi_send_sync fail, REQUEST_ID_EFS");
  }
  return code;
}

// Reads a setting's file and logs its bytes; `separator` stands between length and "data".
int show_setting(int argc, int command, const velmor_efs_file& file, const char* separator,
                 Speaker speaker = Speaker::here()) {
  velmor_log(LogLevel::Debug, speaker, "%s", speaker.function);
  if (!has_exactly_3_inputs(argc, command, speaker)) return VELMOR_INVALID_ARGUMENT;
  unsigned char buf[kBufBytes] = {};
  unsigned int len = sizeof buf;
  const int code = noted(velmor_efs_read(0, file.path, path_len(file), buf, &len), speaker);
  if (code != 0) return code;
  velmor_log(LogLevel::Debug, speaker, "data len(%d)%sdata: ", static_cast<int>(len), separator);
  velmor_log_bytes({buf, len}, speaker);
  return 0;
}

int delete_setting(int argc, int command, const velmor_efs_file& file,
                   Speaker speaker = Speaker::here()) {
  velmor_log(LogLevel::Debug, speaker, "%s", speaker.function);
  if (!has_exactly_3_inputs(argc, command, speaker)) return VELMOR_INVALID_ARGUMENT;
  return noted(velmor_efs_delete(0, file.path, path_len(file)), speaker);
}

int velmor_gpio_test_set(int argc, char** argv) {
  VELMOR_LOG_DEBUG("velmor_gpio_test_set");
  if (argc < 3) {
    VELMOR_LOG_DEBUG("note: Too few inputs, Pls refer to the following cmd:");
    return VELMOR_INVALID_ARGUMENT;
  }
  velmor_gpio_setting setting{};
  setting.count = std::min(argc - 3, kMaxGpioValues);
  for (int i = 0; i < setting.count; ++i) {
    setting.values[i] = velmor_atoi(argv[3 + i]);
    VELMOR_LOG_DEBUG("velmor_gpio_test_set, gpio_v[%d]: %d", i, setting.values[i]);
  }
  return send_setting(VELMOR_COMMON_GPIO_SET, setting);
}

int velmor_gpio_test_get(int argc, char**) {
  return show_setting(argc, 1, kEfsGpio, "");
}

int velmor_gpio_test_closed(int argc, char**) {
  return delete_setting(argc, 2, kEfsGpio);
}

int velmor_rf_tx_test_set(int argc, char** argv) {
  VELMOR_LOG_DEBUG("velmor_rf_tx_test_set, argc(%d)", argc);
  if (argc != 6) {
    // It counts six words and says five.
    VELMOR_LOG_DEBUG("note: need %d inputs, Pls refer to the following cmd:", 5);
    return VELMOR_INVALID_ARGUMENT;
  }
  velmor_tx_setting setting{};
  setting.v_ant = velmor_atoi(argv[3]);
  setting.v_sys = velmor_atoi(argv[4]);
  setting.v_band_list = strtoull(argv[5], nullptr, 0);
  VELMOR_LOG_DEBUG(" v_ant(%d)", setting.v_ant);
  VELMOR_LOG_DEBUG(" v_sys(%d)", setting.v_sys);
  VELMOR_LOG_DEBUG(" v_band_list(%llu)", static_cast<unsigned long long>(setting.v_band_list));
  return send_setting(VELMOR_COMMON_TX_SET, setting);
}

int velmor_rf_tx_test_get(int argc, char**) {
  return show_setting(argc, 4, kEfsTx, "\n");
}

int velmor_rf_tx_test_closed(int argc, char**) {
  return delete_setting(argc, 5, kEfsTx);
}

constexpr TestCommand kCommands[] = {
    {0, velmor_gpio_test_set},  {1, velmor_gpio_test_get},  {2, velmor_gpio_test_closed},
    {3, velmor_rf_tx_test_set}, {4, velmor_rf_tx_test_get}, {5, velmor_rf_tx_test_closed},
};

}  // namespace

void velmor_test_rf_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_rf_do(int argc, char** argv) {
  return velmor_run_test_command(argc, argv, kModule, kCommands);
}
