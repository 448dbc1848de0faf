#include "service.h"

#include <algorithm>
#include <iterator>

#include "qcci/qmi_codec.h"
#include "state_reader.h"

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

// A TLV that no message table has, one byte long.
constexpr uint8_t kUnnamedTlv[] = {0x3F, 1, 0, 0};

// Storage for a C structure, aligned for any of them.
std::vector<uint64_t> room_for(const qmi::Message& message) {
  return std::vector<uint64_t>((message.c_bytes + 7) / 8);
}

Packet response_to(Service& service, qmi::Address client, const qmi::Header& header,
                   std::span<const uint8_t> body, Aftermath& aftermath) {
  const qmi::Message* request = service.description().find(Kind::Request, header.message);
  const qmi::Message* response = service.description().find(Kind::Response, header.message);
  if (request == nullptr || response == nullptr) return service.refusal(header, kQmiNotSupported);
  auto request_struct = room_for(*request);
  if (!qmi::decode(*request, body, request_struct.data())) {
    return service.refusal(header, kQmiMalformedMessage);
  }
  auto response_struct = room_for(*response);
  uint32_t error;
  try {
    error = service.answer(client, header.message, request_struct.data(), response_struct.data(),
                           aftermath);
  } catch (const StateError&) {
    error = kQmiInternal;
  }
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

constexpr uint8_t kLengthTlv = 0x02;  // of the extension service: meaningful bytes of its payload

// Replaces the value of a TLV of four bytes, if the packet has one of that number.
void set_word(Packet& packet, uint8_t tlv, uint32_t value) {
  const auto word = qmi::find_tlv(std::span(packet).subspan(qmi::kHeaderBytes), tlv);
  if (word.size() == sizeof value)
    memcpy(packet.data() + (word.data() - packet.data()), &value, sizeof value);
}

// What the answer and its indications become under a fault.
std::vector<Delivery> spoil(const Fault& fault, Packet response, std::vector<Delivery> indications,
                            std::minstd_rand& random) {
  using Action = Fault::Action;
  const uint32_t value = fault.value.value_or(0);
  std::vector<Delivery> deliveries = {{0, std::move(response)}};
  Packet& answer = deliveries[0].packet;
  switch (fault.action) {
    case Action::Drop: deliveries.clear(); break;
    case Action::Delay: deliveries[0].delay_ms = value; break;
    case Action::Short: cut(answer, value); break;
    case Action::Garbage:
      for (size_t i = qmi::kHeaderBytes; i < answer.size(); ++i) {
        answer[i] = static_cast<uint8_t>(random() >> 8);
      }
      break;
    case Action::Len: set_word(answer, kLengthTlv, value); break;
    case Action::Stray: answer[2] = static_cast<uint8_t>(answer[2] ^ 0x80); break;
    case Action::Twice: deliveries.push_back(deliveries[0]); break;
    case Action::IndFirst:
      for (Delivery& indication : indications) indication.delay_ms = 0;
      indications.push_back(std::move(deliveries[0]));
      deliveries.clear();
      break;
    case Action::IndDelay:
      for (Delivery& indication : indications) indication.delay_ms = value;
      break;
    case Action::IndTwice:
      for (size_t i = indications.size(); i > 0; --i) {
        const Delivery again = indications[i - 1];
        indications.insert(indications.begin() + static_cast<ptrdiff_t>(i), again);
      }
      break;
    case Action::IndOther:
      for (Delivery& indication : indications) {
        const auto id = static_cast<uint16_t>(value);
        memcpy(&indication.packet[3], &id, sizeof id);
      }
      break;
    case Action::NoInd: indications.clear(); break;
    case Action::Error:
    case Action::Result:
    case Action::Absent:
    case Action::Down:
    case Action::Restart: break;  // seen to before the request is carried out
  }
  std::move(indications.begin(), indications.end(), std::back_inserter(deliveries));
  return deliveries;
}

}  // namespace

void Aftermath::indicate(uint16_t message, const void* c_struct, uint32_t delay_ms) {
  const qmi::Message* known = service_.description().find(Kind::Indication, message);
  if (known == nullptr) return;
  indications_.push_back({delay_ms, make_packet(Kind::Indication, service_.number_indication(),
                                                message, *known, c_struct)});
}

uint16_t Service::number_indication() {
  if (++indications_ == 0) ++indications_;
  return indications_;
}

std::vector<uint8_t> Service::refusal(const qmi::Header& request, uint32_t error) const {
  const ResultOnly refusal{{.result = 1, .error = error}};
  return make_packet(Kind::Response, request.transaction, request.message, kRefusal, &refusal);
}

std::vector<uint8_t> Service::refusal_inside(std::span<const uint8_t> request,
                                             int32_t result) const {
  return refusal(*qmi::read_header(request), static_cast<uint32_t>(result));
}

std::vector<uint8_t> make_packet(Kind kind, uint16_t transaction, uint16_t id,
                                 const qmi::Message& message, const void* c_struct) {
  std::vector<qmi::Field> rows(message.fields.begin(), message.fields.end());
  const auto optional = std::stable_partition(rows.begin(), rows.end(), [](const qmi::Field& row) {
    return row.presence == qmi::Required;
  });
  std::sort(optional, rows.end(),
            [](const qmi::Field& a, const qmi::Field& b) { return a.tlv > b.tlv; });

  Packet packet(qmi::kHeaderBytes + message.wire_max + sizeof kUnnamedTlv);
  const auto body = std::span(packet).subspan(qmi::kHeaderBytes);
  const auto encode_at = [&](size_t at, std::span<const qmi::Field> part) {
    qmi::Message partial = message;
    partial.fields = part;
    return qmi::encode(partial, c_struct, body.subspan(at)).value_or(0);
  };
  size_t size = encode_at(0, {rows.begin(), optional});
  if (const size_t others = encode_at(size + sizeof kUnnamedTlv, {optional, rows.end()});
      others > 0) {
    memcpy(&body[size], kUnnamedTlv, sizeof kUnnamedTlv);
    size += sizeof kUnnamedTlv + others;
  }
  packet.resize(qmi::kHeaderBytes + size);
  qmi::write_header({kind, transaction, id, static_cast<uint16_t>(size)}, packet.data());
  return packet;
}

Exchange carry_out(Service& service, qmi::Address client, std::span<const uint8_t> packet,
                   Faults& faults, std::minstd_rand& random) {
  const auto header = qmi::read_header(packet);
  if (!header || header->kind != Kind::Request || !is_whole(*header, packet)) return {};
  const Fault* fault = faults.meet(Asked(service.description(), packet));
  using Action = Fault::Action;
  static const Fault kNone{Action::Delay, 0, ""};
  const Fault& met = fault != nullptr ? *fault : kNone;
  const uint32_t value = met.value.value_or(0);
  const auto refused = [&](Packet response) {
    return Exchange{.deliveries = {{0, std::move(response)}}, .outage = {}, .fault = fault};
  };
  switch (met.action) {
    case Action::Down: return {{}, Outage{false, 0, met.value}, fault};
    case Action::Restart: return {{}, Outage{true, 0, met.value.value_or(kRestartMs)}, fault};
    case Action::Error: return refused(service.refusal(*header, value));
    case Action::Result:
      return refused(service.refusal_inside(packet, static_cast<int32_t>(value)));
    default: break;
  }
  Aftermath aftermath(service);
  Packet response =
      response_to(service, client, *header, packet.subspan(qmi::kHeaderBytes), aftermath);
  return {spoil(met, std::move(response), aftermath.indications(), random), aftermath.outage(),
          fault};
}

}  // namespace sim
