// Hostile bytes for the trace of a message, and for what names and compares single values. In the
// first byte, 0x40 has the message answer itself, 0x80 shows what is hidden otherwise; with 0x80 in
// the third byte the others are the payload of a message of the extension service.
#include <algorithm>
#include <vector>

#include "any_message.h"
#include "fuzz.h"
#include "qcci/qmi_codec.h"
#include "qcci/trace.h"
#include "values.h"
#include "velmor_extend_service.h"
#include "words.h"

namespace {

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
  const auto picked = fuzz::pick_message({data, size});
  if (!picked) return 0;
  const auto& [service, message, bytes] = *picked;
  const bool tunnels = (data[2] & 0x80) != 0;
  const fuzz::Exact body(tunnels ? std::span<const uint8_t>(tunnelled(bytes)) : bytes);
  const bool answers_itself = (data[0] & 0x40) != 0;
  const auto request = answers_itself ? body : std::span<const uint8_t>();
  show(service, message, body, request, (data[0] & 0x80) != 0);
  return 0;
}
