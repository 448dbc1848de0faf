// The library's reading thread: it waits on the descriptors of all channels that nobody else is
// reading and lets them take their packets. It starts when a channel is handed to it or a call
// is planned, and lives as long as the process; it runs no callback of the program.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "mutex.h"
#include "qcci/descriptor.h"

namespace qmi {

class Channel;

class ReadingThread {
 public:
  // The one of the process; never destroyed, so that it may still run while the process exits.
  static ReadingThread& instance();

  // Serves `channel` once, as soon as `descriptor` polls readable.
  void add(uint64_t id, int descriptor, const std::shared_ptr<Channel>& channel);

  // The same once more, for a descriptor that was added before.
  void serve_when_readable(uint64_t id, int descriptor);

  // Takes the last request for a descriptor back. It may just be too late.
  void leave_alone(uint64_t id, int descriptor);

  // Ends all watching of a descriptor that is about to be closed.
  void forget(uint64_t id, int descriptor);

  // Calls `function` on this thread at `when`.
  void call_at(timing::Deadline when, std::function<void()> function);

 private:
  ReadingThread();
  void run();
  void run_due_timers();
  timing::Deadline next_timer();
  void start() REQUIRES(lock_);

  struct Timer {
    timing::Deadline when;
    std::function<void()> function;
  };

  const Descriptor epoll_;
  WakeEvent wake_;

  Mutex lock_;  // a leaf: nothing else is locked under it
  bool started_ GUARDED_BY(lock_) = false;
  std::map<uint64_t, std::weak_ptr<Channel>> channels_ GUARDED_BY(lock_);
  std::vector<Timer> timers_ GUARDED_BY(lock_);
};

}  // namespace qmi
