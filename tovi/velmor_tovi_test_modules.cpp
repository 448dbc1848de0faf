#include "velmor_tovi_test_modules.h"

#include <stdio.h>

#include "velmor_tovi_at_cmd.h"
#include "velmor_tovi_mbn.h"
#include "velmor_tovi_qmi.h"
#include "velmor_tovi_qmi_send_data.h"
#include "velmor_tovi_skarn_data.h"
#include "velmor_tovi_skarn_test.h"
#include "velmor_tovi_smart_test.h"
#include "velmor_tovi_test_cmn.h"
#include "velmor_tovi_test_nvefs.h"
#include "velmor_tovi_test_parse.h"
#include "velmor_tovi_test_rf.h"
#include "velmor_utils.h"

namespace {

// clang-format off

// NV backup and restore have help, but no handler in this program.
constexpr HelpLine kNvHelp[] = {
  {"%d: nv option cmd",                                                                {1}},
  {"   tovi %d 1       /* nv test */",                                                 {1}},
  {"   tovi %d 2 0     /* nv backup(no privacy nvs) */",                               {1}},
  {"   tovi %d 2 1     /* nv backup(have privacy nvs) */",                             {1}},
  {"   tovi %d 3 0     /* nv restore(no goldencopy done after restore) */",            {1}},
  {"   tovi %d 3 1     /* nv restore(do goldencopy done after restore) */",            {1}},
  {"   tovi %d 4 nvid  /* nv delete */",                                               {1}},
};

void velmor_test_nv_show_help(int module) {
  velmor_show_help_lines(module, 1, kNvHelp);
}

constexpr TestModule kModules[] = {
  { 1,  nullptr,                        velmor_test_nv_show_help            },
  { 2,  nullptr,                        nullptr                             },
  { 3,  velmor_test_rf_do,              velmor_test_rf_show_help            },
  { 4,  velmor_test_nvefs_do,           velmor_test_nvefs_show_help         },
  { 5,  velmor_test_cmn_do,             velmor_test_cmn_show_help           },
  { 6,  velmor_test_qmi_send_data_do,   velmor_test_qmi_send_data_show_help },
  // The help functions of the two statistics modules carry each other's names.
  { 7,  velmor_test_modem_stats_do,     velmor_test_qmi_modem_stats_show_help },
  { 8,  velmor_test_at_cmd_do,          velmor_test_at_cmd_show_help        },
  { 9,  velmor_test_qmi_modem_stats_do, velmor_test_modem_stats_show_help   },
  { 10, velmor_test_mbn_do,             velmor_test_mbn_show_help           },
  { 11, velmor_smart_test_do,           velmor_smart_test_show_help         },
  { 12, velmor_test_qmi_do,             velmor_test_qmi_show_help           },
};

constexpr HelpLine kOpening[] = {
  {"=========== blew: tovirig(tovi) cmd help =======================================================", {}},
};
constexpr HelpLine kClosing[] = {
  {"=========== above: tovirig(tovi) cmd help =======================================================\n", {}},
};

// clang-format on

}  // namespace

TestOutcome g_velmor_test_outcome;

std::span<const TestModule> velmor_test_modules() {
  return kModules;
}

void show_help(int module) {
  velmor_show_help_lines(0, 0, kOpening);
  for (const TestModule& known : kModules) {
    if (known.show_help != nullptr) known.show_help(module);
  }
  velmor_show_help_lines(0, 0, kClosing);
}

void velmor_show_help_lines(int asked, int own, std::span<const HelpLine> lines) {
  if (asked != 0 && asked != own) return;
  for (const HelpLine& line : lines) {
    if (velmor_utils_get_shell_print_flag() == 0) continue;
    printf(line.format, line.values[0], line.values[1]);
    putchar('\n');
  }
}

bool velmor_check_module_args(int argc, char** argv, int module, int least, Speaker speaker) {
  if (argc < least) {
    velmor_log(LogLevel::Debug, speaker,
               "note: Too few parameters, Pls refer to the following cmd:");
    show_help(module);
    return false;
  }
  if (velmor_atoi(argv[1]) != module) {
    velmor_log(LogLevel::Debug, speaker,
               "note: the first parameters should be %d, Pls refer to the following cmd:", module);
    show_help(module);
    return false;
  }
  return true;
}

int velmor_run_test_command(int argc, char** argv, int module,
                            std::span<const TestCommand> commands, Speaker speaker) {
  if (!velmor_check_module_args(argc, argv, module, 2, speaker)) return 0;
  if (!velmor_check_module_args(argc, argv, module, 3, speaker)) return 0;
  const int number = velmor_atoi(argv[2]);
  for (const TestCommand& command : commands) {
    if (command.number != number) continue;
    if (const int code = command.run(argc, argv)) {
      velmor_log(LogLevel::Debug, speaker, "note: Error happen! error_code(%d)", code);
      show_help(module);
    }
    return 0;
  }
  velmor_refuse_command(module, speaker);
  return 0;
}

void velmor_log_bytes(std::span<const unsigned char> bytes, Speaker speaker) {
  for (const unsigned char byte : bytes) velmor_log(LogLevel::Debug, speaker, " %02X", byte);
  velmor_log(LogLevel::Debug, speaker, "%s", "");
}

void velmor_refuse_command(int module, Speaker speaker) {
  velmor_log(LogLevel::Debug, speaker,
             "note: the second parameters is invalid, Pls refer to the following cmd:");
  show_help(module);
}
