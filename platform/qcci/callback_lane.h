// Runs the program's callbacks: those of one lane one at a time and in order, those of different
// lanes independently, always on threads of the library. A thread is started only when a callback
// is due and no idle one is left.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <thread>

#include "mutex.h"

namespace qmi {

class CallbackLane : public std::enable_shared_from_this<CallbackLane> {
 public:
  // Queues a callback. Dropped once the lane is closed, when no thread can be had, or when as many
  // wait already as may, which is said once on standard error.
  void post(std::function<void()> callback);

  // The same whatever waits: for what is told once.
  void post_last(std::function<void()> callback);

  // Waits until every callback that is queued by now has run, but no more than a few seconds for
  // one that does not end: it may itself wait for the caller. Called from a callback, of this lane
  // or another, it does not wait: two callbacks could wait for each other.
  void settle();

  // Lets the queued callbacks finish and takes no more. Called from a callback of this lane it
  // drops the rest instead of waiting for itself.
  void close();

  // Runs the queued callbacks until none is left.
  void run();

 private:
  void queue(std::function<void()> callback, size_t limit);

  Mutex lock_;
  Condition finished_;  // a callback, or all of them
  std::deque<std::function<void()>> queue_ GUARDED_BY(lock_);
  uint64_t posted_ GUARDED_BY(lock_) = 0;  // callbacks so far
  uint64_t ended_ GUARDED_BY(lock_) = 0;
  bool active_ GUARDED_BY(lock_) = false;  // a thread has been asked to run this lane
  bool closed_ GUARDED_BY(lock_) = false;
  std::thread::id runner_ GUARDED_BY(lock_);
};

}  // namespace qmi
