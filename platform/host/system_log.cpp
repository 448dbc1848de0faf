#include "system_log.h"

#include <paths.h>
#include <unistd.h>

#include "velmor_utils.h"

namespace {

// Asked once: without a log daemon every line would look for it again.
bool has_syslog() {
  static const bool there = [] {
    openlog(velmor_get_current_pid_name(), LOG_PID, LOG_USER);
    return access(_PATH_LOG, W_OK) == 0;
  }();
  return there;
}

}  // namespace

void system_log::write(int priority, const char* format, va_list args) {
  if (has_syslog()) vsyslog(priority, format, args);
}
