#include "local_files.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

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

// Where what becomes a file is written: beside it first, or to what is no file at once.
struct Place {
  std::string path;  // behind the links
  std::string written;
  bool in_place;
  mode_t mode;
};

Place place_of(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return {path, path + ".part", false, 0644};
  if (!S_ISREG(status.st_mode)) return {path, path, true, 0644};
  std::error_code unresolved;
  const std::string real = std::filesystem::canonical(path, unresolved);
  const std::string& file = unresolved ? path : real;
  return {file, file + ".part", false, status.st_mode & 07777};
}

int open_for_writing(const Place& place) {
  return open(place.written.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, place.mode);
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

Verdict write_local_file(const std::string& path, std::string_view bytes) {
  const Place place = place_of(path);
  const qmi::Descriptor file(open_for_writing(place));
  const bool written = file && write_all(file.get(), bytes) &&
                       (place.in_place || rename(place.written.c_str(), place.path.c_str()) == 0);
  if (written) return {};
  const Verdict failure = local_failure(place.written);
  if (!place.in_place) unlink(place.written.c_str());
  return failure;
}

Verdict try_local_file(const std::string& path) {
  const Place place = place_of(path);
  if (place.in_place) return access(path.c_str(), W_OK) == 0 ? Verdict{} : local_failure(path);
  if (!qmi::Descriptor(open_for_writing(place))) return local_failure(place.written);
  unlink(place.written.c_str());
  return {};
}

}  // namespace ctl
