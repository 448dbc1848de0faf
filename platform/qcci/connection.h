// A connection to the bus: one endpoint, the rule for who reads it, and whom its packets are for.
//
// A process has one connection for everything, and one more for each client that cannot share it: a
// server knows its clients by their port, so a port serves at most one client of a server, ever.
//
// A thread that waits for something on a connection reads it itself, so that an answer costs no
// change of threads, and hands what it reads to whoever it is for; a second waiter sleeps and takes
// over when the first has what it came for; while nobody waits, the connection's reading thread
// serves what comes.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "mutex.h"
#include "qcci/endpoint.h"
#include "qcci/reading_thread.h"
#include "qmi_client.h"

namespace qmi {

// The one lock of the library, for its connections, its directory, its clients and notifiers. It is
// not held while a thread waits for a packet, sends a request or runs a callback; only to be let
// in, and to ask the name service, may take its limit of a second with the lock held. Under it come
// only the leaves: a lane's, and those of the reading threads, the callback threads, the signals
// and the handles. The program's own locks are taken before it.
extern Mutex bus_lock;

// Whom packets are for.
class Receiver {
 public:
  virtual ~Receiver() = default;

  // A packet has come from the receiver's server. Called by whichever thread reads.
  virtual void on_packet(std::span<const uint8_t> packet) REQUIRES(bus_lock) = 0;

  // The connection is lost for good; it is closed already.
  virtual void on_closed() REQUIRES(bus_lock) = 0;

  // The time of `call_at` has come.
  virtual void on_time() REQUIRES(bus_lock) {}
};

class Connection final : public std::enable_shared_from_this<Connection> {
 public:
  // `control` hears the name service; null: what comes from it is dropped.
  explicit Connection(Receiver* control) : control_(control) {}
  ~Connection();

  // Opens the endpoint. 0, or the error of open_endpoint.
  qmi_client_error_type open(timing::Deadline deadline) REQUIRES(bus_lock);
  bool is_open() const REQUIRES(bus_lock) { return endpoint_ != nullptr; }

  // Closes the endpoint; whoever waits on it returns. Nobody is told.
  void close() REQUIRES(bus_lock);

  // Lets whoever waits have what is there already, and then see that the connection is lost.
  void interrupt() REQUIRES(bus_lock);

  // Makes `client` the receiver of what comes from `server`. False when this connection's port has
  // served a client of that server before.
  bool claim(Address server, Receiver& client) REQUIRES(bus_lock);

  // What still comes for this client is dropped.
  void forget(const Receiver& client) REQUIRES(bus_lock);

  // Transactions are the connection's, so that a late answer meets nobody.
  uint16_t next_transaction() REQUIRES(bus_lock);

  // 0, or an errno value. The lock is free meanwhile. Keeps the reading thread away from what comes
  // next, or the answer might wake a thread that has no use for it: a `wait` or `hand_over` must
  // follow.
  int send(Address to, std::span<const uint8_t> packet, timing::Deadline deadline)
      REQUIRES(bus_lock);

  // The same, but the lock is held: the name service answers in the order in which it is asked.
  int ask_name_service(std::span<const uint8_t> packet, timing::Deadline deadline)
      REQUIRES(bus_lock);

  // Takes the packets that are there, if nobody else is about to.
  void drain() REQUIRES(bus_lock);

  // Leaves the connection to the reading thread, unless somebody waits on it.
  void hand_over() REQUIRES(bus_lock);

  // Has `control` called at `when`, on the reading thread.
  void call_at(timing::Deadline when) REQUIRES(bus_lock);

  // Lets waiters look again at what they wait for, but for one that is inside `receive`.
  void changed() REQUIRES(bus_lock) { changed_.notify_all(); }

  // Waits until `done()` (called with the lock held) is true, reading packets meanwhile. Ends
  // early at the deadline or when the connection is closed. The final value of `done()`.
  template <typename Done>
  bool wait(timing::Deadline deadline, Done done) REQUIRES(bus_lock) {
    for (int taken = 0; !done() && is_open() && read_one(deadline); ++taken) {
      if (taken >= kFlood && timing::Clock::now() >= deadline) break;
    }
    hand_over();
    return done();
  }

  // The same without an endpoint to read.
  void sleep_until(timing::Deadline deadline) REQUIRES(bus_lock) {
    changed_.wait_until(bus_lock, deadline);
  }

  // Takes what is there. Called by the reading thread.
  void serve() EXCLUDES(bus_lock);

 private:
  // After so many packets a thread asks whether it was here for them.
  static constexpr int kFlood = 1000;

  struct Client {
    Address server;
    Receiver* receiver;  // null: released
  };

  // Reads one packet, or sleeps while another thread reads. False at the deadline.
  bool read_one(timing::Deadline deadline) REQUIRES(bus_lock);
  void take(Endpoint::Received received, Address source, std::span<const uint8_t> packet)
      REQUIRES(bus_lock);
  void keep_thread_away() REQUIRES(bus_lock);
  ReadingThread& thread() REQUIRES(bus_lock);

  Receiver* const control_;
  std::shared_ptr<Endpoint> endpoint_ GUARDED_BY(bus_lock);
  std::vector<Client> clients_ GUARDED_BY(bus_lock);  // all that this port has served
  uint16_t last_transaction_ GUARDED_BY(bus_lock) = 0;

  Condition changed_;  // a packet was handled, or the place of the reader is free
  bool reading_ GUARDED_BY(bus_lock) = false;  // a thread is inside `receive`
  bool served_ GUARDED_BY(bus_lock) = false;   // the reading thread watches the endpoint
  int sleepers_ GUARDED_BY(bus_lock) = 0;      // waiters that are not the reader
  timing::Deadline call_at_ GUARDED_BY(bus_lock) = timing::kNever;
  std::shared_ptr<ReadingThread> thread_ GUARDED_BY(bus_lock);
};

}  // namespace qmi
