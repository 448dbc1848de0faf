// Keeps a user who gives up from stopping the program halfway through what must not stay half done.
#pragma once

#include <signal.h>

#include <cstddef>

// While one exists, SIGINT, SIGHUP and SIGTERM have no effect, on whatever thread they come; at its
// end those that came have their usual one. What was ignored stays ignored. One at a time.
class HeldSignals {
 public:
  HeldSignals();
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

 private:
  static constexpr int kSignals[] = {SIGINT, SIGHUP, SIGTERM};
  static constexpr size_t kCount = sizeof kSignals / sizeof kSignals[0];

  struct sigaction usual_[kCount];
};
