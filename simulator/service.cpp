#include "service.h"

#include "qcci/qmi_codec.h"

namespace sim {
namespace {

using qmi::Kind;
using Packet = std::vector<uint8_t>;

constexpr uint32_t kRestartMs = 300;

struct ResultOnly {
  qmi_response_type_v01 resp;
};
constexpr qmi::Field kResultOnly[] = {
    {0x02, qmi::Required, qmi::Result, QMI_FIELD(ResultOnly, resp)},
};
constexpr qmi::Message kRefusal(Kind::Response, 0, "refusal", 7, sizeof(ResultOnly), kResultOnly);

// Storage for a C structure, aligned for any of them.
std::vector<uint64_t> room_for(const qmi::Message& message) {
  return std::vector<uint64_t>((message.c_bytes + 7) / 8);
}

Packet response_to(Service& service, qmi::Address client, const qmi::Header& header,
                   std::span<const uint8_t> body, Indications& indications) {
  const qmi::Message* request = service.description().find(Kind::Request, header.message);
  const qmi::Message* response = service.description().find(Kind::Response, header.message);
  if (request == nullptr || response == nullptr) return service.refusal(header, kQmiNotSupported);
  auto request_struct = room_for(*request);
  if (!qmi::decode(*request, body, request_struct.data())) {
    return service.refusal(header, kQmiMalformedMessage);
  }
  auto response_struct = room_for(*response);
  const uint32_t error = service.answer(client, header.message, request_struct.data(),
                                        response_struct.data(), indications);
  if (error != 0) return service.refusal(header, error);
  return make_packet(Kind::Response, header.transaction, header.message, *response,
                     response_struct.data());
}

void cut(Packet& packet, size_t body_bytes) {
  if (packet.size() <= qmi::kHeaderBytes + body_bytes) return;
  packet.resize(qmi::kHeaderBytes + body_bytes);
  const auto length = static_cast<uint16_t>(body_bytes);
  memcpy(&packet[5], &length, sizeof length);
}

// What the answer and its indications become under a fault.
Exchange spoil(const Fault& fault, Packet response, std::vector<Packet> indications,
               std::minstd_rand& random) {
  using Action = Fault::Action;
  const uint32_t value = fault.value.value_or(0);
  uint32_t response_delay = 0;
  uint32_t indication_delay = 0;
  std::vector<Packet> responses = {std::move(response)};
  switch (fault.action) {
    case Action::Drop: responses.clear(); break;
    case Action::Delay: response_delay = value; break;
    case Action::Short: cut(responses[0], value); break;
    case Action::Garbage:
      for (size_t i = qmi::kHeaderBytes; i < responses[0].size(); ++i) {
        responses[0][i] = static_cast<uint8_t>(random() >> 8);
      }
      break;
    case Action::Twice: responses.push_back(responses[0]); break;
    case Action::IndDelay: indication_delay = value; break;
    case Action::IndTwice: {
      std::vector<Packet> twice;
      for (const Packet& indication : indications) twice.insert(twice.end(), 2, indication);
      indications = std::move(twice);
      break;
    }
    case Action::IndOther:
      for (Packet& indication : indications) {
        const auto id = static_cast<uint16_t>(value);
        memcpy(&indication[3], &id, sizeof id);
      }
      break;
    case Action::NoInd: indications.clear(); break;
    default: break;
  }
  Exchange exchange;
  for (Packet& packet : responses) {
    exchange.deliveries.push_back({response_delay, std::move(packet)});
  }
  const auto where =
      fault.action == Action::IndFirst ? exchange.deliveries.begin() : exchange.deliveries.end();
  std::vector<Exchange::Delivery> later;
  for (Packet& packet : indications) later.push_back({indication_delay, std::move(packet)});
  exchange.deliveries.insert(where, later.begin(), later.end());
  return exchange;
}

}  // namespace

void Indications::add(uint16_t message, const void* c_struct) {
  const qmi::Message* known = service_.find(Kind::Indication, message);
  if (known != nullptr) {
    packets_.push_back(make_packet(Kind::Indication, 0, message, *known, c_struct));
  }
}

std::vector<uint8_t> Service::refusal(const qmi::Header& request, uint32_t error) const {
  const ResultOnly refusal{{.result = 1, .error = error}};
  return make_packet(Kind::Response, request.transaction, request.message, kRefusal, &refusal);
}

std::vector<uint8_t> make_packet(Kind kind, uint16_t transaction, uint16_t id,
                                 const qmi::Message& message, const void* c_struct) {
  Packet packet(qmi::kHeaderBytes + message.wire_max);
  const auto body = qmi::encode(message, c_struct, std::span(packet).subspan(qmi::kHeaderBytes));
  packet.resize(qmi::kHeaderBytes + body.value_or(0));
  const auto length = static_cast<uint16_t>(body.value_or(0));
  qmi::write_header({kind, transaction, id, length}, packet.data());
  return packet;
}

Exchange carry_out(Service& service, qmi::Address client, std::span<const uint8_t> packet,
                   Faults& faults, std::minstd_rand& random) {
  const auto header = qmi::read_header(packet);
  if (!header || header->kind != Kind::Request || !is_whole(*header, packet)) return {};
  const Fault* fault = faults.meet(service.description().service_id, header->message);
  if (fault != nullptr && fault->action == Fault::Action::Down) {
    return {.deliveries = {}, .outage = Exchange::Outage{false, fault->value}};
  }
  if (fault != nullptr && fault->action == Fault::Action::Restart) {
    return {.deliveries = {}, .outage = Exchange::Outage{true, fault->value.value_or(kRestartMs)}};
  }
  if (fault != nullptr && fault->action == Fault::Action::Error) {
    return {.deliveries = {{0, service.refusal(*header, fault->value.value_or(0))}}, .outage = {}};
  }
  Indications indications(service.description());
  Packet response =
      response_to(service, client, *header, packet.subspan(qmi::kHeaderBytes), indications);
  constexpr Fault kNone{Fault::Action::Delay, 0};
  return spoil(fault != nullptr ? *fault : kNone, std::move(response), indications.packets(),
               random);
}

}  // namespace sim
