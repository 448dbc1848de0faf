// Hostile bytes for the decoder of a message: whatever decodes must encode, and decode again to the
// same structure.
#include <string.h>

#include <memory>
#include <vector>

#include "any_message.h"
#include "fuzz.h"
#include "modem_api/vs/vs_client.h"
#include "qcci/qmi_codec.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const auto picked = fuzz::pick_message({data, size});
  if (!picked) return 0;
  const auto& [service, message, bytes] = *picked;
  const fuzz::Exact body(bytes);
  // Blocks of the exact size, so that the sanitizer sees the first byte past them.
  const std::unique_ptr<uint8_t[]> decoded(new uint8_t[message.c_bytes]);
  if (!qmi::decode(message, body, decoded.get())) return 0;
  std::vector<uint8_t> wire(message.wire_max);
  const auto encoded = qmi::encode(message, decoded.get(), wire);
  fuzz::require(encoded.has_value());
  const std::unique_ptr<uint8_t[]> again(new uint8_t[message.c_bytes]);
  fuzz::require(qmi::decode(message, std::span(wire).first(*encoded), again.get()));
  fuzz::require(memcmp(decoded.get(), again.get(), message.c_bytes) == 0);
  if (message.kind == qmi::Kind::Indication && strcmp(service.name, "vs") == 0) {
    vs_client_handle_indication(message.id, decoded.get(), [](int, void*, int) {});
  }
  return 0;
}
