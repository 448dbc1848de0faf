// Module 9: radio statistics by carrier and antenna, from the statistics service.
#include "velmor_tovi_skarn_data.h"

#include "velmor_tovi_test_modules.h"

namespace {

constexpr int kModule = 9;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: velmor modem stats qmi test", {kModule}},
  {"   tovi %d %d sub                   /* 4G PCC rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 0}},
  {"   tovi %d %d sub                   /* 4G SCC1 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 1}},
  {"   tovi %d %d sub                   /* 4G SCC2 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 2}},
  {"   tovi %d %d sub                   /* 4G SCC3 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 3}},
  {"   tovi %d %d sub                   /* 4G SCC4 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 4}},
  {"   tovi %d %d sub                   /* 4G SCC5 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 5}},
  {"   tovi %d %d sub                   /* 4G SCC6 rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 6}},
  {"   tovi %d %d sub                   /* 5G PCC rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 7}},
  {"   tovi %d %d sub                   /* 5G PCC snr, sub: 0 - sub0; 1 - sub1 */", {kModule, 8}},
  {"   tovi %d %d sub                   /* 5G ANT diversity, sub: 0 - sub0; 1 - sub1 */", {kModule, 9}},
  {"   tovi %d %d sub                  /* 5G PCC rsrp, sub: 0 - sub0; 1 - sub1 */", {kModule, 10}},
  {"   tovi %d %d sub                  /* 5G SCC1 rsrp, sub: 0 - sub0; 1 - sub1 */", {kModule, 11}},
  {"   tovi %d %d sub                  /* 5G SCC2 rsrp, sub: 0 - sub0; 1 - sub1 */", {kModule, 12}},
  {"   tovi %d %d sub                  /* WCDMA rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 20}},
  {"   tovi %d %d sub                  /* GSM rssi, sub: 0 - sub0; 1 - sub1 */", {kModule, 21}},
  {"   tovi %d %d 0                    /* Ant info */", {kModule, 30}},
};
// clang-format on

}  // namespace

void velmor_test_modem_stats_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_qmi_modem_stats_do(int, char**) {
  return velmor_module_is_missing(kModule);
}
