// Module 3: RF test settings: GPIO values and the TX antenna.
#include "velmor_tovi_test_rf.h"

#include "velmor_tovi_test_modules.h"

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

}  // namespace

void velmor_test_rf_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_rf_do(int, char**) {
  return velmor_module_is_missing(kModule);
}
