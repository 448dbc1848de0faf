// The services of a modem, their messages, and what those carry, by the names that the trace has.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "qcci/packet.h"
#include "qmi_message.h"

namespace sim {

// One of the modem's services, or null.
const qmi_idl_service_object* service_named(std::string_view name);
const qmi_idl_service_object* service_of(uint32_t id);

// A request of a service, or null.
const qmi::Message* request_named(const qmi_idl_service_object& service, std::string_view name);

// An operation that a service's messages carry, as the trace names it, or "" for no such word. The
// modem's restart may be called just that.
std::string_view operation_named(const qmi_idl_service_object& service, std::string_view word);

// Whether a service's messages carry answers with a result of their own.
bool has_payloads(uint32_t service);

// What a request asks for.
struct Asked {
  const qmi_idl_service_object& service;
  uint16_t message;
  std::string_view operation = "";  // "" when the message carries none

  Asked(const qmi_idl_service_object& service, std::span<const uint8_t> packet);
};

}  // namespace sim
