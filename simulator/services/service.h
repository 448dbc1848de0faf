// One QMI service of the simulated modem, seen from its clients' side of the wire.
#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "exchange.h"
#include "faults.h"
#include "qcci/packet.h"
#include "qmi_message.h"

namespace sim {

// Published QMI errors.
inline constexpr uint32_t kQmiMalformedMessage = 0x01;
inline constexpr uint32_t kQmiNoMemory = 0x02;
inline constexpr uint32_t kQmiInternal = 0x03;
inline constexpr uint32_t kQmiNotProvisioned = 0x10;
inline constexpr uint32_t kQmiNoEffect = 0x1A;
inline constexpr uint32_t kQmiInvalidId = 0x29;
inline constexpr uint32_t kQmiInvalidArgument = 0x30;
inline constexpr uint32_t kQmiNoEntry = 0x32;
inline constexpr uint32_t kQmiDeviceNotReady = 0x34;
inline constexpr uint32_t kQmiNotSupported = 0x5E;
inline constexpr uint32_t kQmiNoSim = 0x66;

class Service;

// What a request causes after its response: indications to its client, a restart of the modem.
class Aftermath {
 public:
  explicit Aftermath(Service& service) : service_(service) {}

  // An indication, from the C structure of indication `message`, `delay_ms` after the request.
  void indicate(uint16_t message, const void* c_struct, uint32_t delay_ms = 0);

  // The modem goes down `after_ms` after the request.
  void take_down(uint32_t after_ms, std::optional<uint32_t> back_after_ms) {
    outage_ = {true, after_ms, back_after_ms};
  }

  const std::vector<Delivery>& indications() const { return indications_; }
  const std::optional<Outage>& outage() const { return outage_; }

 private:
  Service& service_;
  std::vector<Delivery> indications_;
  std::optional<Outage> outage_;
};

class Service {
 public:
  virtual ~Service() = default;

  virtual const qmi_idl_service_object& description() const = 0;

  // Carries out one request: `request` is its C structure, `response` the cleared C structure of
  // the response with the same id. 0, or the published QMI error that the request is refused with.
  virtual uint32_t answer(qmi::Address client, uint16_t message, const void* request,
                          void* response, Aftermath& aftermath) = 0;

  // The packet that refuses a request: the standard result with `error`.
  virtual std::vector<uint8_t> refusal(const qmi::Header& request, uint32_t error) const;

  // The same for one that passes the service and is refused behind it, with the modem's own result
  // in what the response carries.
  virtual std::vector<uint8_t> refusal_inside(std::span<const uint8_t> request,
                                              int32_t result) const;

  // Drops whatever was kept for a client that has gone, or for all of them.
  virtual void client_gone(qmi::Address client) = 0;
  virtual void all_clients_gone() = 0;

  // The transaction of the next indication: 1, 2, 3, as phones number them.
  uint16_t number_indication();

 private:
  uint16_t indications_ = 0;
};

// Carries out a client's request, as far as faults let it. What the service does not know, or
// cannot decode, is refused with the published QMI error; what is no request comes to nothing.
Exchange carry_out(Service& service, qmi::Address client, std::span<const uint8_t> packet,
                   Faults& faults, std::minstd_rand& random);

// The packet of a message: its header, and its C structure encoded as phones do it, the mandatory
// TLVs first and the optional ones in descending order, with one among them that nobody knows.
std::vector<uint8_t> make_packet(qmi::Kind kind, uint16_t transaction, uint16_t id,
                                 const qmi::Message& message, const void* c_struct);

}  // namespace sim
