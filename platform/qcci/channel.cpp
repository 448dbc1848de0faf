#include "qcci/channel.h"

#include <atomic>

#include "qcci/reading_thread.h"

namespace qmi {
namespace {

uint64_t next_id() {
  static std::atomic<uint64_t> id = 0;
  return ++id;
}

}  // namespace

Channel::Channel() : id_(next_id()) {}

Channel::~Channel() {
  MutexLock hold(lock_);
  drop_endpoint();
}

void Channel::drop_endpoint() {
  if (endpoint_ == nullptr) return;
  if (known_) ReadingThread::instance().forget(id_, endpoint_->descriptor());
  known_ = served_ = false;
  endpoint_.reset();
}

void Channel::take(Endpoint::Received received, Address source, std::span<const uint8_t> packet) {
  if (received == Endpoint::Received::Packet) {
    on_packet(source, packet);
  } else if (received == Endpoint::Received::Closed) {
    drop_endpoint();
    on_closed();
  }
  changed_.notify_all();
}

void Channel::prepare_to_wait() {
  if (served_) ReadingThread::instance().leave_alone(id_, endpoint_->descriptor());
  served_ = false;
}

bool Channel::read_one(timing::Deadline deadline) {
  if (reading_) {
    ++sleepers_;
    const bool in_time = changed_.wait_until(lock_, deadline);
    --sleepers_;
    return in_time;
  }
  prepare_to_wait();
  reading_ = true;
  Endpoint* endpoint = endpoint_.get();
  Address source;
  std::span<const uint8_t> packet;
  lock_.unlock();
  const Endpoint::Received received = endpoint->receive(source, packet, deadline);
  lock_.lock();
  reading_ = false;
  take(received, source, packet);
  return received != Endpoint::Received::TimedOut;
}

void Channel::hand_over() {
  if (!can_read() || reading_ || served_ || sleepers_ > 0) return;
  ReadingThread& thread = ReadingThread::instance();
  if (known_) {
    thread.serve_when_readable(id_, endpoint_->descriptor());
  } else {
    thread.add(id_, endpoint_->descriptor(), shared_from_this());
  }
  known_ = served_ = true;
}

void Channel::drain() {
  for (int taken = 0; can_read() && !reading_ && taken < kFlood; ++taken) {
    Address source;
    std::span<const uint8_t> packet;
    const auto received = endpoint_->receive(source, packet, timing::kPast);
    if (received == Endpoint::Received::TimedOut) return;
    take(received, source, packet);
  }
}

void Channel::serve() {
  MutexLock hold(lock_);
  if (reading_) return;
  served_ = false;
  drain();
  hand_over();
}

void Channel::interrupt() {
  if (reading_) endpoint_->interrupt();
  changed_.notify_all();
}

void Channel::close() {
  closing_ = true;
  interrupt();
  while (reading_) changed_.wait(lock_);
  drop_endpoint();
  closing_ = false;
}

}  // namespace qmi
