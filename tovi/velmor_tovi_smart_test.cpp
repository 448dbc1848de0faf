// Module 11: restarts the modem, dumps its memory, switches print masks, tests timer and
// shared memory.
//
//   tovi 11 0|1|2      restart, full dump, NV sync
//   tovi 11 3 opt      printing of the statistics framework, on this side
//   tovi 11 4|5|6 opt  printing of the modem: statistics, QMI, RF
//   tovi 11 7          first bytes of the shared memory
//   tovi 11 8 seconds  timer test
#include "velmor_tovi_smart_test.h"

#include <fcntl.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <semaphore>

#include "device_path.h"
#include "properties.h"
#include "timing.h"
#include "utilities/velmor_log.h"
#include "velmor_efs_files.h"
#include "velmor_extend_cmn.h"
#include "velmor_extend_nvefs.h"
#include "velmor_timer.h"
#include "velmor_tovi_test_modules.h"
#include "velmor_tovi_test_parse.h"
#include "velmor_utils.h"

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

void set_property(const char* name, const char* value) {
  if (property_set(name, value) != 0) g_velmor_test_outcome = {TestOutcome::LocalFailure, name};
}

// Sends a common request whose answer nobody looks at.
void send_common(uint32_t type, unsigned int length, void* value) {
  velmor_common_rsp rsp{};
  velmor_send_common_qmi_msg(type, length, value, &rsp);
}

void velmor_smart_test_modem_ssr() {
  VELMOR_LOG_DEBUG("Will trigger SSR of modem");
  uint32_t value = 0x1000;
  send_common(VELMOR_COMMON_MODEM_SSR, sizeof value, &value);
}

void velmor_smart_test_nv_sync() {
  VELMOR_LOG_DEBUG("Will trigger NV SYNC");
  send_common(VELMOR_COMMON_NV_SYNC, 0, nullptr);
}

// The full dump. The modem must not be restarted after it, so restarts are switched off first, and
// what they were is saved once.

constexpr const char* kRestartLevel = "persist.vendor.ssr.restart_level";
constexpr const char* kRestartLevelBackup = "persist.vendor.ssr.restart_level_bak";
constexpr const char* kRestartsOff = "ALL_DISABLE";
constexpr size_t kPropertyRoom = 256;

// The modem's files of subscription 0.
int read_file(const velmor_efs_file& file, unsigned char* buf, unsigned int* len) {
  return velmor_efs_read(0, file.path, file.path_len(), buf, len);
}
int write_file(const velmor_efs_file& file, unsigned char* buf, unsigned int len) {
  return velmor_efs_write(0, file.path, file.path_len(), buf, len);
}
int delete_file(const velmor_efs_file& file) {
  return velmor_efs_delete(0, file.path, file.path_len());
}

uint32_t velmor_smart_test_read_ssr_update_flag() {
  uint32_t update_cnt = 0;
  unsigned char bytes[sizeof update_cnt] = {};
  unsigned int len = sizeof bytes;
  const int ret = read_file(kEfsSsrUpdateCount, bytes, &len);
  memcpy(&update_cnt, bytes, sizeof bytes);
  VELMOR_LOG_DEBUG("PROP_MODEM_SSR_UPDATE_COUNT read ret: %d, old update_cnt: %d, len: %d", ret,
                   static_cast<int>(update_cnt), static_cast<int>(len));
  if (ret == 0) return update_cnt;
  VELMOR_LOG_ERROR("velmor_efs_read failed, maybe empty");
  return 0;
}

void velmor_smart_test_save_ssr_update_flag() {
  const uint32_t update_cnt = velmor_smart_test_read_ssr_update_flag() + 1;
  unsigned char bytes[sizeof update_cnt];
  memcpy(bytes, &update_cnt, sizeof bytes);
  const int ret = write_file(kEfsSsrUpdateCount, bytes, sizeof bytes);
  VELMOR_LOG_DEBUG("PROP_MODEM_SSR_UPDATE_COUNT write ret: %d, new update_cnt: %d", ret,
                   static_cast<int>(update_cnt));
}

// Waits as long as it is configured; gives that time, in seconds.
int velmor_smart_test_ssr_wait_s() {
  const int wait_s = velmor_get_property_value_from_int("persist.radio.ssr_wait_s", 5);
  VELMOR_LOG_DEBUG("ssr wait_s = %d", wait_s);
  if (wait_s < 1) {
    VELMOR_LOG_DEBUG("modem ssr will not wait");
    return wait_s;
  }
  VELMOR_LOG_DEBUG("wait-start(%ds) ...", wait_s);
  timing::sleep_s(static_cast<uint64_t>(wait_s));
  VELMOR_LOG_DEBUG("wait-end(%ds)", wait_s);
  return wait_s;
}

