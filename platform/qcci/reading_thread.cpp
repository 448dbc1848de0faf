#include "qcci/reading_thread.h"

#include <errno.h>
#include <sys/epoll.h>

#include "detached_thread.h"
#include "qcci/connection.h"

namespace qmi {
namespace {

epoll_event event_for(int descriptor, uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.fd = descriptor;
  return event;
}

}  // namespace

ReadingThread::ReadingThread() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {
  epoll_event event = event_for(wake_.descriptor(), EPOLLIN);
  epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, wake_.descriptor(), &event);
}

std::shared_ptr<ReadingThread> ReadingThread::start(std::weak_ptr<Connection> connection) {
  const std::shared_ptr<ReadingThread> thread(new ReadingThread);
  start_detached_thread([thread, connection = std::move(connection)] { thread->run(connection); });
  return thread;
}

void ReadingThread::serve_when_readable(int descriptor) {
  epoll_event event = event_for(descriptor, EPOLLIN | EPOLLONESHOT);
  if (epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, descriptor, &event) != 0 && errno == ENOENT) {
    epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, descriptor, &event);
  }
}

void ReadingThread::leave_alone(int descriptor) {
  epoll_event event = event_for(descriptor, EPOLLONESHOT);
  epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, descriptor, &event);
}

void ReadingThread::forget(int descriptor) {
  epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, descriptor, nullptr);
}

void ReadingThread::call_at(timing::Deadline when) {
  call_at_ = when;
  wake_.set();
}

void ReadingThread::run(const std::weak_ptr<Connection>& connection) {
  pollfd ready{epoll_.get(), POLLIN, 0};
  for (;;) {
    poll_until(&ready, 1, call_at_);
    epoll_event events[2];
    const int count = epoll_wait(epoll_.get(), events, 2, 0);
    for (int i = 0; i < count; ++i) {
      if (events[i].data.fd == wake_.descriptor()) wake_.clear();
    }
    timing::Deadline due = call_at_;
    if (due <= timing::Clock::now()) call_at_.compare_exchange_strong(due, timing::kNever);
    const std::shared_ptr<Connection> served = connection.lock();
    if (served == nullptr) return;
    served->serve();
  }
}

}  // namespace qmi
