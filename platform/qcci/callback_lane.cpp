#include "qcci/callback_lane.h"

#include "detached_thread.h"
#include "environment.h"

namespace qmi {
namespace {

constexpr std::chrono::seconds kSettleLimit{3};
constexpr size_t kMaxWaiting = 1000;

// Whether this thread runs callbacks.
thread_local bool t_runs_callbacks = false;

// Threads that run lanes. One idle thread is kept; the others end when they have nothing to do.
class Runners {
 public:
  static Runners& instance() {
    static auto* runners = new Runners;  // outlives main: a callback may still run at exit
    return *runners;
  }

  // False when there is no thread to run the lane on.
  bool add(std::shared_ptr<CallbackLane> lane) {
    MutexLock hold(lock_);
    lanes_.push_back(std::move(lane));
    if (lanes_.size() <= idle_) {
      due_.notify_one();
      return true;
    }
    if (start_detached_thread([this] { run(); })) return true;
    lanes_.pop_back();
    return false;
  }

 private:
  void run() {
    t_runs_callbacks = true;
    while (const auto lane = next()) lane->run();
  }

  std::shared_ptr<CallbackLane> next() {
    MutexLock hold(lock_);
    if (lanes_.empty() && idle_ > 0) return nullptr;
    ++idle_;
    while (lanes_.empty()) due_.wait(lock_);
    --idle_;
    auto lane = std::move(lanes_.front());
    lanes_.pop_front();
    return lane;
  }

  Mutex lock_;
  Condition due_;
  std::deque<std::shared_ptr<CallbackLane>> lanes_ GUARDED_BY(lock_);
  size_t idle_ GUARDED_BY(lock_) = 0;
};

}  // namespace

void CallbackLane::post(std::function<void()> callback) {
  queue(std::move(callback), kMaxWaiting);
}

void CallbackLane::post_last(std::function<void()> callback) {
  queue(std::move(callback), SIZE_MAX);
}

void CallbackLane::queue(std::function<void()> callback, size_t limit) {
  MutexLock hold(lock_);
  if (closed_) return;
  if (queue_.size() >= limit) {
    static std::atomic_flag said;
    environment::complain_once(said, "indications are dropped: %zu wait for a callback", limit);
    return;
  }
  queue_.push_back(std::move(callback));
  ++posted_;
  if (active_) return;
  active_ = Runners::instance().add(shared_from_this());
  if (!active_) queue_.clear();
}

void CallbackLane::settle() {
  if (t_runs_callbacks) return;
  MutexLock hold(lock_);
  const uint64_t queued = posted_;
  const timing::Deadline limit = timing::Clock::now() + kSettleLimit;
  while (active_ && ended_ < queued && finished_.wait_until(lock_, limit)) {
  }
}

void CallbackLane::run() {
  MutexLock hold(lock_);
  runner_ = std::this_thread::get_id();
  while (!queue_.empty()) {
    const auto callback = std::move(queue_.front());
    queue_.pop_front();
    lock_.unlock();
    callback();
    lock_.lock();
    ++ended_;
    finished_.notify_all();
  }
  runner_ = {};
  active_ = false;
  finished_.notify_all();
}

void CallbackLane::close() {
  MutexLock hold(lock_);
  closed_ = true;
  if (runner_ == std::this_thread::get_id()) {
    queue_.clear();
    return;
  }
  while (active_) finished_.wait(lock_);
}

}  // namespace qmi
