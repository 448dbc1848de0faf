// The small logger of the helpers in this folder: error lines to the system log, under a tag.
#pragma once

// Writes "tag: ", the formatted text.
[[gnu::format(printf, 2, 3)]] void qcril_log_error(const char* tag, const char* format, ...);