void velmor_smart_test_full_dump() {
  char current[kPropertyRoom] = {};
  char backup[kPropertyRoom] = {};
  property_get(kRestartLevel, current, "ALL_ENABLE");
  property_get(kRestartLevelBackup, backup, "");
  if (backup[0] == '\0') {
    VELMOR_LOG_DEBUG("need to save ssr state");
    set_property(kRestartLevelBackup, current);
  }
  VELMOR_LOG_DEBUG("Will trigger Full Dump, the current state: %s, the default state: %s", current,
                   backup);
  if (strcmp(current, kRestartsOff) != 0) {
    VELMOR_LOG_DEBUG("need to close ssr");
    set_property(kRestartLevel, kRestartsOff);
    velmor_smart_test_save_ssr_update_flag();
    if (velmor_smart_test_ssr_wait_s() < 0) {
      VELMOR_LOG_DEBUG("wait_s < 0, ssr is stoped");
      return;
    }
  }
  uint32_t value = 0x2000;
  send_common(VELMOR_COMMON_FULL_DUMP, sizeof value, &value);
}

void velmor_smart_test_ap_skarn_switch(int opt) {
  VELMOR_LOG_DEBUG("ap_skarn_print, opt = %d", opt);
  set_property("persist.vendor.radio.print_stats", opt == 1 ? "1" : "2");
  VELMOR_LOG_DEBUG("success, need to reboot");
}

// A switch of the modem's printing: a file that it reads when it starts.
struct PrintSwitch {
  const char* name;
  velmor_efs_file file;
  unsigned char on[4];
  unsigned int on_len;
};
constexpr PrintSwitch kSkarnPrint = {"bp_skarn_print", kEfsSkarnPrint, {0x1F}, 4};
constexpr PrintSwitch kQmiPrint = {"bp_qmi_print", kEfsQmiPrint, {1}, 1};
constexpr PrintSwitch kRfPrint = {"bp_rf_print", kEfsRfPrint, {0x0F}, 4};

// Switches it, then restarts the modem.
void turn(PrintSwitch print, int opt, Speaker speaker) {
  velmor_log(LogLevel::Debug, speaker, "%s, opt = %d", print.name, opt);
  if (opt == 1) {
    if (write_file(print.file, print.on, print.on_len) != 0) {
      velmor_log(LogLevel::Debug, speaker, "velmor_efs_write failed");
      return;
    }
  } else if (delete_file(print.file) != 0) {
    velmor_log(LogLevel::Debug, speaker, "velmor_efs_delete failed");
    return;
  }
  velmor_smart_test_nv_sync();
  velmor_smart_test_modem_ssr();
  velmor_log(LogLevel::Debug, speaker, "success, pls wait 10 seconds ");
}

void velmor_smart_test_bp_skarn_print_switch(int opt) {
  turn(kSkarnPrint, opt, Speaker::here());
}

void velmor_smart_test_bp_qmi_print_switch(int opt) {
  turn(kQmiPrint, opt, Speaker::here());
}

void velmor_smart_test_bp_rf_print_switch(int opt) {
  turn(kRfPrint, opt, Speaker::here());
}

constexpr const char* g_share_memory_file_path = "/data/vendor/modem/share_memory";
constexpr size_t kShareMemoryBytes = 100;

void share_memory_fails(const char* words, Speaker speaker) {
  g_velmor_test_outcome = {TestOutcome::LocalFailure, g_share_memory_file_path};
  velmor_log(LogLevel::Error, speaker, "%s", words);
}

