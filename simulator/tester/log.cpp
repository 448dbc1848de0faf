#include "log.h"

#include <stdio.h>
#include <time.h>

#include <nlohmann/json.hpp>

#include "environment.h"
#include "qcci/trace.h"
#include "values.h"
#include "words.h"

namespace sim {
namespace {

using Json = nlohmann::ordered_json;
using Packet = std::span<const uint8_t>;

constexpr const char* kHidden = "..";

std::string now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  tm utc{};
  gmtime_r(&time.tv_sec, &utc);
  char text[40];
  const size_t length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
  snprintf(text + length, sizeof text - length, ".%06ldZ", time.tv_nsec / 1000);
  return text;
}

std::string hex(Packet bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string hex;
  for (const uint8_t byte : bytes) {
    hex += kDigits[byte >> 4];
    hex += kDigits[byte & 15];
  }
  return hex;
}

// Text that is none is shown as far as it is.
std::string line_of(const Json& object) {
  return object.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

Json json_of(const Value& value, Packet packet, const std::vector<bool>& hidden) {
  for (size_t i = value.at; i < value.at + value.size && !hidden.empty(); ++i) {
    if (hidden[i]) return kHidden;
  }
  if (value.form == Value::Form::Unsigned) return value.number(packet);
  if (value.form == Value::Form::Signed) return static_cast<int32_t>(value.number(packet));
  auto bytes = packet.subspan(value.at, value.size);
  while (!bytes.empty() && bytes.back() == 0) bytes = bytes.first(bytes.size() - 1);
  if (value.form == Value::Form::Bytes) return hex(bytes);
  return std::string(bytes.begin(), bytes.end());
}

// What is said of a request that can be read.
void add_request(Json& line, const qmi_idl_service_object& service, Packet request) {
  const auto header = qmi::read_header(request);
  const qmi::Message* message = service.find(qmi::Kind::Request, header->message);
  line["message"] = message != nullptr ? message->name : "unknown";
  line["message_id"] = header->message;
  const std::string_view operation = Asked(service, request).operation;
  if (!operation.empty()) line["operation"] = operation;
  const Packet body = request.subspan(qmi::kHeaderBytes);
  const auto hidden = qmi::trace::hidden_bytes('>', service, request, body);
  Json& arguments = line["arguments"] = Json::object();
  for (const Value& value : values_of(service, request, body)) {
    arguments[value.name()] = json_of(value, request, hidden);
  }
}

// The results in a response: the service's, and the modem's in the payload.
void add_results(Json& line, const qmi_idl_service_object& service, Packet response, Packet body) {
  for (const Value& value : values_of(service, response, body)) {
    if (value.path == "result" || value.path == "resp.error") {
      line["result"] = json_of(value, response, {});
    } else if (value.name() == "result") {
      line["modem_result"] = json_of(value, response, {});
    }
  }
  const auto result = qmi::find_tlv(response.subspan(qmi::kHeaderBytes), 0x02);
  if (!line.contains("result") && result.size() == 4) line["result"] = result[2] | result[3] << 8;
}

}  // namespace

void Log::saw(const qmi_idl_service_object& service, qmi::Address client,
              std::span<const uint8_t> request, const Exchange& exchange) {
  Json line = {{"time", now()},
               {"client", std::to_string(client.node) + ":" + std::to_string(client.port)},
               {"service", service.name},
               {"service_id", service.service_id}};
  const auto header = qmi::read_header(request);
  if (header && is_whole(*header, request)) {
    add_request(line, service, request);
  } else {
    line["malformed_bytes"] = request.size();
  }
  int responses = 0, indications = 0;
  for (const Delivery& delivery : exchange.deliveries) {
    const auto sent = qmi::read_header(delivery.packet);
    const bool responds = sent && sent->kind == qmi::Kind::Response;
    ++(responds ? responses : indications);
    if (!responds || responses > 1) continue;
    add_results(line, service, delivery.packet, request.subspan(qmi::kHeaderBytes));
  }
  line["responses"] = responses;
  line["indications"] = indications;
  if (exchange.outage) line["leaves"] = exchange.outage->of_all_services ? "all" : service.name;
  if (exchange.fault != nullptr) line["fault"] = exchange.fault->rule;
  file_.add(line_of(line));
}

// Which command and what became of it; its bytes, which may tell an identity, only when asked for.
void Log::saw_diag(std::span<const uint8_t> command, std::string_view answer) {
  Json line = {{"time", now()}, {"port", "diag"}};
  const Packet answered(reinterpret_cast<const uint8_t*>(answer.data()), answer.size());
  const bool full = environment::trace_full();
  line["command"] = full ? hex(command) : hex(command.first(std::min<size_t>(command.size(), 3)));
  line["command_bytes"] = command.size();
  line["answer"] = full ? hex(answered) : hex(answered.first(std::min<size_t>(answer.size(), 1)));
  line["answer_bytes"] = answer.size();
  file_.add(line_of(line));
}

// The same: a command up to what it sets, and how it ended.
void Log::saw_at(std::string_view text, std::string_view answer) {
  Json line = {{"time", now()}, {"port", "at"}};
  const bool full = environment::trace_full();
  const size_t value = text.find('=');
  const bool cut = !full && value != std::string_view::npos && value + 1 < text.size();
  line["command"] = cut ? std::string(text.substr(0, value + 1)) + kHidden : std::string(text);
  const size_t end = answer.find_last_not_of("\r\n") + 1;
  const size_t last = answer.substr(0, end).find_last_of("\r\n") + 1;
  line["answer"] = full ? answer : answer.substr(last, end - last);
  file_.add(line_of(line));
}

}  // namespace sim
