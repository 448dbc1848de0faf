#include "qcci/reading_thread.h"

#include <sys/epoll.h>

#include <algorithm>

#include "detached_thread.h"
#include "qcci/channel.h"

namespace qmi {
namespace {

constexpr uint64_t kWakeId = 0;

epoll_event event_for(uint64_t id, uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.u64 = id;
  return event;
}

}  // namespace

ReadingThread& ReadingThread::instance() {
  static auto* thread = new ReadingThread;
  return *thread;
}

ReadingThread::ReadingThread() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  epoll_event event = event_for(kWakeId, EPOLLIN);
  epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, wake_.descriptor(), &event);
}

void ReadingThread::start() {
  if (started_) return;
  started_ = start_detached_thread([this] { run(); });
}

void ReadingThread::add(uint64_t id, int descriptor, const std::shared_ptr<Channel>& channel) {
  epoll_event event = event_for(id, EPOLLIN | EPOLLONESHOT);
  MutexLock hold(lock_);
  channels_[id] = channel;
  epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event);
  start();
}

void ReadingThread::serve_when_readable(uint64_t id, int descriptor) {
  epoll_event event = event_for(id, EPOLLIN | EPOLLONESHOT);
  epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, descriptor, &event);
}

void ReadingThread::leave_alone(uint64_t id, int descriptor) {
  epoll_event event = event_for(id, EPOLLONESHOT);
  epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, descriptor, &event);
}

void ReadingThread::forget(uint64_t id, int descriptor) {
  epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
  MutexLock hold(lock_);
  channels_.erase(id);
}

void ReadingThread::call_at(timing::Deadline when, std::function<void()> function) {
  MutexLock hold(lock_);
  timers_.push_back({when, std::move(function)});
  start();
  wake_.set();
}

timing::Deadline ReadingThread::next_timer() {
  MutexLock hold(lock_);
  timing::Deadline next = timing::kNever;
  for (const Timer& timer : timers_) next = std::min(next, timer.when);
  return next;
}

void ReadingThread::run_due_timers() {
  std::vector<Timer> due;
  {
    MutexLock hold(lock_);
    const auto now = timing::Clock::now();
    const auto later = std::partition(timers_.begin(), timers_.end(),
                                      [now](const Timer& timer) { return timer.when <= now; });
    std::move(timers_.begin(), later, std::back_inserter(due));
    timers_.erase(timers_.begin(), later);
  }
  for (const Timer& timer : due) timer.function();
}

void ReadingThread::run() {
  pollfd ready{epoll_.get(), POLLIN, 0};
  for (;;) {
    poll_until(&ready, 1, next_timer());
    epoll_event events[16];
    const int count = epoll_wait(epoll_.get(), events, 16, 0);
    for (int i = 0; i < count; ++i) {
      const uint64_t id = events[i].data.u64;
      if (id == kWakeId) {
        wake_.clear();
        continue;
      }
      std::shared_ptr<Channel> channel;
      {
        MutexLock hold(lock_);
        const auto found = channels_.find(id);
        if (found != channels_.end()) channel = found->second.lock();
      }
      if (channel) channel->serve();
    }
    run_due_timers();
  }
}

}  // namespace qmi
