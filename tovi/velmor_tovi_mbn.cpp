// Module 10: refreshes or reactivates the modem's software configuration.
//
//   tovi 10 0 sub_mask    refresh
//   tovi 10 1 sub_mask    reactivate
#include "velmor_tovi_mbn.h"

#include "utilities/velmor_log.h"
#include "velmor_mbn_utils.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"

namespace {

constexpr int kModule = 10;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: velmor mbn test", {kModule}},
  {"   tovi %d %d sub_mask             /* mbn refresh, sub_mask: 1 - sub0; 2 - sub1; 3 - sub0&sub1 */", {kModule, 0}},
  {"   tovi %d %d sub_mask             /* mbn reactive, sub_mask: 1 - sub0; 2 - sub1; 3 - sub0&sub1 */", {kModule, 1}},
};
// clang-format on

constexpr int (*kCommands[])(uint32_t sub_mask) = {velmor_refresh_sw_mbn, velmor_reactivate_sw_mbn};

}  // namespace

void velmor_test_mbn_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_mbn_do(int argc, char** argv) {
  if (!velmor_check_module_args(argc, argv, kModule, 4)) return 0;
  const int mbn_i = velmor_atoi(argv[2]);
  const int sub_mask = velmor_atoi(argv[3]);
  if (sub_mask < 1 || sub_mask > 3) {
    VELMOR_LOG_DEBUG("note: sub_mask(%d) is invalid:", sub_mask);
  } else if (velmor_mbn_init(0) != 0) {
    VELMOR_LOG_ERROR("pdc init failed, do nothing");
  } else if (mbn_i < 0 || mbn_i >= static_cast<int>(std::size(kCommands))) {
    VELMOR_LOG_DEBUG("invalid mbn_i = %d", mbn_i);
  } else {
    return kCommands[mbn_i](static_cast<uint32_t>(sub_mask));
  }
  show_help(kModule);
  return 0;
}
