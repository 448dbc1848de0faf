// Module 11: restarts the modem, dumps its memory, switches print masks, tests timer and
// shared memory.
#include "velmor_tovi_smart_test.h"

#include "velmor_tovi_test_modules.h"

namespace {

constexpr int kModule = 11;

// clang-format off
constexpr HelpLine kHelp[] = {
  {"%d: smart test", {kModule}},
  {"   tovi %d %d                      /* trigger SSR of modem */", {kModule, 0}},
  {"   tovi %d %d                      /* trigger Full Dump */", {kModule, 1}},
  {"   tovi %d %d                      /* trigger NV SYNC */", {kModule, 2}},
  {"   tovi %d %d opt                  /* ap skarn print(need reboot), opt: 0 - off; 1 - on */", {kModule, 3}},
  {"   tovi %d %d opt                  /* bp skarn print, opt: 0 - off; 1 - on */", {kModule, 4}},
  {"   tovi %d %d opt                  /* bp qmi print, opt: 0 - off; 1 - on */", {kModule, 5}},
  {"   tovi %d %d opt                  /* bp rf print, opt: 0 - off; 1 - on */", {kModule, 6}},
  {"   tovi %d %d                      /* share memory test */", {kModule, 7}},
  {"   tovi %d %d timeout_s            /* velmor timer test, timeout_s - the expired time(s) */", {kModule, 8}},
};
// clang-format on

}  // namespace

void velmor_smart_test_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_smart_test_do(int, char**) {
  return velmor_module_is_missing(kModule);
}
