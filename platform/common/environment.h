// The one place that reads the TOVI_* variables, each when it is first asked for. A value that
// cannot be used is said once, in one line on standard error.
#pragma once

#include <atomic>
#include <optional>
#include <string>

namespace environment {

enum class ModemKind { Simulated, Unix, Qrtr, Qmux, QmuxProxy };

struct ModemChoice {
  ModemKind kind;
  std::string path;  // of the unix socket, or the character device
  std::string text;  // the variable's value
};

// TOVI_MODEM. Null when it, or another variable that no modem can work without, is unusable.
const ModemChoice* modem();

// TOVI_STATE: the folder of the simulated modem's state. Null when none can be named, which is said
// only where the folder is needed.
const std::string* state_folder();
const std::string* needed_state_folder();

// TOVI_TIME_SCALE, 1 when it is unset or unusable.
double time_scale();

// TOVI_DEVICE_ROOT: the folder that stands for the root of the phone's file tree.
const std::string& device_root();

// TOVI_LOG, TOVI_TRACE and TOVI_RECORD, a file: where to write. `fd` -1 means not at all.
enum class Sink { None, Syslog, Descriptor };
struct Output {
  Sink sink;
  int fd;
};
const Output& system_log();
const Output& trace();
const Output& record();

// TOVI_TRACE_FULL: show what identifies a person or a device.
bool trace_full();

// TOVI_SIM_FAULTS and TOVI_SIM_SEED; empty when unset.
std::string sim_faults();
std::string sim_seed();

// One line on standard error: "tovi: ", the formatted text, a newline.
[[gnu::format(printf, 1, 2)]] void complain(const char* format, ...);

// The same unless `said` is set, which it is afterwards: a static flag makes it once a process.
[[gnu::format(printf, 2, 3)]] void complain_once(std::atomic_flag& said, const char* format, ...);

}  // namespace environment
