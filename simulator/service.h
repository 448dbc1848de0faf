// One QMI service of the simulated modem, seen from its clients' side of the wire.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "qcci/packet.h"
#include "qmi_message.h"

namespace sim {

// Published QMI errors.
enum : uint32_t {
  kQmiMalformedMessage = 0x01,
  kQmiNotSupported = 0x5E,
};

class Service {
 public:
  virtual ~Service() = default;

  virtual const qmi_idl_service_object& description() const = 0;

  // Carries out one request: `request` is its C structure, `response` the cleared C structure of
  // the response with the same id. 0, or the published QMI error that the request is refused with.
  virtual uint32_t answer(qmi::Address client, uint16_t message, const void* request,
                          void* response) = 0;

  // Drops whatever was kept for a client that has gone.
  virtual void client_gone(qmi::Address client) = 0;
};

// The packet that answers a client's packet; empty when there is nothing to answer. What the
// service does not know, or cannot decode, is refused with the published QMI error.
std::vector<uint8_t> answer_packet(Service& service, qmi::Address client,
                                   std::span<const uint8_t> packet);

}  // namespace sim
