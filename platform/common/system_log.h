// Where the system log is: syslog on a host, Android's log daemon on a device.
#pragma once

#include <stdarg.h>
#include <syslog.h>

namespace system_log {

// Writes one line, without a newline of its own; `priority` is LOG_DEBUG or LOG_ERR. Without a
// daemon the line is lost.
[[gnu::format(printf, 2, 0)]] void write(int priority, const char* format, va_list args);

}  // namespace system_log
