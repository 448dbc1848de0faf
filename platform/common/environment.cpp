#include "environment.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/un.h>
#include <unistd.h>

#include <cmath>

#include "machine.h"

namespace environment {
namespace {

// An empty variable counts as unset.
const char* variable(const char* name) {
  const char* value = getenv(name);
  return value != nullptr && value[0] != '\0' ? value : nullptr;
}

struct TimeScale {
  double factor;
  bool usable;
};

const TimeScale& parsed_time_scale() {
  static const TimeScale scale = [] {
    const char* text = machine::kScalesTime ? variable("TOVI_TIME_SCALE") : nullptr;
    if (text == nullptr) return TimeScale{1, true};
    char* end;
    const double factor = strtod(text, &end);
    if (*end == '\0' && std::isfinite(factor) && factor > 0 && factor <= 1e6) {
      return TimeScale{factor, true};
    }
    complain("TOVI_TIME_SCALE=%s: not a number above 0", text);
    return TimeScale{1, false};
  }();
  return scale;
}

std::optional<ModemChoice> parse_modem() {
  const char* text = variable("TOVI_MODEM");
  const std::string value = text != nullptr ? text : machine::kModem;
  if (!parsed_time_scale().usable) return std::nullopt;
  if (value == "sim") return ModemChoice{ModemKind::Simulated, "", value};
  if (value == "qrtr") return ModemChoice{ModemKind::Qrtr, "", value};
  constexpr struct {
    const char* prefix;
    ModemKind kind;
    const char* whose;
    size_t room;
  } kWithPath[] = {
      {"unix:", ModemKind::Unix, "a socket", sizeof(sockaddr_un::sun_path)},
      {"qmux:", ModemKind::Qmux, "a device", PATH_MAX},
      {"qmux-proxy:", ModemKind::QmuxProxy, "a device", PATH_MAX},
  };
  for (const auto& [prefix, kind, whose, room] : kWithPath) {
    if (!value.starts_with(prefix)) continue;
    const std::string path = value.substr(strlen(prefix));
    if (!path.empty() && path.size() < room) return ModemChoice{kind, path, value};
    complain("TOVI_MODEM=%s: %s's path has 1 to %zu characters", text, whose, room - 1);
    return std::nullopt;
  }
  complain("TOVI_MODEM=%s: not one of sim, unix:PATH, qrtr, qmux:PATH, qmux-proxy:PATH", text);
  return std::nullopt;
}

std::optional<std::string> parse_state_folder() {
  if (const char* state = variable("TOVI_STATE")) return state;
  if (const char* base = variable("XDG_STATE_HOME")) return std::string(base) + "/tovi";
  if (const char* home = variable("HOME")) return std::string(home) + "/.local/state/tovi";
  return std::nullopt;
}

std::string parse_device_root() {
  const char* path = variable("TOVI_DEVICE_ROOT");
  return path != nullptr ? path : machine::device_root();
}

[[gnu::format(printf, 1, 0)]] void say(const char* format, va_list args) {
  char line[1024];
  vsnprintf(line, sizeof line, format, args);
  fprintf(stderr, "%s: %s\n", program_invocation_short_name, line);
}

// For the owner alone: it may tell who somebody is.
Output open_file(const char* name, const char* target) {
  const int fd = open(target, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (fd >= 0) return {Sink::Descriptor, fd};
  complain("%s=%s: %s", name, target, strerror(errno));
  return {Sink::None, -1};
}

Output open_output(const char* name, const char* target) {
  if (strcmp(target, "stderr") == 0) return {Sink::Descriptor, STDERR_FILENO};
  return open_file(name, target);
}

}  // namespace

// What is kept is never destroyed: threads may still ask for it while the process exits.
const ModemChoice* modem() {
  static const auto* const choice = new std::optional(parse_modem());
  return *choice ? &**choice : nullptr;
}

const std::string* state_folder() {
  static const auto* const folder = new std::optional(parse_state_folder());
  return *folder ? &**folder : nullptr;
}

const std::string* needed_state_folder() {
  static const std::string* const folder = [] {
    if (state_folder() == nullptr) {
      complain("no folder for the modem's state: set TOVI_STATE or HOME");
    }
    return state_folder();
  }();
  return folder;
}

double time_scale() {
  return parsed_time_scale().factor;
}

const std::string& device_root() {
  static const auto* const root = new std::string(parse_device_root());
  return *root;
}

const Output& system_log() {
  static const Output output = [] {
    const char* target = variable("TOVI_LOG");
    if (target == nullptr || strcmp(target, "syslog") == 0) return Output{Sink::Syslog, -1};
    return open_output("TOVI_LOG", target);
  }();
  return output;
}

const Output& trace() {
  static const Output output = [] {
    const char* target = variable("TOVI_TRACE");
    return target != nullptr ? open_output("TOVI_TRACE", target) : Output{Sink::None, -1};
  }();
  return output;
}

const Output& record() {
  static const Output output = [] {
    const char* target = variable("TOVI_RECORD");
    return target != nullptr ? open_file("TOVI_RECORD", target) : Output{Sink::None, -1};
  }();
  return output;
}

bool trace_full() {
  static const bool full = [] {
    const char* value = variable("TOVI_TRACE_FULL");
    return value != nullptr && strcmp(value, "1") == 0;
  }();
  return full;
}

std::string sim_faults() {
  const char* rules = variable("TOVI_SIM_FAULTS");
  return rules != nullptr ? rules : "";
}

std::string sim_seed() {
  const char* seed = variable("TOVI_SIM_SEED");
  return seed != nullptr ? seed : "";
}

void complain(const char* format, ...) {
  va_list args;
  va_start(args, format);
  say(format, args);
  va_end(args);
}

void complain_once(std::atomic_flag& said, const char* format, ...) {
  if (said.test_and_set()) return;
  va_list args;
  va_start(args, format);
  say(format, args);
  va_end(args);
}

}  // namespace environment
