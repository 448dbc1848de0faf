// Hostile bytes for the message decoder, the trace, and what names and compares single values. The
// first three bytes pick the service and the message; whatever decodes must encode, and decode
// again to the same structure. With the third byte's highest bit the others are the payload of a
// message of the extension service.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "all_services.h"
#include "fuzz.h"
#include "modem_api/vs/vs_client.h"
#include "qcci/qmi_codec.h"
#include "qcci/trace.h"
#include "values.h"
#include "velmor_extend_service.h"
#include "words.h"

namespace {

void decode_and_encode(const qmi_idl_service_object& service, const qmi::Message& message,
                       std::span<const uint8_t> body) {
  // Blocks of the exact size, so that the sanitizer sees the first byte past them.
  const std::unique_ptr<uint8_t[]> decoded(new uint8_t[message.c_bytes]);
  if (!qmi::decode(message, body, decoded.get())) return;
  std::vector<uint8_t> wire(message.wire_max);
  const auto encoded = qmi::encode(message, decoded.get(), wire);
  fuzz::require(encoded.has_value());
  const std::unique_ptr<uint8_t[]> again(new uint8_t[message.c_bytes]);
  fuzz::require(qmi::decode(message, std::span(wire).first(*encoded), again.get()));
  fuzz::require(memcmp(decoded.get(), again.get(), message.c_bytes) == 0);
  if (message.kind == qmi::Kind::Indication && strcmp(service.name, "vs") == 0) {
    vs_client_handle_indication(message.id, decoded.get(), [](int, void*, int) {});
  }
}

// A message of the extension service that tunnels `payload`: number and length, then the data.
std::vector<uint8_t> tunnelled(std::span<const uint8_t> payload) {
  std::vector<uint8_t> body = {0x01, 4, 0, 2, 0, 0, 0, 0x02, 4, 0, 0, 2, 0, 0, 0x10, 0, 2};
  const size_t at = body.size();
  body.resize(at + kExtendDataBytes);
  if (!payload.empty()) body[3] = payload[0];
  payload = payload.subspan(payload.empty() ? 0 : 1);
  std::copy_n(payload.begin(), std::min<size_t>(payload.size(), kExtendDataBytes),
              body.begin() + static_cast<ptrdiff_t>(at));
  return body;
}

void show(const qmi_idl_service_object& service, const qmi::Message& message,
          std::span<const uint8_t> body, std::span<const uint8_t> request, bool show_hidden) {
  std::vector<uint8_t> packet(qmi::kHeaderBytes + body.size());
  qmi::write_header({message.kind, 1, message.id, static_cast<uint16_t>(body.size())},
                    packet.data());
  std::copy(body.begin(), body.end(), packet.begin() + qmi::kHeaderBytes);
  qmi::trace::text('<', service, packet, request, show_hidden);
  const auto hidden = qmi::trace::hidden_bytes('<', service, packet, request);
  fuzz::require(hidden.empty() || hidden.size() == packet.size());
  for (const sim::Value& value : sim::values_of(service, packet, request)) {
    fuzz::require(value.at <= packet.size() && value.size <= packet.size() - value.at);
    if (value.form == sim::Value::Form::Unsigned) value.number(packet);
  }
  sim::Asked asked(service, packet);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3 || size - 3 > UINT16_MAX) return 0;
  const auto& service = *all_services()[data[0] % 8 % all_services().size()];
  const auto kind = static_cast<qmi::Kind>((data[0] >> 3) % 3 * 2);
  const qmi::Message* named = service.find(kind, data[1] | (data[2] & 0x7FU) << 8);
  const qmi::Message& message =
      named != nullptr ? *named : service.messages[data[1] % service.messages.size()];
  const std::span<const uint8_t> bytes(data + 3, size - 3);
  const bool tunnels = (data[2] & 0x80) != 0;
  const fuzz::Exact body(tunnels ? std::span<const uint8_t>(tunnelled(bytes)) : bytes);
  decode_and_encode(service, message, body);
  const bool answers_itself = (data[0] & 0x40) != 0;
  const auto request = answers_itself ? body : std::span<const uint8_t>();
  show(service, message, body, request, (data[0] & 0x80) != 0);
  return 0;
}
