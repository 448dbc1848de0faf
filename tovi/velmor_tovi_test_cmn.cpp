// Module 5: diag commands, SIM cards and eSIM, card hot swap, SAR DSI.
#include "velmor_tovi_test_cmn.h"

#include "velmor_tovi_test_modules.h"

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

}  // namespace

void velmor_test_cmn_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_cmn_do(int, char**) {
  return velmor_module_is_missing(kModule);
}
