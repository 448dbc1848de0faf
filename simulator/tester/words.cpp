#include "words.h"

#include <algorithm>
#include <iterator>

#include "all_services.h"
#include "velmor_extend_payload.h"

namespace sim {
namespace {

const qmi_idl_service_object* find_service(auto is_it) {
  const auto services = all_services();
  const auto found = std::find_if(services.begin(), services.end(), is_it);
  return found != services.end() ? *found : nullptr;
}

}  // namespace

const qmi_idl_service_object* service_named(std::string_view name) {
  return find_service([&](qmi_idl_service_object_type service) { return service->name == name; });
}

const qmi_idl_service_object* service_of(uint32_t id) {
  return find_service(
      [&](qmi_idl_service_object_type service) { return service->service_id == id; });
}

const qmi::Message* request_named(const qmi_idl_service_object& service, std::string_view name) {
  for (const qmi::Message& message : service.messages) {
    if (message.kind == qmi::Kind::Request && message.name == name) return &message;
  }
  return nullptr;
}

std::string_view operation_named(const qmi_idl_service_object& service, std::string_view word) {
  if (has_payloads(service.service_id)) {
    if (word == "restart") return "modem_ssr";
    return velmor_extend_is_operation(word) ? word : "";
  }
  return service_named("uim") == &service && word == "memory_reset" ? word : "";
}

bool has_payloads(uint32_t service) {
  return service_named("extend")->service_id == service;
}

Asked::Asked(const qmi_idl_service_object& service, std::span<const uint8_t> packet)
    : service(service), message(0) {
  const auto header = qmi::read_header(packet);
  if (!header) return;
  message = header->message;
  const qmi::Message* known = service.find(qmi::Kind::Request, message);
  if (known == nullptr) return;
  const auto body = packet.subspan(qmi::kHeaderBytes);
  for (const qmi::Field& row : known->fields) {
    if (row.shape.payload != nullptr) operation = row.shape.payload(qmi::Kind::Request, body).name;
  }
}

}  // namespace sim
