// Module 8: sends an AT command over the modem's AT port.
#include "velmor_tovi_at_cmd.h"

#include "velmor_tovi_test_modules.h"

namespace {

constexpr int kModule = 8;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: velmor at command test", {kModule}},
  {"   tovi %d atcmd_cxt               /* atcmd_cxt: at command context */", {kModule}},
  {"                                    the len of atcmd can not > %d", {100}},
};
// clang-format on

}  // namespace

void velmor_test_at_cmd_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_at_cmd_do(int, char**) {
  return velmor_module_is_missing(kModule);
}
