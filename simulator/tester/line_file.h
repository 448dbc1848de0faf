// A file that gets whole lines, whatever happens to the disk.
#pragma once

#include <atomic>
#include <string>

#include "descriptor.h"

namespace sim {

class LineFile {
 public:
  // Opens a file for more lines; a new one is for its owner alone. False, with `problem` in words,
  // when that fails.
  bool open(const std::string& path, std::string& problem);

  // Adds a line, with its line break. That it cannot be written is said once on standard error.
  void add(const std::string& line);

 private:
  std::string path_;
  qmi::Descriptor file_;
  std::atomic<bool> torn_{false};  // what is there ends within a line
  std::atomic_flag said_;
};

}  // namespace sim
