// A channel is an endpoint and the rule for who reads it. A thread that waits for something on the
// channel reads it itself, so that an answer costs no change of threads; a second waiter sleeps
// and takes over when the first has what it came for; while nobody waits, the library's reading
// thread serves what comes.
#pragma once

#include <memory>
#include <span>

#include "mutex.h"
#include "qcci/endpoint.h"

namespace qmi {

class Channel : public std::enable_shared_from_this<Channel> {
 public:
  virtual ~Channel();

  // Takes the packets that are there. Called by the reading thread.
  void serve() EXCLUDES(lock_);

 protected:
  Channel();

  // A packet has arrived. Called by whichever thread reads.
  virtual void on_packet(Address source, std::span<const uint8_t> packet) REQUIRES(lock_) = 0;

  // The other end is gone for good; the endpoint is closed already.
  virtual void on_closed() REQUIRES(lock_) = 0;

  // Takes an endpoint. A `wait` or `hand_over` must follow.
  void open(std::unique_ptr<Endpoint> endpoint) REQUIRES(lock_) { endpoint_ = std::move(endpoint); }
  bool is_open() const REQUIRES(lock_) { return endpoint_ != nullptr; }

  // Closes the endpoint, once no thread is reading it any more. Waiters return.
  void close() REQUIRES(lock_);

  // Ends all waiting on the channel: it has nothing more to tell.
  void interrupt() REQUIRES(lock_);

  // Keeps the reading thread away from what comes next, until a `wait` or `hand_over`. Whoever
  // sends a request does this first, or the answer may wake a thread that has no use for it.
  void prepare_to_wait() REQUIRES(lock_);

  // Leaves the channel to the reading thread, unless somebody waits on it.
  void hand_over() REQUIRES(lock_);

  // Takes the packets that are there, if nobody else is about to.
  void drain() REQUIRES(lock_);

  // Waits until `done()` (called with the lock held) is true, reading packets meanwhile. Ends
  // early at the deadline or when the channel is closed. The final value of `done()`.
  template <typename Done>
  bool wait(timing::Deadline deadline, Done done) REQUIRES(lock_) {
    for (int taken = 0; !done() && can_read() && read_one(deadline); ++taken) {
      if (taken >= kFlood && timing::Clock::now() >= deadline) break;
    }
    hand_over();
    return done();
  }

  // After so many packets a thread asks whether it was here for them.
  static constexpr int kFlood = 1000;

  Mutex lock_;
  std::unique_ptr<Endpoint> endpoint_ GUARDED_BY(lock_);
  Condition changed_;  // a packet was handled, or the place of the reader is free

 private:
  bool can_read() const REQUIRES(lock_) { return endpoint_ != nullptr && !closing_; }
  // Reads one packet, or sleeps while another thread reads. False at the deadline.
  bool read_one(timing::Deadline deadline) REQUIRES(lock_);
  void drop_endpoint() REQUIRES(lock_);
  void take(Endpoint::Received received, Address source, std::span<const uint8_t> packet)
      REQUIRES(lock_);

  const uint64_t id_;                       // for the reading thread
  bool known_ GUARDED_BY(lock_) = false;    // to the reading thread
  bool reading_ GUARDED_BY(lock_) = false;  // a thread is inside endpoint_->receive
  bool served_ GUARDED_BY(lock_) = false;   // the reading thread watches the descriptor
  bool closing_ GUARDED_BY(lock_) = false;
  int sleepers_ GUARDED_BY(lock_) = 0;  // waiters that are not the reader
};

}  // namespace qmi
