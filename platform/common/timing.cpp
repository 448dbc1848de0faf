#include "timing.h"

#include <sys/ioctl.h>

#include <algorithm>
#include <thread>
#include <utility>

#include "descriptor.h"
#include "environment.h"

namespace timing {
namespace {

std::chrono::nanoseconds multiply(double ms, double factor) {
  constexpr double kLongest = 100.0 * 365 * 24 * 3600 * 1e9;  // 100 years
  const double ns = std::min(ms * 1e6 * factor, kLongest);
  return std::chrono::nanoseconds(static_cast<int64_t>(ns));
}

// Bytes that a read would find.
int readable(int fd) {
  int bytes = 0;
  return ioctl(fd, FIONREAD, &bytes) == 0 ? bytes : 0;
}

}  // namespace

std::chrono::nanoseconds scaled(uint32_t ms) {
  return multiply(ms, environment::time_scale());
}

std::chrono::nanoseconds scaled_s(uint64_t s) {
  return multiply(static_cast<double>(s) * 1000, environment::time_scale());
}

Deadline peer_deadline(uint32_t ms) {
  const auto least = multiply(std::min(ms, 50U), 1.0);
  return Clock::now() + std::max(scaled(ms), least);
}

void wait_quiet(int fd, uint32_t quiet_ms, uint32_t ms) {
  const Deadline deadline = peer_deadline(ms);
  pollfd watched{fd, POLLIN, 0};
  if (qmi::poll_until(&watched, 1, deadline) != 1) return;
  const auto quiet = std::max(scaled(quiet_ms), multiply(quiet_ms, 1.0));
  int before;
  int now = readable(fd);
  do {
    std::this_thread::sleep_until(std::min(Clock::now() + quiet, deadline));
    before = std::exchange(now, readable(fd));
  } while (now > before && Clock::now() < deadline);
}

void sleep_ms(uint32_t ms) {
  std::this_thread::sleep_for(scaled(ms));
}

void sleep_s(uint64_t s) {
  std::this_thread::sleep_for(scaled_s(s));
}

}  // namespace timing
