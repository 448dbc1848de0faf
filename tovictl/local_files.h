// Files of this machine. What goes wrong with one is Usage, with its path and the system's words.
#pragma once

#include <string>
#include <string_view>

#include "verdict.h"

namespace ctl {

// A whole file, or standard input for "-", of at most `max` bytes.
Verdict read_local_file(const std::string& path, size_t max, std::string& bytes);

// Replaces a file whole, also when it is killed; a device, or a pipe, is written to as it is.
Verdict write_local_file(const std::string& path, std::string_view bytes);

// Whether that could be done. Nothing is changed.
Verdict try_local_file(const std::string& path);

Verdict local_failure(const std::string& path);  // from errno

}  // namespace ctl
