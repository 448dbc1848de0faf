#include "service.h"

#include "qcci/qmi_codec.h"

namespace sim {
namespace {

using qmi::Kind;

struct ResultOnly {
  qmi_response_type_v01 resp;
};
constexpr qmi::Field kResultOnly[] = {
    {0x02, qmi::Required, qmi::Result, QMI_FIELD(ResultOnly, resp)},
};
constexpr qmi::Message kRefusal(Kind::Response, 0, "refusal", 7, sizeof(ResultOnly), kResultOnly);

std::vector<uint8_t> response_packet(const qmi::Header& request, const qmi::Message& message,
                                     const void* c_struct) {
  std::vector<uint8_t> packet(qmi::kHeaderBytes + message.wire_max);
  const auto body = qmi::encode(message, c_struct, std::span(packet).subspan(qmi::kHeaderBytes));
  packet.resize(qmi::kHeaderBytes + body.value_or(0));
  qmi::write_header({Kind::Response, request.transaction, request.message,
                     static_cast<uint16_t>(body.value_or(0))},
                    packet.data());
  return packet;
}

std::vector<uint8_t> refusal_packet(const qmi::Header& request, uint32_t error) {
  const ResultOnly refusal{{.result = 1, .error = error}};
  return response_packet(request, kRefusal, &refusal);
}

// Storage for a C structure, aligned for any of them.
std::vector<uint64_t> room_for(const qmi::Message& message) {
  return std::vector<uint64_t>((message.c_bytes + 7) / 8);
}

}  // namespace

std::vector<uint8_t> answer_packet(Service& service, qmi::Address client,
                                   std::span<const uint8_t> packet) {
  const auto header = qmi::read_header(packet);
  if (!header || header->kind != Kind::Request) return {};
  const qmi::Message* request = service.description().find(Kind::Request, header->message);
  const qmi::Message* response = service.description().find(Kind::Response, header->message);
  if (request == nullptr || response == nullptr) return refusal_packet(*header, kQmiNotSupported);

  auto request_struct = room_for(*request);
  if (!qmi::decode(*request, packet.subspan(qmi::kHeaderBytes), request_struct.data())) {
    return refusal_packet(*header, kQmiMalformedMessage);
  }
  auto response_struct = room_for(*response);
  const uint32_t error =
      service.answer(client, header->message, request_struct.data(), response_struct.data());
  if (error != 0) return refusal_packet(*header, error);
  return response_packet(*header, *response, response_struct.data());
}

}  // namespace sim
