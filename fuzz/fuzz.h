// What the fuzz programs share: their input taken apart, a clock of their own, a folder in memory,
// a file in memory.
#pragma once

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace fuzz {

// What the sanitizers cannot see is a finding, too.
inline void require(bool holds) {
  if (!holds) abort();
}

// Before the first execution of a program that runs commands: none finds the user's modem or its
// state, and what they print costs little.
inline void keep_apart() {
  for (const char* name : {"TOVI_STATE", "XDG_STATE_HOME", "HOME", "TOVI_MODEM"}) unsetenv(name);
  static char buffer[1 << 16];
  setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
}

// The bytes of one execution. What is asked for behind their end is 0 or empty.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : left_(data, size) {}

  bool empty() const { return left_.empty(); }
  uint8_t byte() { return left_.empty() ? 0 : take(1)[0]; }

  // A length of two bytes, and as many bytes as it says, or as there are.
  std::span<const uint8_t> block() {
    const size_t low = byte();
    return take(low | size_t{byte()} << 8);
  }
  std::span<const uint8_t> rest() { return take(left_.size()); }

 private:
  std::span<const uint8_t> take(size_t count) {
    const auto taken = left_.first(std::min(count, left_.size()));
    left_ = left_.subspan(taken.size());
    return taken;
  }
  std::span<const uint8_t> left_;
};

inline std::string_view text_of(std::span<const uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// The bytes in a block of just their size, so that the sanitizer sees the first one past them.
class Exact {
 public:
  explicit Exact(std::span<const uint8_t> bytes) : size_(bytes.size()), copy_(new uint8_t[size_]) {
    std::copy(bytes.begin(), bytes.end(), copy_.get());
  }
  operator std::span<const uint8_t>() const { return {copy_.get(), size_}; }

 private:
  size_t size_;
  std::unique_ptr<uint8_t[]> copy_;
};

// A folder in memory that goes away with the process.
class Folder {
 public:
  Folder() { require(mkdtemp(path.data()) != nullptr); }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::string path = "/dev/shm/tovi-fuzz-XXXXXX";
};

// A file in memory that has a path.
class MemoryFile {
 public:
  MemoryFile() { require(fd_ >= 0); }
  ~MemoryFile() { close(fd_); }
  const std::string& path() const { return path_; }
  void hold(std::string_view text) {
    require(ftruncate(fd_, static_cast<off_t>(text.size())) == 0);
    require(pwrite(fd_, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
  }

 private:
  const int fd_ = memfd_create("fuzz", MFD_CLOEXEC);
  const std::string path_ = "/proc/self/fd/" + std::to_string(fd_);
};

}  // namespace fuzz
