#include "local_files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "descriptor.h"

namespace ctl {
namespace {

bool write_all(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

}  // namespace

Verdict local_failure(const std::string& path) {
  return {Status::Usage, path + ": " + strerror(errno)};
}

Verdict read_local_file(const std::string& path, size_t max, std::string& bytes) {
  const bool is_input = path == "-";
  const qmi::Descriptor file(is_input ? dup(STDIN_FILENO)
                                      : open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!file) return local_failure(path);
  bytes.clear();
  char room[65536];
  ssize_t n;
  while ((n = read(file.get(), room, sizeof room)) > 0) {
    bytes.append(room, static_cast<size_t>(n));
    if (bytes.size() > max) {
      return {Status::Usage, path + ": more than " + std::to_string(max) + " bytes"};
    }
  }
  return n < 0 ? local_failure(path) : Verdict{};
}

// A device, or a pipe, is written to as it is.
Verdict write_local_file(const std::string& path, std::string_view bytes) {
  const bool in_place = access(path.c_str(), F_OK) == 0;
  const std::string temporary = path + ".part";
  const std::string& written = in_place ? path : temporary;
  qmi::Descriptor file(open(written.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!file || !write_all(file.get(), bytes)) return local_failure(written);
  if (!in_place && rename(temporary.c_str(), path.c_str()) != 0) return local_failure(path);
  return {};
}

}  // namespace ctl
