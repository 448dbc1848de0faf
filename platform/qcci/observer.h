// Who looks on: sees what the clients of this process send and receive, and what became of it. The
// trace and the record are two. Costs nothing when nobody does.
#pragma once

#include <span>

#include "mutex.h"
#include "qcci/connection.h"
#include "qcci/packet.h"
#include "qmi_client.h"

namespace qmi {

// A packet between a client of this process and its server.
struct Crossing {
  char direction;  // '>' sent, '<' received
  const qmi_idl_service_object& service;
  std::span<const uint8_t> packet;
  std::span<const uint8_t> request;  // body of the request that it is or answers; empty: none known
  const Message* message;            // null: not whole, or not in the service's table
  const void* c_struct;  // of `message`; null: malformed, or a response nobody waits for any more
};

// Called with the bus lock held, so in one order, by whichever thread sends, reads or waits. What
// is pointed at is the library's, and only for the call. Must not call the library.
class Observer {
 public:
  virtual ~Observer() = default;

  virtual void on_crossing(const Crossing&) REQUIRES(bus_lock) {}

  // An exchange has ended, with what qmi_client_send_msg_sync returns.
  virtual void on_outcome(const qmi_idl_service_object&, const Message& /*request*/,
                          qmi_client_error_type) REQUIRES(bus_lock) {}

  // The network is asked for a service; has listed those that run; one is there; it has gone.
  enum class Presence { Sought, Listed, There, Gone };
  virtual void on_presence(uint32_t /*service*/, Presence) REQUIRES(bus_lock) {}

  // A search for a service's servers, or the opening of a client or notifier, has ended.
  virtual void on_opened(const qmi_idl_service_object&, qmi_client_error_type) REQUIRES(bus_lock) {}
};

// Adds an observer beside those that the environment asks for; it must live as long as the process.
void add_observer(Observer& observer) EXCLUDES(bus_lock);

// All of them.
std::span<Observer* const> observers() REQUIRES(bus_lock);

}  // namespace qmi
