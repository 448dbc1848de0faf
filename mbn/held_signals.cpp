#include "held_signals.h"

#include <atomic>

namespace {

// Bit `n` for signal `n`.
std::atomic<unsigned int> g_held;
static_assert(decltype(g_held)::is_always_lock_free);

void note(int signal) {
  g_held |= 1U << signal;
}

}  // namespace

// A handler and no mask: a mask is a thread's own, and the threads of the libraries would still
// take the signal.
HeldSignals::HeldSignals() {
  g_held = 0;
  for (size_t i = 0; i < kCount; ++i) {
    struct sigaction hold = {};
    hold.sa_handler = note;
    hold.sa_flags = SA_RESTART;
    sigaction(kSignals[i], nullptr, &usual_[i]);
    if (usual_[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &hold, nullptr);
  }
}

HeldSignals::~HeldSignals() {
  for (size_t i = 0; i < kCount; ++i) sigaction(kSignals[i], &usual_[i], nullptr);
  for (const int signal : kSignals) {
    if ((g_held & 1U << signal) != 0) raise(signal);
  }
}
