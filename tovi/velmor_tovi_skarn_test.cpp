// Module 7: decodes diagnostic statistics records, reads the debug information of the
// statistics framework.
#include "velmor_tovi_skarn_test.h"

#include "velmor_tovi_test_modules.h"

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

}  // namespace

void velmor_test_qmi_modem_stats_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_modem_stats_do(int, char**) {
  return velmor_module_is_missing(kModule);
}
