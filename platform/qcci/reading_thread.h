// The thread that serves a connection while nobody waits on it. It watches the connection's
// descriptor only when told to, and runs no callback of the program. It is started when it is first
// needed and ends soon after its connection.
#pragma once

#include <atomic>
#include <memory>

#include "descriptor.h"
#include "timing.h"

namespace qmi {

class Connection;

class ReadingThread {
 public:
  static std::shared_ptr<ReadingThread> start(std::weak_ptr<Connection> connection);

  // Serves the connection once, as soon as `descriptor` polls readable.
  void serve_when_readable(int descriptor);

  // Takes that back. It may just be too late.
  void leave_alone(int descriptor);

  // Ends all watching of a descriptor that is about to be closed.
  void forget(int descriptor);

  // Serves the connection at `when`.
  void call_at(timing::Deadline when);

  // Lets the thread see that its connection is gone.
  void wake() { wake_.set(); }

 private:
  ReadingThread();
  void run(const std::weak_ptr<Connection>& connection);

  const Descriptor epoll_;
  WakeEvent wake_;
  std::atomic<timing::Deadline> call_at_{timing::kNever};
};

}  // namespace qmi
