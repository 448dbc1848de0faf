// Hostile bytes for the message decoder, the trace and the unpacker. The first two bytes pick the
// service and the message; whatever decodes must encode, and decode again to the same structure.
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "modem_api/nas/nas_service.h"
#include "modem_api/sar/sar_service.h"
#include "modem_api/vs/vs_client.h"
#include "modem_api/vs/vs_service.h"
#include "pdc_service.h"
#include "qcci/qmi_codec.h"
#include "qcci/trace.h"
#include "uim_service.h"
#include "velmor_extend_service.h"
#include "velmor_tovi_skarn_unpk.h"

namespace {

void decode_and_encode(const qmi_idl_service_object& service, const qmi::Message& message,
                       std::span<const uint8_t> body) {
  // Blocks of the exact size, so that the sanitizer sees the first byte past them.
  const std::unique_ptr<uint8_t[]> decoded(new uint8_t[message.c_bytes]);
  if (!qmi::decode(message, body, decoded.get())) return;
  std::vector<uint8_t> wire(message.wire_max);
  const auto encoded = qmi::encode(message, decoded.get(), wire);
  if (!encoded) abort();
  const std::unique_ptr<uint8_t[]> again(new uint8_t[message.c_bytes]);
  if (!qmi::decode(message, std::span(wire).first(*encoded), again.get())) abort();
  if (memcmp(decoded.get(), again.get(), message.c_bytes) != 0) abort();
  if (message.kind == qmi::Kind::Indication && strcmp(service.name, "vs") == 0) {
    vs_client_handle_indication(message.id, decoded.get(), [](int, void*, int) {});
  }
}

// Of a known version: others only cost a line of output.
void unpack(std::span<const uint8_t> body) {
  constexpr uint32_t kVersions[] = {4, 0x30000, 0x30001, 0x30002};
  const std::unique_ptr<uint8_t[]> payload(new uint8_t[kUnpkBufBytes]());
  std::copy_n(body.data(), std::min<size_t>(body.size(), kUnpkDataMax), payload.get());
  memcpy(payload.get(), &kVersions[payload[0] % 4], sizeof kVersions[0]);
  modem_stats_single_data_common_type record;
  velmor_unpack_record(payload.get(), false, record);

  // The steps, with a limit, a position and a width from the input.
  int numbers[3] = {};
  memcpy(numbers, body.data(), std::min(body.size(), sizeof numbers));
  Unpacker unpacker(payload.get(), std::clamp(numbers[0], 0, kUnpkDataMax), false);
  uint64_t value;
  if (unpacker.go_to("f", numbers[1], numbers[2])) {
    unpacker.extract("f", numbers[1], numbers[2], value);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const qmi_idl_service_object_type services[] = {
      velmor_extend_get_service_object_internal_v01(1, 1, 6),
      uim_get_service_object_internal_v01(1, 109, 6),
      nas_get_service_object_internal_v01(1, 397, 6),
      sar_get_service_object_internal_v01(1, 15, 6),
      pdc_get_service_object_internal_v01(1, 16, 6),
      vs_get_service_object_internal_v01(1, 2, 6),
  };
  if (size < 2 || size - 2 > UINT16_MAX) return 0;
  const auto& service = *services[data[0] % std::size(services)];
  const qmi::Message& message = service.messages[data[1] % service.messages.size()];
  const std::span<const uint8_t> body(data + 2, size - 2);
  decode_and_encode(service, message, body);
  unpack(body);

  std::vector<uint8_t> packet(qmi::kHeaderBytes + body.size());
  qmi::write_header({message.kind, 1, message.id, static_cast<uint16_t>(body.size())},
                    packet.data());
  std::copy(body.begin(), body.end(), packet.begin() + qmi::kHeaderBytes);
  const bool answers_itself = (data[0] & 0x40) != 0;
  const auto request = answers_itself ? body : std::span<const uint8_t>();
  qmi::trace::text('<', service, packet, request, (data[0] & 0x80) != 0);
  return 0;
}
