#include "line_file.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include "environment.h"

namespace sim {

bool LineFile::open(const std::string& path, std::string& problem) {
  path_ = path;
  file_ = qmi::Descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
  if (!file_) problem = path + ": " + strerror(errno);
  return static_cast<bool>(file_);
}

void LineFile::add(const std::string& line) {
  const std::string text = torn_.exchange(false) ? "\n" + line : line;
  errno = ENOSPC;  // of a write that ends early
  const ssize_t written = write(file_.get(), text.data(), text.size());
  if (written == static_cast<ssize_t>(text.size())) return;
  environment::complain_once(said_, "%s: %s", path_.c_str(), strerror(errno));
  if (written > 0) torn_ = true;
}

}  // namespace sim
