#include "velmor_utils.h"

#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "environment.h"
#include "properties.h"
#include "property_store.h"
#include "system_log.h"

std::atomic<uint8_t> g_velmor_shell_print_flag = 1;

namespace {

std::atomic<uint8_t> g_instance_id = 255;

constexpr const char* kPrint = "persist.vendor.velmor.print";
constexpr const char* kShellPrint = "persist.vendor.velmor.shell_print";

uint8_t flag_of(const std::string& value) {
  return value.empty() ? 1 : static_cast<uint8_t>(strtol(value.c_str(), nullptr, 10));
}

void write_line(int fd, std::string_view line) {
  [[maybe_unused]] const ssize_t n = write(fd, line.data(), line.size());
}

[[gnu::format(printf, 3, 0)]] void write_log(int priority, char mark, const char* format,
                                             va_list args) {
  const environment::Output& output = environment::system_log();
  if (output.sink == environment::Sink::None) return;
  if (output.sink == environment::Sink::Syslog) {
    system_log::write(priority, format, args);
    return;
  }
  char room[1024] = {mark, ' '};
  constexpr int kBodyRoom = sizeof room - 3;  // between the mark and the newline
  va_list again;
  va_copy(again, args);
  const int length = vsnprintf(room + 2, kBodyRoom + 1, format, args);
  char* longer = nullptr;
  if (length > kBodyRoom && vasprintf(&longer, format, again) >= 0) {
    write_line(output.fd, std::string{mark, ' '} + longer + '\n');
    free(longer);
  } else if (length >= 0) {
    room[2 + std::min(length, kBodyRoom)] = '\n';
    write_line(output.fd, {room, static_cast<size_t>(2 + std::min(length, kBodyRoom) + 1)});
  }
  va_end(again);
}

}  // namespace

uint8_t velmor_utils_get_print_flag() {
  return flag_of(property_store::get(kPrint));
}

uint8_t velmor_utils_get_shell_print_flag() {
  if (g_velmor_shell_print_flag == 0) return 0;
  return flag_of(property_store::get(kShellPrint));
}

velmor_print_flags velmor_utils_get_print_flags() {
  if (g_velmor_shell_print_flag == 0) return {velmor_utils_get_print_flag(), 0};
  const auto [print, shell_print] = property_store::get_both(kPrint, kShellPrint);
  return {flag_of(print), flag_of(shell_print)};
}

uint8_t velmor_get_qcril_process_instance_id() {
  return g_instance_id;
}

void velmor_set_qcril_process_instance_id(uint8_t id) {
  g_instance_id = id;
}

const char* velmor_get_current_pid_name() {
  return program_invocation_short_name;
}

int velmor_get_property_value_from_int(const char* name, int default_value) {
  char value[PROPERTY_VALUE_MAX];
  property_get(name, value, "");
  char* end;
  const long number = strtol(value, &end, 10);
  const bool good = end != value && number >= INT_MIN && number <= INT_MAX;
  return good ? static_cast<int>(number) : default_value;
}

void velmor_utils_syslog_dbg(const char* format, ...) {
  va_list args;
  va_start(args, format);
  write_log(LOG_DEBUG, 'D', format, args);
  va_end(args);
}

void velmor_utils_syslog_err(const char* format, ...) {
  va_list args;
  va_start(args, format);
  write_log(LOG_ERR, 'E', format, args);
  va_end(args);
}
