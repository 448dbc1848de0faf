// An endpoint is one port on the modem's packet network, whatever that network is made of.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "qcci/packet.h"
#include "timing.h"

namespace qmi {

class Endpoint {
 public:
  enum class Received {
    Packet,
    TimedOut,
    Closed,  // the other end is gone for good, or `interrupt` was called
  };

  virtual ~Endpoint() = default;

  // Sends one packet, waiting for room until `deadline`. 0 or an errno value.
  virtual int send(Address to, std::span<const uint8_t> packet, timing::Deadline deadline) = 0;

  // Receives one packet, whole. `packet` is the endpoint's, valid until the next call; only one
  // thread may be in here at a time. A deadline in the past takes only what is there already. What
  // is no packet counts as an empty one from kNowhere: whoever waits is to see a flood of it, too.
  virtual Received receive(Address& source, std::span<const uint8_t>& packet,
                           timing::Deadline deadline) = 0;

  // Ends all waiting on this endpoint: the thread inside `receive` returns, and so does any later
  // one, if only after the packets that are there already.
  virtual void interrupt() = 0;

  // A descriptor that polls readable while a packet may be there.
  virtual int descriptor() const = 0;

  // Where this endpoint's name service listens.
  virtual Address name_service() const = 0;
};

struct Opened {
  std::unique_ptr<Endpoint> endpoint;  // null on failure
  int error = 0;                       // then QMI_SERVICE_ERR: nobody there (now);
                                       // QMI_PORT_NOT_OPEN_ERR: there never will be
};

// Opens an endpoint of the kind TOVI_MODEM names, waiting until `deadline` where somebody has to
// let it in. Why it cannot be opened is said once on standard error.
Opened open_endpoint(timing::Deadline deadline);

Opened open_unix_endpoint(const std::string& path, timing::Deadline deadline);
Opened open_qrtr_endpoint();

// A modem's character device; `proxied`: through libqmi's proxy, which has it.
Opened open_qmux_endpoint(const std::string& path, bool proxied, timing::Deadline deadline);

// The modem inside this process. Defined by the simulator; a device build has a stub that fails.
Opened open_loopback_endpoint();

}  // namespace qmi
