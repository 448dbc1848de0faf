#include "retry.h"

#include <atomic>

#include "descriptor.h"

namespace retry {
namespace {

constexpr std::chrono::milliseconds kPause{2};

std::atomic<int> g_end = -1;

}  // namespace

void end_when_readable(int descriptor) {
  g_end = descriptor;
}

bool until(timing::Deadline deadline, const std::function<bool()>& attempt) {
  while (!attempt()) {
    pollfd end{g_end, POLLIN, 0};
    if (timing::Clock::now() >= deadline) return false;
    if (qmi::poll_until(&end, 1, timing::Clock::now() + kPause) == 1) return false;
  }
  return true;
}

}  // namespace retry
