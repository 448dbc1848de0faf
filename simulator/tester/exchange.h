// What comes of a request, and who may have a say in it besides the modem: a witness, who is told
// of all that it is asked and does, and a script, which answers in its place.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "faults.h"
#include "qcci/packet.h"

namespace sim {

// A packet on its way to a client.
struct Delivery {
  uint32_t delay_ms;
  std::vector<uint8_t> packet;
};

// Services leave, and come back after a while or not at all.
struct Outage {
  bool of_all_services;
  uint32_t after_ms;
  std::optional<uint32_t> back_after_ms;  // counted from their leaving
};

// A service comes or goes.
struct Change {
  uint32_t service;
  bool there;
  uint32_t after_ms;
};

// What comes of one packet of a client.
struct Exchange {
  std::vector<Delivery> deliveries = {};  // to the client, in this order
  std::optional<Outage> outage = {};
  const Fault* fault = nullptr;  // that the request met
  std::vector<Change> changes = {};
};

// Called by any thread.
class Witness {
 public:
  virtual ~Witness() = default;

  virtual void saw(const qmi_idl_service_object& service, qmi::Address client,
                   std::span<const uint8_t> request, const Exchange& exchange) = 0;
  virtual void saw_diag(std::span<const uint8_t> command, std::string_view answer) = 0;
  virtual void saw_at(std::string_view line, std::string_view answer) = 0;
};

// Called with the network's lock held.
class Script {
 public:
  virtual ~Script() = default;

  // What comes of a request. Nothing for one that it does not know, which is refused.
  virtual std::optional<Exchange> answer(const qmi_idl_service_object& service,
                                         std::span<const uint8_t> request) = 0;

  // What comes of a client's looking for a service.
  virtual std::vector<Change> sought(uint32_t service) = 0;
};

}  // namespace sim
