// A mutex, its scoped lock and its condition variable, annotated for clang's thread-safety
// analysis: data says which lock guards it, functions say which lock they need.
#pragma once

#include <condition_variable>
#include <mutex>

#include "timing.h"

#if defined(__clang__)
#define TS_ATTRIBUTE(x) __attribute__((x))
#else
#define TS_ATTRIBUTE(x)
#endif
#define CAPABILITY(x) TS_ATTRIBUTE(capability(x))
#define SCOPED_CAPABILITY TS_ATTRIBUTE(scoped_lockable)
#define GUARDED_BY(x) TS_ATTRIBUTE(guarded_by(x))
#define REQUIRES(...) TS_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) TS_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) TS_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS TS_ATTRIBUTE(no_thread_safety_analysis)
#define RELEASE(...) TS_ATTRIBUTE(release_capability(__VA_ARGS__))

class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

 private:
  friend class Condition;
  std::mutex mutex_;
};

class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

// Waits with the mutex held by the caller, who holds it again on return.
class Condition {
 public:
  void notify_one() { condition_.notify_one(); }
  void notify_all() { condition_.notify_all(); }

  void wait(Mutex& mutex) REQUIRES(mutex) { wait_until(mutex, timing::kNever); }

  // False when the deadline has passed.
  bool wait_until(Mutex& mutex, timing::Deadline deadline) REQUIRES(mutex) {
    std::unique_lock<std::mutex> held(mutex.mutex_, std::adopt_lock);
    bool in_time = true;
    if (deadline == timing::kNever) {
      condition_.wait(held);
    } else {
      in_time = condition_.wait_until(held, deadline) == std::cv_status::no_timeout;
    }
    held.release();
    return in_time;
  }

 private:
  std::condition_variable condition_;
};
