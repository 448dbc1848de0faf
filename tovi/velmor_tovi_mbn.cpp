// Module 10: refreshes or reactivates the modem's configuration.
#include "velmor_tovi_mbn.h"

#include "velmor_tovi_test_modules.h"

namespace {

constexpr int kModule = 10;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: velmor mbn test", {kModule}},
  {"   tovi %d %d sub_mask             /* mbn refresh, sub_mask: 1 - sub0; 2 - sub1; 3 - sub0&sub1 */", {kModule, 0}},
  {"   tovi %d %d sub_mask             /* mbn reactive, sub_mask: 1 - sub0; 2 - sub1; 3 - sub0&sub1 */", {kModule, 1}},
};
// clang-format on

}  // namespace

void velmor_test_mbn_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_mbn_do(int, char**) {
  return velmor_module_is_missing(kModule);
}
