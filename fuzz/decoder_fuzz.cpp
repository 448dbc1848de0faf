// Hostile bytes for the message decoder and the trace. The first byte picks the message; whatever
// decodes must encode, and decode again to the same structure.
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <vector>

#include "qcci/qmi_codec.h"
#include "qcci/trace.h"
#include "velmor_extend_service.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto& service = *velmor_extend_get_service_object_internal_v01(1, 1, 6);
  if (size == 0) return 0;
  const qmi::Message& message = service.messages[data[0] % service.messages.size()];
  const std::span<const uint8_t> body(data + 1, size - 1);

  // Blocks of the exact size, so that the sanitizer sees the first byte past them.
  const std::unique_ptr<uint8_t[]> decoded(new uint8_t[message.c_bytes]);
  if (qmi::decode(message, body, decoded.get())) {
    std::vector<uint8_t> wire(message.wire_max);
    const auto encoded = qmi::encode(message, decoded.get(), wire);
    if (!encoded) abort();
    const std::unique_ptr<uint8_t[]> again(new uint8_t[message.c_bytes]);
    if (!qmi::decode(message, std::span(wire).first(*encoded), again.get())) abort();
    if (memcmp(decoded.get(), again.get(), message.c_bytes) != 0) abort();
  }

  std::vector<uint8_t> packet(qmi::kHeaderBytes + body.size());
  if (body.size() > UINT16_MAX) return 0;
  qmi::write_header({message.kind, 1, message.id, static_cast<uint16_t>(body.size())},
                    packet.data());
  std::copy(body.begin(), body.end(), packet.begin() + qmi::kHeaderBytes);
  qmi::trace::text('<', service, packet, (data[0] & 0x80) != 0);
  return 0;
}
