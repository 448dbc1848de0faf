// Ownership of a file descriptor, and the small waits on descriptors that endpoints need.
#pragma once

#include <errno.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <utility>

#include "timing.h"

namespace qmi {

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }

 private:
  int fd_;
};

// An event that polls readable from `set` to `clear`.
class WakeEvent {
 public:
  int descriptor() const { return fd_.get(); }
  // What is lost here would be waited for: it is tried twice.
  void set() {
    const uint64_t one = 1;
    for (int i = 0; i < 2 && write(fd_.get(), &one, sizeof one) < 0 && errno != EAGAIN; ++i) {
    }
  }
  void clear() {
    uint64_t count;
    [[maybe_unused]] const ssize_t n = read(fd_.get(), &count, sizeof count);
  }

 private:
  Descriptor fd_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

// poll(2) until `deadline`; the number of descriptors that are ready.
inline int poll_until(pollfd* fds, nfds_t count, timing::Deadline deadline) {
  if (deadline == timing::kNever) return ppoll(fds, count, nullptr, nullptr);
  const auto left = std::max(deadline - timing::Clock::now(), timing::Clock::duration::zero());
  const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(left).count();
  const timespec limit{static_cast<time_t>(ns / 1'000'000'000),
                       static_cast<long>(ns % 1'000'000'000)};
  return ppoll(fds, count, &limit, nullptr);
}

}  // namespace qmi
