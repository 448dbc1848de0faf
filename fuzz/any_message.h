// A message of any service with any body.
#pragma once

#include <optional>
#include <span>

#include "all_services.h"

namespace fuzz {

struct AnyMessage {
  const qmi_idl_service_object& service;
  const qmi::Message& message;
  std::span<const uint8_t> body;
};

// The first three bytes pick the service and the message, by its number or by its place in the
// service's table; the others are its body, as far as one can be long.
inline std::optional<AnyMessage> pick_message(std::span<const uint8_t> bytes) {
  if (bytes.size() < 3 || bytes.size() - 3 > UINT16_MAX) return {};
  const auto& service = *all_services()[bytes[0] % 8 % all_services().size()];
  const auto kind = static_cast<qmi::Kind>((bytes[0] >> 3) % 3 * 2);
  const qmi::Message* named = service.find(kind, bytes[1] | (bytes[2] & 0x7FU) << 8);
  const qmi::Message& message =
      named != nullptr ? *named : service.messages[bytes[1] % service.messages.size()];
  return AnyMessage{service, message, bytes.subspan(3)};
}

}  // namespace fuzz
