#include "utilities/velmor_log.h"

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "velmor_utils.h"

namespace {

constexpr int kNoInstance = 255;

const char* base_name(const char* path) {
  const char* slash = strrchr(path, '/');
  return slash != nullptr ? slash + 1 : path;
}

void write_system_log(LogLevel level, const LogPlace& place, const char* body) {
  const auto write = level == LogLevel::Error ? velmor_utils_syslog_err : velmor_utils_syslog_dbg;
  const char* file = base_name(place.file);
  const int instance = velmor_get_qcril_process_instance_id();
  if (instance != kNoInstance) {
    write("SUB[%d][%s:%d] %s: %s", instance, file, place.line, place.function, body);
  } else {
    write("[%s][%s:%d] %s: %s", velmor_get_current_pid_name(), file, place.line, place.function,
          body);
  }
}

}  // namespace

void velmor_log(LogLevel level, const LogPlace& place, const char* format, ...) {
  const bool always = level == LogLevel::Error;
  const velmor_print_flags flags =
      always ? velmor_print_flags{1, 1} : velmor_utils_get_print_flags();
  const bool logged = flags.print == 1;
  const bool echoed = flags.shell_print != 0;
  if (!logged && !echoed) return;

  char room[512];
  char* body = room;
  va_list args;
  va_start(args, format);
  va_list again;
  va_copy(again, args);
  const int length = vsnprintf(room, sizeof room, format, args);
  if (length >= static_cast<int>(sizeof room) && vasprintf(&body, format, again) < 0) body = room;
  va_end(again);
  va_end(args);

  if (logged) write_system_log(level, place, body);
  if (echoed) printf("RIL[%s:%d]: %s\n", place.function, place.line, body);
  if (body != room) free(body);
}
