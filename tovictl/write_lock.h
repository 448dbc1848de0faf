// One tovictl at a time changes a modem. The lock is a name of the machine's, not a file: it is
// gone with its holder, however that ends.
#pragma once

#include "descriptor.h"
#include "verbs.h"

namespace ctl {

class WriteLock {
 public:
  // Takes the lock of the modem that TOVI_MODEM names; with `wait` as soon as it is free. Ok or
  // Busy.
  Verdict take(bool wait);

 private:
  qmi::Descriptor name_;
};

// What every verb that changes something begins with: Ok, NeedsYes or Busy. `question` is asked on
// a terminal where --yes was not said; null for what needs no yes.
Verdict may_change(const Settings& settings, const char* question, WriteLock& lock);

}  // namespace ctl
