#include "velmor_timer.h"

#include <set>

#include "detached_thread.h"
#include "mutex.h"

namespace {

// Every running timer has a thread that waits for it: there are never more than a few.
class Timers {
 public:
  uint32_t start(velmor_timer_cb callback, uint64_t seconds) EXCLUDES(lock_) {
    const timing::Deadline due = timing::Clock::now() + timing::scaled_s(seconds);
    MutexLock hold(lock_);
    do {
      ++last_id_;
    } while (last_id_ == 0 || running_.contains(last_id_));
    const uint32_t id = last_id_;
    if (!start_detached_thread([=, this] { wait(callback, due, id); })) return 0;
    running_.insert(last_id_);
    return last_id_;
  }

  bool stop(uint32_t id) EXCLUDES(lock_) {
    MutexLock hold(lock_);
    if (running_.erase(id) == 0) return false;
    stopped_.notify_all();
    return true;
  }

 private:
  void wait(velmor_timer_cb callback, timing::Deadline due, uint32_t id) EXCLUDES(lock_) {
    {
      MutexLock hold(lock_);
      while (running_.contains(id) && timing::Clock::now() < due) stopped_.wait_until(lock_, due);
      if (running_.erase(id) == 0) return;
    }
    callback(&id);
  }

  Mutex lock_;
  Condition stopped_;
  std::set<uint32_t> running_ GUARDED_BY(lock_);
  uint32_t last_id_ GUARDED_BY(lock_) = 0;
};

Timers& timers() {
  static auto* all = new Timers;  // their threads may outlive main
  return *all;
}

}  // namespace

uint32_t velmor_timer_start(velmor_timer_cb callback, uint64_t seconds) {
  return timers().start(callback, seconds);
}

int velmor_timer_stop(uint32_t timer_id) {
  return timers().stop(timer_id) ? 0 : -1;
}
