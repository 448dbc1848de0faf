#include "timing.h"

#include <algorithm>
#include <thread>

#include "environment.h"
#include "qcci/descriptor.h"

namespace timing {
namespace {

std::chrono::nanoseconds multiply(double ms, double factor) {
  constexpr double kLongest = 100.0 * 365 * 24 * 3600 * 1e9;  // 100 years
  const double ns = std::min(ms * 1e6 * factor, kLongest);
  return std::chrono::nanoseconds(static_cast<int64_t>(ns));
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

bool wait_readable(int fd, uint32_t ms) {
  pollfd watched{fd, POLLIN, 0};
  return qmi::poll_until(&watched, 1, peer_deadline(ms)) == 1;
}

void sleep_ms(uint32_t ms) {
  std::this_thread::sleep_for(scaled(ms));
}

void sleep_s(uint64_t s) {
  std::this_thread::sleep_for(scaled_s(s));
}

}  // namespace timing
