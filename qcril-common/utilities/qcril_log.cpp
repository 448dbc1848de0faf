#include "utilities/qcril_log.h"

#include <stdarg.h>
#include <stdio.h>

#include "velmor_utils.h"

void qcril_log_error(const char* tag, const char* format, ...) {
  char line[256];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof line, format, args);
  va_end(args);
  velmor_utils_syslog_err("%s: %s", tag, line);
}
