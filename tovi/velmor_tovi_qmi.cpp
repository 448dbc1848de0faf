// Module 12: starts network scans.
#include "velmor_tovi_qmi.h"

#include "velmor_tovi_test_modules.h"

namespace {

constexpr int kModule = 12;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: qmi option cmd", {kModule}},
  {"   tovi %d %d arlist               /* nas_perform_network_scan_req_msg_v01 */VELMOR_LOG_DEBUG", {kModule, 0}},
  {"   tovi %d %d arlist               /* nas_perform_incremental_network_scan_req_msg_v01 */VELMOR_LOG_DEBUG", {kModule, 1}},
};
// clang-format on

}  // namespace

void velmor_test_qmi_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_test_qmi_do(int, char**) {
  return velmor_module_is_missing(kModule);
}
