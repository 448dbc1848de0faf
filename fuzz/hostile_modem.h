// A modem inside the process that says what the input tells it to. The product's clients reach it
// as they reach the simulated one; turns.h has their threads and their time.
//
// The rest of the input is a list of acts. Whenever a client sends something, the next of them are
// carried out, up to and with one whose highest bit is set.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <vector>

#include "fuzz.h"
#include "mutex.h"
#include "qcci/endpoint.h"

namespace fuzz {

class HostileModem {
 public:
  static HostileModem& instance();

  // It is there, and says this.
  void begin(Input acts) EXCLUDES(lock_);

  // It is gone, for all of its clients.
  void end() EXCLUDES(lock_);

  // Carries out acts though nobody has asked.
  void act() EXCLUDES(lock_);

 private:
  friend qmi::Opened(qmi::open_loopback_endpoint)();
  class End;
  struct Later {
    timing::Deadline due;
    std::weak_ptr<End> to;
    qmi::Address source;
    std::vector<uint8_t> packet;
    bool closes;
  };

  qmi::Opened open() EXCLUDES(lock_);
  void asked(const std::shared_ptr<End>& by, qmi::Address to, std::span<const uint8_t> packet)
      EXCLUDES(lock_);
  void act_locked() REQUIRES(lock_);
  void answer(std::span<const uint8_t> bytes) REQUIRES(lock_);
  void say(qmi::Address source, std::vector<uint8_t> packet) REQUIRES(lock_);
  void say_list(uint32_t service) REQUIRES(lock_);
  void keep_time() EXCLUDES(lock_);
  void deliver_due() REQUIRES(lock_);

  Mutex lock_;
  Condition changed_;
  bool there_ GUARDED_BY(lock_) = false;
  bool has_clock_ GUARDED_BY(lock_) = false;
  Input acts_ GUARDED_BY(lock_){nullptr, 0};
  uint32_t delay_ms_ GUARDED_BY(lock_) = 0;
  std::vector<std::weak_ptr<End>> ends_ GUARDED_BY(lock_);
  std::vector<Later> later_ GUARDED_BY(lock_);
  // Who asked last, what, and whom.
  std::weak_ptr<End> by_ GUARDED_BY(lock_);
  std::vector<uint8_t> request_ GUARDED_BY(lock_);
  qmi::Address to_ GUARDED_BY(lock_);
};

// A body of the message that is well formed: the fields have these bytes, as far as they go.
std::vector<uint8_t> make_body(const qmi::Message& message, std::span<const uint8_t> bytes);

}  // namespace fuzz