void log_share_memory(int fd, Speaker speaker) {
  const int ret = ftruncate(fd, kShareMemoryBytes);
  velmor_log(LogLevel::Debug, speaker, "ftruncate, ret: %d", ret);
  if (ret == -1) {
    share_memory_fails("ftruncate error", speaker);
    return;
  }
  void* map = mmap(nullptr, kShareMemoryBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  velmor_log(LogLevel::Debug, speaker, "mmap, data_ptr: 0x%08x",
             static_cast<unsigned int>(reinterpret_cast<uintptr_t>(map)));
  if (map == MAP_FAILED) {
    share_memory_fails("mmap error", speaker);
    return;
  }
  const auto* data_ptr = static_cast<const unsigned char*>(map);
  for (int i = 0; i < 5; ++i) {
    velmor_log(LogLevel::Debug, speaker, "data_ptr[%d]: %d", i, data_ptr[i]);
  }
  const int unmapped = munmap(map, kShareMemoryBytes);
  velmor_log(LogLevel::Debug, speaker, "munmap, ret: %d", unmapped);
  if (unmapped == -1) velmor_log(LogLevel::Error, speaker, "munmap error");
}

void velmor_smart_test_sh_test_read() {
  LogScope scope;
  VELMOR_LOG_DEBUG("g_share_memory_file_path: %s", g_share_memory_file_path);
  const std::string path = velmor_device_path(g_share_memory_file_path);
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0777);
  VELMOR_LOG_DEBUG("open, fd: %d", fd);
  if (fd == -1) {
    share_memory_fails("shm_open error", Speaker::here());
    return;
  }
  log_share_memory(fd, Speaker::here());
  VELMOR_LOG_ERROR("close fd");
  close(fd);
}

void velmor_smart_test_share_memory() {
  VELMOR_LOG_DEBUG("share_memory");
  velmor_smart_test_sh_test_read();
}

std::atomic<bool> g_timer_runs;  // cleared by the timer's thread

// The start is logged before the end, also when the timer expires at once.
std::binary_semaphore g_timer_start_logged{0};

void velmor_tovi_delay_timer_cb(uint32_t* timer_id) {
  g_timer_start_logged.acquire();
  VELMOR_LOG_DEBUG("The timer expired with ID %u", *timer_id);
  g_timer_runs = false;
}

void velmor_smart_test_velmor_timer(uint64_t timeout_s) {
  VELMOR_LOG_DEBUG("Timer test start, timeout_s = %d", static_cast<int>(timeout_s));
  g_timer_runs = true;
  const uint32_t timer_id = velmor_timer_start(velmor_tovi_delay_timer_cb, timeout_s);
  VELMOR_LOG_DEBUG("Start one timer(timer_id %d), will pause until this timer is expired ...",
                   static_cast<int>(timer_id));
  g_timer_start_logged.release();
  if (timer_id == 0) g_timer_runs = false;
  int seconds = 0;
  do {
    timing::sleep_s(1);
    ++seconds;
    VELMOR_LOG_DEBUG(seconds == 1 ? "%d second has passed" : "%d seconds have passed", seconds);
  } while (g_timer_runs);
  VELMOR_LOG_DEBUG("Timer test done");
}

// A negative time-out becomes a very long one.
void timer_test(int timeout_s) {
  velmor_smart_test_velmor_timer(static_cast<uint64_t>(int64_t{timeout_s}));
}

template <void (*command)()>
void without_argument(int) {
  command();
}

enum class Argument { None, Switch, Number };

// The commands, by their numbers.
struct Command {
  Argument argument;
  void (*run)(int argument);
};
constexpr Command kCommands[] = {
    {Argument::None, without_argument<velmor_smart_test_modem_ssr>},
    {Argument::None, without_argument<velmor_smart_test_full_dump>},
    {Argument::None, without_argument<velmor_smart_test_nv_sync>},
    {Argument::Switch, velmor_smart_test_ap_skarn_switch},
    {Argument::Switch, velmor_smart_test_bp_skarn_print_switch},
    {Argument::Switch, velmor_smart_test_bp_qmi_print_switch},
    {Argument::Switch, velmor_smart_test_bp_rf_print_switch},
    {Argument::None, without_argument<velmor_smart_test_share_memory>},
    {Argument::Number, timer_test},
};

}  // namespace

void velmor_smart_test_show_help(int module) {
  velmor_show_help_lines(module, kModule, kHelp);
}

int velmor_smart_test_do(int argc, char** argv) {
  if (!velmor_check_module_args(argc, argv, kModule, 3)) return 0;
  const int par_i = velmor_atoi(argv[2]);
  if (par_i < 0 || par_i >= static_cast<int>(std::size(kCommands))) {
    VELMOR_LOG_DEBUG("invalid par_i = %d", par_i);
    show_help(kModule);
    return 0;
  }
  const Command& command = kCommands[par_i];
  if (command.argument == Argument::None) {
    command.run(0);
    return 0;
  }
  if (!velmor_check_module_args(argc, argv, kModule, 4)) return 0;
  const int opt = velmor_atoi(argv[3]);
  if (command.argument == Argument::Switch && opt != 0 && opt != 1) {
    VELMOR_LOG_DEBUG("note: opt(%d) is invalid:", opt);
    show_help(kModule);
    return 0;
  }
  command.run(opt);
  return 0;
}
