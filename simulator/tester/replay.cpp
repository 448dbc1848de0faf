#include "replay.h"

#include <algorithm>

#include "environment.h"
#include "qcci/trace.h"
#include "values.h"
#include "words.h"

namespace sim {
namespace {

using Packet = std::span<const uint8_t>;

constexpr size_t kTransactionAt = 1;
constexpr size_t kMessageAt = 3;

// Whether bytes [from, to) are those of the record, as far as it knows them.
bool is_same(Packet packet, const RecordedPacket& recorded, size_t from, size_t to) {
  for (size_t i = from; i < to; ++i) {
    if (packet[i] != recorded.bytes[i] && !recorded.hidden[i]) return false;
  }
  return true;
}

bool is_same_request(Packet request, const RecordedPacket& recorded) {
  return request.size() == recorded.bytes.size() && request[0] == recorded.bytes[0] &&
         is_same(request, recorded, kMessageAt, request.size());
}

// "extend send_data nv_read"
std::string words_for(const qmi_idl_service_object& service, Packet request) {
  const Asked asked(service, request);
  const qmi::Message* message = service.find(qmi::Kind::Request, asked.message);
  std::string words = std::string(service.name) + " " +
                      (message != nullptr ? message->name : std::to_string(asked.message));
  if (!asked.operation.empty()) words.append(" ").append(asked.operation);
  return words;
}

std::string number_of(const Value& value, Packet packet) {
  const uint64_t number = value.number(packet);
  return value.form == Value::Form::Signed ? std::to_string(static_cast<int32_t>(number))
                                           : std::to_string(number);
}

// The first value in which a request differs from a recorded one: its name and, if they are numbers
// that may be shown, both.
std::string first_difference(const qmi_idl_service_object& service, Packet request,
                             const RecordedPacket& recorded) {
  const Packet then = recorded.bytes;
  if (!std::equal(request.begin() + kMessageAt, request.begin() + kMessageAt + 2,
                  then.begin() + kMessageAt)) {
    return "the message";
  }
  const auto is = values_of(service, request, request.subspan(qmi::kHeaderBytes));
  const auto was = values_of(service, then, then.subspan(qmi::kHeaderBytes));
  for (size_t i = 0; i < std::min(is.size(), was.size()); ++i) {
    const Value &a = is[i], &b = was[i];
    if (a.path != b.path) return a.path + ", where the record has " + b.path;
    const bool same =
        a.size == b.size && a.at == b.at && is_same(request, recorded, a.at, a.at + a.size);
    if (same) continue;
    const bool are_numbers = a.form == Value::Form::Unsigned || a.form == Value::Form::Signed;
    const auto hidden =
        qmi::trace::hidden_bytes('>', service, request, request.subspan(qmi::kHeaderBytes));
    if (!are_numbers || (!hidden.empty() && hidden[a.at])) return a.path;
    return a.path + ": " + number_of(a, request) + ", recorded " + number_of(b, then);
  }
  if (is.size() != was.size())
    return (is.size() > was.size() ? is[was.size()] : was[is.size()]).path;
  return "its length";
}

}  // namespace

void Replay::play(Record record, bool fast) {
  fast_ = fast;
  record_ = std::move(record);
  asked_.resize(record_.exchanges.size());
  sought_.resize(record_.searches.size());
}

// As long as it took then: the network's times are scaled, the recorded ones are not.
uint32_t Replay::milliseconds(uint32_t recorded_us) const {
  if (fast_) return 0;
  return static_cast<uint32_t>(
      std::min<double>(recorded_us / 1000 / environment::time_scale(), UINT32_MAX));
}

std::vector<Change> Replay::changes_of(const std::vector<RecordedChange>& recorded) const {
  std::vector<Change> changes;
  for (const RecordedChange& change : recorded) {
    changes.push_back({change.service, change.there, milliseconds(change.after_us)});
  }
  return changes;
}

std::optional<Exchange> Replay::answer(const qmi_idl_service_object& service, Packet request) {
  for (size_t i = 0; i < record_.exchanges.size(); ++i) {
    const RecordedExchange& recorded = record_.exchanges[i];
    if (asked_[i] || recorded.service != &service || !is_same_request(request, recorded.request)) {
      continue;
    }
    asked_[i] = true;
    Exchange exchange;
    const auto transaction_of = [](Packet packet) {
      return packet[kTransactionAt] | packet[kTransactionAt + 1] << 8;
    };
    for (const RecordedAnswer& answer : recorded.answers) {
      Delivery delivery{milliseconds(answer.after_us), answer.packet.bytes};
      Packet packet = delivery.packet;
      const bool responds = packet.size() >= qmi::kHeaderBytes &&
                            packet[0] == static_cast<uint8_t>(qmi::Kind::Response);
      if (responds) {
        const int transaction = transaction_of(request) + transaction_of(packet) -
                                transaction_of(recorded.request.bytes);
        delivery.packet[kTransactionAt] = static_cast<uint8_t>(transaction);
        delivery.packet[kTransactionAt + 1] = static_cast<uint8_t>(transaction >> 8);
      }
      exchange.deliveries.push_back(std::move(delivery));
    }
    exchange.changes = changes_of(recorded.changes);
    return exchange;
  }
  differs_ = true;
  say_difference(service, request);
  return std::nullopt;
}

// Against the first that was not asked yet, if there is one of the same operation against that.
void Replay::say_difference(const qmi_idl_service_object& service, Packet request) const {
  const std::string words = words_for(service, request);
  const RecordedExchange* other = nullptr;
  for (size_t i = 0; i < record_.exchanges.size(); ++i) {
    const RecordedExchange& recorded = record_.exchanges[i];
    if (asked_[i] || recorded.service != &service) continue;
    const bool alike = words_for(service, recorded.request.bytes) == words;
    if (other == nullptr || alike) other = &recorded;
    if (alike) break;
  }
  if (other == nullptr) {
    environment::complain("replay: %s: the record has no more requests of the service",
                          words.c_str());
  } else {
    environment::complain("replay: %s: differs from line %zu of the record in %s", words.c_str(),
                          other->line, first_difference(service, request, other->request).c_str());
  }
}

std::vector<Change> Replay::sought(uint32_t service) {
  for (size_t i = 0; i < record_.searches.size(); ++i) {
    const RecordedSearch& search = record_.searches[i];
    if (sought_[i] || search.service != service) continue;
    sought_[i] = true;
    std::vector<Change> changes = changes_of(search.changes);
    if (changes.empty() || changes[0].after_ms > 0)
      changes.insert(changes.begin(), {service, false, 0});
    return changes;
  }
  return {};
}

bool Replay::finish() const {
  for (size_t i = 0; i < record_.exchanges.size(); ++i) {
    const RecordedExchange& recorded = record_.exchanges[i];
    if (asked_[i]) continue;
    environment::complain("replay: never asked: line %zu of the record, %s", recorded.line,
                          words_for(*recorded.service, recorded.request.bytes).c_str());
  }
  return !differs_;
}

}  // namespace sim
